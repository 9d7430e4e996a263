#pragma once

#include <filesystem>
#include <string>

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

/// A PulseAudio server of our own with one null output ("brimble"), for sessions without a
/// sound server (the embedded display, CI): programs told its address play into the null
/// output, and its monitor is what a recording hears. Its socket, configuration and cookie live
/// in a private temporary folder, removed with it. One thread at a time.
class PrivateSoundServer {
 public:
  /// Starts `pulseaudio` and waits until it accepts connections. Throws
  /// AudioError::privateServerFailed when it is not installed or does not come up.
  PrivateSoundServer();
  PrivateSoundServer(const PrivateSoundServer&) = delete;
  PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;
  /// Ends the server and removes its folder.
  ~PrivateSoundServer();

  /// The address for libpulse and for PULSE_SERVER: "unix:<folder>/native".
  const std::string& address() const noexcept { return address_; }

 private:
  void stopServer() noexcept;

  std::filesystem::path folder_;
  std::string address_;
  Subprocess server_;
};

}  // namespace brimble
