#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble::testing {

/// One stream of a media file as ffprobe reads it.
struct ProbedStream {
  std::string codecType;  // "video", "audio"
  std::string codecName;  // "h264", "aac"
  std::string pixelFormat;
  int width = 0;
  int height = 0;
  int sampleRate = 0;
  int channels = 0;
  /// Frames (video) or packets (audio) ffprobe counted by reading the whole stream.
  int frames = 0;
  double duration = 0;
  /// Start time of each frame, in seconds (video only).
  std::vector<double> frameTimes;
};

/// The streams of `file`, as ffprobe reads them; empty when ffprobe cannot read it.
std::vector<ProbedStream> probeStreams(const std::filesystem::path& file);

/// The first stream of `type` among `streams`, or none.
std::optional<ProbedStream> streamOfType(const std::vector<ProbedStream>& streams,
                                         const std::string& type);

/// The four-letter types of the top-level boxes of an MP4 file, read from its bytes.
std::vector<std::string> topLevelBoxes(const std::filesystem::path& file);

/// Writes `images` as PNG files frame000.png, frame001.png ... into `folder`.
void writeFrames(const std::vector<Image>& images, const std::filesystem::path& folder);

/// The mean SSIM (ffmpeg's ssim filter, over all planes) between every decoded frame of `video`
/// and the PNG frames `writeFrames` put in `folder`, each compared at the source's size (the
/// video's padding is cropped off). No value when ffmpeg fails.
std::optional<double> ssimAgainstFrames(const std::filesystem::path& video,
                                        const std::filesystem::path& folder, int width, int height);

/// The audio of `file` decoded to mono 32-bit float samples at `sampleRate`.
std::vector<float> decodeAudio(const std::filesystem::path& file, int sampleRate);

}  // namespace brimble::testing
