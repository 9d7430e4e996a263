#include "tests/Support/MediaProbe.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"

namespace brimble::testing {
namespace {

int intOf(const nlohmann::json& object, const char* key) {
  if (!object.contains(key)) {
    return 0;
  }
  const auto& value = object[key];
  return value.is_string() ? std::atoi(value.get<std::string>().c_str()) : value.get<int>();
}

double doubleOf(const nlohmann::json& object, const char* key) {
  return object.contains(key) ? std::atof(object[key].get<std::string>().c_str()) : 0;
}

}  // namespace

std::vector<ProbedStream> probeStreams(const std::filesystem::path& file) {
  const auto result = runCommand(
      "ffprobe -v error -count_frames -show_entries "
      "stream=codec_type,codec_name,pix_fmt,width,height,sample_rate,channels,nb_read_frames,"
      "duration -of json " +
      shellQuote(file.string()));
  std::vector<ProbedStream> streams;
  const auto json = nlohmann::json::parse(result.output, nullptr, false);
  if (result.exitCode != 0 || json.is_discarded() || !json.contains("streams")) {
    return streams;
  }
  for (const auto& entry : json["streams"]) {
    ProbedStream stream;
    stream.codecType = entry.value("codec_type", "");
    stream.codecName = entry.value("codec_name", "");
    stream.pixelFormat = entry.value("pix_fmt", "");
    stream.width = intOf(entry, "width");
    stream.height = intOf(entry, "height");
    stream.sampleRate = intOf(entry, "sample_rate");
    stream.channels = intOf(entry, "channels");
    stream.frames = intOf(entry, "nb_read_frames");
    stream.duration = doubleOf(entry, "duration");
    streams.push_back(stream);
  }
  const auto times =
      runCommand("ffprobe -v error -select_streams v:0 -show_entries frame=pts_time -of csv=p=0 " +
                 shellQuote(file.string()));
  if (auto video = std::find_if(streams.begin(), streams.end(),
                                [](const ProbedStream& s) { return s.codecType == "video"; });
      video != streams.end()) {
    std::istringstream lines(times.output);
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty()) {
        video->frameTimes.push_back(std::atof(line.c_str()));
      }
    }
  }
  return streams;
}

std::optional<ProbedStream> streamOfType(const std::vector<ProbedStream>& streams,
                                         const std::string& type) {
  for (const ProbedStream& stream : streams) {
    if (stream.codecType == type) {
      return stream;
    }
  }
  return std::nullopt;
}

std::vector<std::string> topLevelBoxes(const std::filesystem::path& file) {
  const std::string bytes = readFile(file);
  std::vector<std::string> boxes;
  std::size_t offset = 0;
  while (offset + 8 <= bytes.size()) {
    std::uint64_t size = 0;
    for (int i = 0; i < 4; ++i) {
      size = (size << 8) | static_cast<unsigned char>(bytes[offset + static_cast<std::size_t>(i)]);
    }
    boxes.push_back(bytes.substr(offset + 4, 4));
    if (size == 1 && offset + 16 <= bytes.size()) {  // a 64-bit size follows the type
      size = 0;
      for (int i = 8; i < 16; ++i) {
        size =
            (size << 8) | static_cast<unsigned char>(bytes[offset + static_cast<std::size_t>(i)]);
      }
    }
    if (size < 8) {
      break;  // 0 runs to the end of the file; anything else below 8 is damage
    }
    offset += size;
  }
  return boxes;
}

void writeFrames(const std::vector<Image>& images, const std::filesystem::path& folder) {
  for (std::size_t i = 0; i < images.size(); ++i) {
    const auto png = encodePNG(images[i]);
    writeFile(folder / fmt::format("frame{:03}.png", i),
              std::string(reinterpret_cast<const char*>(png.data()), png.size()));
  }
}

std::optional<double> ssimAgainstFrames(const std::filesystem::path& video,
                                        const std::filesystem::path& folder, int width,
                                        int height) {
  // Both sides become planar RGB the same way, so the comparison sees the encode's loss alone;
  // the decoded frames are taken one per coded frame, whatever their times.
  const auto result = runCommand(fmt::format(
      "ffmpeg -v info -nostats -i {} -i {} -lavfi "
      "\"[0:v]setpts=N/(25*TB),format=gbrp,crop={}:{}:0:0[a];[1:v]setpts=N/"
      "(25*TB),format=gbrp[b];[a][b]ssim=shortest=1\" "
      "-f null - 2>&1",
      shellQuote(video.string()), shellQuote((folder / "frame%03d.png").string()), width, height));
  static const std::regex all("All:([0-9.]+)");
  std::smatch match;
  if (!std::regex_search(result.output, match, all)) {
    return std::nullopt;
  }
  return std::atof(match[1].str().c_str());
}

std::vector<float> decodeAudio(const std::filesystem::path& file, int sampleRate) {
  const auto result = runCommand(fmt::format("ffmpeg -v error -i {} -vn -ac 1 -ar {} -f f32le -",
                                             shellQuote(file.string()), sampleRate));
  std::vector<float> samples(result.output.size() / sizeof(float));
  std::memcpy(samples.data(), result.output.data(), samples.size() * sizeof(float));
  return samples;
}

}  // namespace brimble::testing
