#pragma once

#include <string_view>

namespace brimble {

/// The phases of a desktop recording, in the order they are passed through; code compares them
/// by range, so the order matters.
enum class RecordingPhase { idle, selecting, ready, countdown, recording, paused, encoding };

/// What a session records.
enum class CaptureMode { region, fullScreen, window };

/// "region", "fullScreen" or "window": the capture mode as a session reports it.
std::string_view captureModeName(CaptureMode mode);

/// "idle", "selecting", ... for logs and the status item.
std::string_view phaseName(RecordingPhase phase);

}  // namespace brimble
