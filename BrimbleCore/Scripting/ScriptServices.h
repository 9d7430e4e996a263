#pragma once

#include <functional>
#include <memory>

#include "BrimbleCore/Automation/BrowserSession.h"
#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Capture/SegmentRecorder.h"
#include "BrimbleCore/Platform/PlatformTexts.h"
#include "BrimbleCore/Scripting/ProcessRunner.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// What a script drives, borrowed from the engine's owner, which keeps them alive while it
/// runs.
struct ScriptServices {
  /// The screen: whether it can be captured, and its picture for `wait-for-idle`.
  ScreenSource& screen;
  InputSimulator& input;
  WindowManager& windows;
  ProcessRunner& processes;
  Clock& clock;
  /// How the platform words what it cannot do (no screen to record, say).
  const PlatformTexts& texts;
  /// Makes the recorder of each segment.
  std::function<std::unique_ptr<SegmentRecorder>()> makeRecorder;
  /// Starts browser sessions for `browser chrome`; null when there is no browser to drive.
  BrowserLauncher* browsers = nullptr;
};

}  // namespace brimble
