#pragma once

#include <memory>

#include "BrimbleCore/Platform/Desktop.h"
#include "BrimbleCore/Platform/EmbeddedDisplay.h"
#include "BrimbleCore/Platform/PlatformTexts.h"

/// The one place that knows which platform Brimble drives and which session it is (X11 today:
/// the user's display, or Brimble's own). It alone reads the session's environment ($DISPLAY)
/// or looks for a running session; commands and the desktop app get a Desktop from here and
/// pass it down, so another backend changes this file and adds its own folder beside
/// Platform/X11. Every function may be called from any thread; start and destroy an embedded
/// display (and a Desktop that holds one) on the main thread.
namespace brimble::platform {

/// Which session a desktop is opened on.
enum class DesktopChoice {
  /// The user's session when the environment names one, else Brimble's own display: commands
  /// that start, record and end within themselves (`run`, `record`, `still`, `windows`).
  userElseEmbedded,
  /// Brimble's own display, whatever the environment says (`--headless`).
  embedded,
  /// The user's session, or DesktopError::noUserSession: commands whose effect must outlive
  /// them (`window`, `input`) and the desktop app.
  user,
  /// The user's session when the environment names one, else the user's running session found
  /// on this machine (hosts start MCP servers with a bare environment), else Brimble's own.
  userFoundElseEmbedded,
};

/// Opens the desktop. Throws DesktopError::noUserSession, and what starting an embedded display
/// throws (a std::runtime_error that says why).
std::unique_ptr<Desktop> openDesktop(DesktopChoice choice);

/// How this platform words what it cannot do; known before any desktop is opened.
const PlatformTexts& texts();

/// Starts Brimble's own display, for `brimble display start`. Throws as openDesktop does.
std::unique_ptr<EmbeddedDisplay> startEmbeddedDisplay();

}  // namespace brimble::platform
