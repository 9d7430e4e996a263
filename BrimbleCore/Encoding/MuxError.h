#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Failures of the animation writers and their byte sinks.
class MuxError : public std::runtime_error {
 public:
  enum class Code {
    unexpectedLayout,
    unsupportedColorType,
    inconsistentCanvas,
    encoderFailed,
    noFramesAppended,
  };

  /// A single-image GIF or PNG without the expected shape, sink misuse, or a file that could not
  /// be created; `what()` is `message` itself.
  static MuxError unexpectedLayout(std::string message);
  static MuxError unsupportedColorType(int colorType);
  static MuxError inconsistentCanvas();
  static MuxError encoderFailed();
  static MuxError noFramesAppended();

  Code code() const noexcept { return code_; }
  /// The message of `unexpectedLayout`; empty for the other cases.
  const std::string& message() const noexcept { return message_; }
  /// The colour type of `unsupportedColorType`; 0 for the other cases.
  int colorType() const noexcept { return colorType_; }

  /// Same case and same payload.
  bool operator==(const MuxError& other) const noexcept {
    return code_ == other.code_ && message_ == other.message_ && colorType_ == other.colorType_;
  }

 private:
  MuxError(Code code, const std::string& description, std::string message, int colorType)
      : std::runtime_error(description),
        code_(code),
        message_(std::move(message)),
        colorType_(colorType) {}

  Code code_;
  std::string message_;
  int colorType_;
};

}  // namespace brimble
