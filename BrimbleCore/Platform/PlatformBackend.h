#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "BrimbleCore/Platform/Desktop.h"
#include "BrimbleCore/Platform/EmbeddedDisplay.h"
#include "BrimbleCore/Platform/PlatformTexts.h"

/// The one place that knows which platforms Brimble drives and which session it is: a Wayland
/// desktop through the desktop portal and PipeWire, an X11 display, or Brimble's own display.
/// It alone reads the session's environment ($WAYLAND_DISPLAY, $XDG_SESSION_TYPE, $DISPLAY) or
/// looks for a running session; commands and the desktop app get a Desktop from here and pass it
/// down, so another backend changes this file and adds its own folder beside Platform/X11 and
/// Platform/Wayland. Every function may be called from any thread; start and destroy an embedded
/// display (and a Desktop that holds one) on the main thread.
namespace brimble::platform {

/// Which session a desktop is opened on.
enum class DesktopChoice {
  /// The user's session (Wayland where the environment names one, else X11), or
  /// DesktopError::noUserSession: everything that acts on the user's own screen (`record`,
  /// `still`, `windows`, `window`, `input`, `inspect`, the desktop app). Never Brimble's own
  /// display in its place.
  user,
  /// Brimble's own display, whatever the environment says (`--headless`).
  embedded,
  /// A demo script's: the user's X11 display when that is the session, else Brimble's own. On a
  /// Wayland desktop every run would ask to share the screen, and what it recorded would depend
  /// on what else was open; demos stay deterministic.
  script,
  /// The user's session when the environment names one, else the user's running session found
  /// on this machine (hosts start MCP servers with a bare environment), else Brimble's own.
  userFoundElseEmbedded,
};

/// Opens the desktop. Throws DesktopError::noUserSession, and what starting an embedded display
/// throws (a std::runtime_error that says why).
std::unique_ptr<Desktop> openDesktop(DesktopChoice choice);

/// How the platform of the session the environment names words what it cannot do; known before
/// any desktop is opened.
const PlatformTexts& texts();

/// The session DesktopChoice::user would open, found without connecting to it; no value where
/// the environment names none (`texts().sessionMissing` says what is missing then).
std::optional<DesktopSession> userSession();

/// Where the Wayland screen's restore token is kept between runs: its presence means the
/// desktop's sharing dialog was answered once and will not be shown again.
std::filesystem::path screenCastTokenFile();

/// Starts Brimble's own display, for `brimble display start`. Throws as openDesktop does.
std::unique_ptr<EmbeddedDisplay> startEmbeddedDisplay();

}  // namespace brimble::platform
