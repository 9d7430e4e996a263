#include "Brimble/Recording/RecordingPhase.h"

namespace brimble {

std::string_view captureModeName(CaptureMode mode) {
  switch (mode) {
    case CaptureMode::region:
      return "region";
    case CaptureMode::fullScreen:
      return "fullScreen";
    case CaptureMode::window:
      return "window";
  }
  return "region";
}

std::string_view phaseName(RecordingPhase phase) {
  switch (phase) {
    case RecordingPhase::idle:
      return "idle";
    case RecordingPhase::selecting:
      return "selecting";
    case RecordingPhase::ready:
      return "ready";
    case RecordingPhase::countdown:
      return "countdown";
    case RecordingPhase::recording:
      return "recording";
    case RecordingPhase::paused:
      return "paused";
    case RecordingPhase::encoding:
      return "encoding";
  }
  return "idle";
}

}  // namespace brimble
