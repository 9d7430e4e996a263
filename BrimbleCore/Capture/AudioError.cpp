#include "BrimbleCore/Capture/AudioError.h"

namespace brimble {

AudioError AudioError::noSoundServer(const std::string& reason) {
  return {Code::noSoundServer,
          "No sound server to record from (" + reason +
              "): audio needs PulseAudio or PipeWire's PulseAudio service in this session, or "
              "--private-sound-server for a private one"};
}

AudioError AudioError::sourceUnavailable(const std::string& source, const std::string& reason) {
  return {Code::sourceUnavailable, "Cannot record sound from " + source + " (" + reason +
                                       "); `pactl list short sources` lists the sources"};
}

AudioError AudioError::recordingFailed(const std::string& reason) {
  return {Code::recordingFailed, "Sound recording stopped: " + reason};
}

AudioError AudioError::privateServerFailed(const std::string& reason) {
  return {Code::privateServerFailed, "Cannot start a private sound server: " + reason};
}

}  // namespace brimble
