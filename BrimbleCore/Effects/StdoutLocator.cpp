#include "BrimbleCore/Effects/StdoutLocator.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble::StdoutLocator {
namespace {

// Terminal fonts are small for OCR: three times larger reads far more reliably.
constexpr int kUpscale = 3;

std::string normalized(std::string_view text) {
  std::string result;
  for (char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
      result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  return result;
}

struct OCRLine {
  ScreenRect box;  // in the upscaled image
  std::string text;
};

// Runs Tesseract on `png` and returns its lines; no value when it cannot run.
std::optional<std::vector<OCRLine>> readLines(const std::vector<std::uint8_t>& png) {
  if (!findProgram("tesseract", "")) {
    logLine("BrimbleCore: tesseract is not installed, so a stdout spotlight cannot find its line");
    return std::nullopt;
  }
  const std::filesystem::path file =
      temporaryDirectory() / ("brimble-ocr-" + makeUUIDString() + ".png");
  std::string output;
  try {
    writeFileAtomically(
        file, std::string_view(reinterpret_cast<const char*>(png.data()), png.size()), 0600);
    SpawnOptions options;
    options.output = StreamConnection::pipe;
    Subprocess tesseract =
        Subprocess::spawn({"tesseract", file.string(), "stdout", "--psm", "6", "tsv"}, options);
    char buffer[65536];
    while (true) {
      const ssize_t count = ::read(tesseract.output().get(), buffer, sizeof buffer);
      if (count > 0) {
        output.append(buffer, static_cast<std::size_t>(count));
      } else if (count == 0 || errno != EINTR) {
        break;
      }
    }
    const ExitStatus status = tesseract.wait();
    std::filesystem::remove(file);
    if (status.shellStatus() != 0) {
      logLine("BrimbleCore: tesseract failed (status " + std::to_string(status.shellStatus()) +
              "), so a stdout spotlight cannot find its line");
      return std::nullopt;
    }
  } catch (const std::exception& error) {
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    logLine(std::string("BrimbleCore: could not run tesseract (") + error.what() + ")");
    return std::nullopt;
  }
  // TSV: level page block paragraph line word left top width height confidence text; words are
  // level 5, and a line is named by its block, paragraph and line numbers.
  std::map<std::tuple<int, int, int>, OCRLine> lines;
  std::istringstream rows(output);
  std::string row;
  while (std::getline(rows, row)) {
    std::vector<std::string> fields;
    std::istringstream cells(row);
    std::string cell;
    while (std::getline(cells, cell, '\t')) {
      fields.push_back(cell);
    }
    if (fields.size() < 12 || fields[0] != "5") {
      continue;
    }
    try {
      const auto key = std::tuple{std::stoi(fields[2]), std::stoi(fields[3]), std::stoi(fields[4])};
      const ScreenRect word{std::stoi(fields[6]), std::stoi(fields[7]), std::stoi(fields[8]),
                            std::stoi(fields[9])};
      OCRLine& line = lines[key];
      if (line.box.empty()) {
        line.box = word;
      } else {
        const int right = std::max(line.box.x + line.box.width, word.x + word.width);
        const int bottom = std::max(line.box.y + line.box.height, word.y + word.height);
        line.box.x = std::min(line.box.x, word.x);
        line.box.y = std::min(line.box.y, word.y);
        line.box.width = right - line.box.x;
        line.box.height = bottom - line.box.y;
      }
      line.text += (line.text.empty() ? "" : " ") + fields[11];
    } catch (const std::exception&) {
      continue;  // a malformed row is no line
    }
  }
  std::vector<OCRLine> result;
  for (auto& [key, line] : lines) {
    result.push_back(std::move(line));
  }
  return result;
}

}  // namespace

double similarity(std::string_view a, std::string_view b) {
  const std::string x = normalized(a);
  const std::string y = normalized(b);
  if (x.empty() || y.empty()) {
    return 0;
  }
  std::vector<int> previous(y.size() + 1, 0);
  std::vector<int> current(y.size() + 1, 0);
  for (char c : x) {
    for (std::size_t j = 1; j <= y.size(); ++j) {
      current[j] = c == y[j - 1] ? previous[j - 1] + 1 : std::max(previous[j], current[j - 1]);
    }
    std::swap(previous, current);
  }
  return 2.0 * previous[y.size()] / static_cast<double>(x.size() + y.size());
}

std::optional<ScreenRect> locate(const Image& frame, std::string_view text) {
  if (frame.empty() || normalized(text).empty()) {
    return std::nullopt;
  }
  const Image large =
      ImageScaler::resize(frame.toBGRA8(), {frame.width() * kUpscale, frame.height() * kUpscale});
  const auto lines = readLines(encodePNG(large));
  if (!lines) {
    return std::nullopt;
  }
  constexpr double kEnough = 0.8;
  const OCRLine* best = nullptr;
  double bestScore = kEnough;
  for (const OCRLine& line : *lines) {
    const double score = similarity(line.text, text);
    // Lines further down win ties: a terminal shows its latest output lowest.
    if (score > bestScore + 1e-9 ||
        (best != nullptr && score >= bestScore - 1e-9 && line.box.y > best->box.y)) {
      best = &line;
      bestScore = std::max(bestScore, score);
    }
  }
  if (best == nullptr) {
    logLine("BrimbleCore: no line on the frame reads like \"" + std::string(text) +
            "\"; its spotlight is left out");
    return std::nullopt;
  }
  const ScreenRect& box = best->box;
  const int left = box.x / kUpscale;
  const int top = box.y / kUpscale;
  return ScreenRect{left, top, (box.x + box.width + kUpscale - 1) / kUpscale - left,
                    (box.y + box.height + kUpscale - 1) / kUpscale - top};
}

}  // namespace brimble::StdoutLocator
