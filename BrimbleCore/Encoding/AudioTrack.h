#pragma once

#include <filesystem>

namespace brimble {

/// Recorded sound to put beside a video's frames: raw interleaved 32-bit float samples, little
/// endian, in a file the recorder wrote.
struct AudioTrack {
  std::filesystem::path samples;
  int sampleRate = 48000;
  int channels = 2;
  /// Seconds from the first video frame to the first sample: negative when the sound started
  /// before the frames. Both are measured on the same clock.
  double start = 0;
};

}  // namespace brimble
