#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace brimble {

/// Which sound server the session's PulseAudio clients reach (PulseAudio itself, or PipeWire's
/// PulseAudio service): what sound recording connects to.
struct SoundServerAnswer {
  /// The server's name and version as it gives them ("PulseAudio (on PipeWire 0.3.65) 15.0.0");
  /// no value when none answered.
  std::optional<std::string> server;
  /// Why none answered, in the library's words.
  std::string problem;
};

/// Asks the session's sound server (PULSE_SERVER, else the default) for its name, without
/// starting one, and gives up after `timeout`.
SoundServerAnswer probeSoundServer(std::chrono::milliseconds timeout);

}  // namespace brimble
