#pragma once

#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "BrimbleCore/Encoding/AudioTrack.h"
#include "BrimbleCore/Support/Clock.h"

struct pa_simple;

namespace brimble {

struct PaSimpleCloser {
  void operator()(pa_simple* stream) const noexcept;  // pa_simple_free
};
using PaSimplePtr = std::unique_ptr<pa_simple, PaSimpleCloser>;

/// Where sound is recorded from.
struct AudioSource {
  /// A PulseAudio server address ("unix:/run/user/1000/pulse/native"); empty for the session's
  /// own (PULSE_SERVER, else the default).
  std::string server;
  /// A source name; empty for the monitor of the default output, i.e. what the desktop plays.
  std::string source;
};

/// Records sound through libpulse (PulseAudio, or PipeWire's PulseAudio service) into a
/// temporary file of 48 kHz stereo float samples, on a thread of its own, timed on the same
/// clock as the frames. Owns the file: it is deleted with the recorder. Start and stop from one
/// thread.
class AudioRecorder {
 public:
  static constexpr int kSampleRate = 48000;
  static constexpr int kChannels = 2;

  /// Connects and starts recording. Throws AudioError (noSoundServer, sourceUnavailable) and
  /// std::system_error when the temporary file cannot be made.
  AudioRecorder(const AudioSource& from, const Clock& clock);
  AudioRecorder(const AudioRecorder&) = delete;
  AudioRecorder& operator=(const AudioRecorder&) = delete;
  /// Stops recording and deletes the file.
  ~AudioRecorder();

  /// Stops recording. The track starts where its first sample was heard, measured from
  /// `videoStart`, when the first frame was taken. Throws AudioError::recordingFailed when the
  /// recording broke off.
  AudioTrack stop(Clock::TimePoint videoStart);

 private:
  void record(const std::stop_token& stop);

  const Clock& clock_;
  std::filesystem::path file_;
  std::ofstream output_;
  PaSimplePtr stream_;
  // Written by the recording thread, read after it has been joined.
  std::optional<Clock::TimePoint> firstSample_;
  std::exception_ptr failure_;
  std::jthread thread_;
};

}  // namespace brimble
