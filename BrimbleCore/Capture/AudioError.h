#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Failures of sound recording.
class AudioError : public std::runtime_error {
 public:
  enum class Code {
    /// No PulseAudio (or PipeWire PulseAudio service) answered.
    noSoundServer,
    /// The server answered but has no such source, or refused to record from it.
    sourceUnavailable,
    /// Recording stopped part-way (the server went away, the disk filled up).
    recordingFailed,
    /// A private sound server could not be started.
    privateServerFailed,
  };

  static AudioError noSoundServer(const std::string& reason);
  static AudioError sourceUnavailable(const std::string& source, const std::string& reason);
  static AudioError recordingFailed(const std::string& reason);
  static AudioError privateServerFailed(const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  AudioError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
