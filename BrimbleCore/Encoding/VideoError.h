#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Failures of the video writer.
class VideoError : public std::runtime_error {
 public:
  enum class Code {
    /// This libavcodec was built without the H.264 or AAC encoder.
    encoderUnavailable,
    /// A quality or speed setting the encoder does not accept.
    invalidSetting,
    /// libav failed while the file was being written; nothing was saved.
    writerStopped,
    /// A frame of another size than the first.
    frameSizeChanged,
  };

  static VideoError encoderUnavailable(const std::string& encoder);
  static VideoError invalidSetting(const std::string& setting);
  /// "Failed to encode the video. The video writer stopped before the file was finished, so
  /// nothing was saved. (<step>: <libav's reason>)"
  static VideoError writerStopped(const std::string& step, int averror);
  static VideoError frameSizeChanged(int width, int height, int firstWidth, int firstHeight);

  Code code() const noexcept { return code_; }

 private:
  VideoError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
