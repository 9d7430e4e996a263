#include "BrimbleCore/Scripting/TextRecognizer.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string_view>

#include <poll.h>
#include <unistd.h>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {
namespace {

constexpr int kPollMilliseconds = 50;
// What tesseract prints for one window is a few kilobytes; more is not text worth matching.
constexpr std::size_t kMostOutput = 1024 * 1024;

// Removes the picture handed to tesseract, whatever happens to the reading.
struct RemovedFile {
  std::filesystem::path path;
  ~RemovedFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
};

std::vector<std::string> nonBlankLines(std::string_view text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::string line(text.substr(start, end - start));
    line.erase(line.find_last_not_of(" \t\r\f") + 1);
    if (!line.empty()) {
      lines.push_back(std::move(line));
    }
    start = end + 1;
  }
  return lines;
}

}  // namespace

TextRecognitionError TextRecognitionError::notInstalled() {
  return {Code::notInstalled,
          "reading text off a window needs tesseract, which is not installed (Debian: apt-get "
          "install tesseract-ocr tesseract-ocr-eng)"};
}

TextRecognitionError TextRecognitionError::failed(const std::string& why) {
  return {Code::failed, "tesseract could not read the window: " + why};
}

namespace TextRecognizer {

std::optional<std::vector<std::string>> readLines(const Image& image,
                                                  const std::function<bool()>& stop) {
  if (!findProgram("tesseract")) {
    throw TextRecognitionError::notInstalled();
  }
  const Image larger = ImageScaler::resize(image, {image.width() * 2, image.height() * 2});
  const std::vector<std::uint8_t> png = encodePNG(larger);
  const RemovedFile picture{temporaryDirectory() / ("brimble-text-" + makeUUIDString() + ".png")};
  writeFileAtomically(
      picture.path, std::string_view(reinterpret_cast<const char*>(png.data()), png.size()), 0600);

  Subprocess tesseract;
  try {
    tesseract = Subprocess::spawn({"tesseract", picture.path.string(), "stdout"},
                                  {.output = StreamConnection::pipe, .dieWithParent = true});
  } catch (const std::system_error& error) {
    throw TextRecognitionError::failed(error.what());
  }
  std::string text;
  char buffer[4096];
  while (true) {
    if (stop()) {
      static_cast<void>(tesseract.terminate(std::chrono::milliseconds(200)));
      return std::nullopt;
    }
    pollfd readable{tesseract.output().get(), POLLIN, 0};
    const int ready = ::poll(&readable, 1, kPollMilliseconds);
    if (ready < 0 && errno != EINTR) {
      throw TextRecognitionError::failed(std::string("poll: ") + std::strerror(errno));
    }
    if (ready <= 0) {
      continue;
    }
    const ssize_t count = ::read(tesseract.output().get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    if (text.size() < kMostOutput) {
      text.append(buffer, static_cast<std::size_t>(count));
    }
  }
  const ExitStatus status = tesseract.wait();
  if (status.shellStatus() != 0) {
    throw TextRecognitionError::failed("it exited with status " +
                                       std::to_string(status.shellStatus()));
  }
  return nonBlankLines(text);
}

}  // namespace TextRecognizer
}  // namespace brimble
