#pragma once

#include <memory>

#include "BrimbleCore/Platform/Desktop.h"

namespace brimble::cli {

/// The desktop a command that acts on the screen works on: Brimble's own display with
/// `headless`, else the user's session, never Brimble's display in its place. Open it on the
/// main thread before the command starts other threads. Throws std::runtime_error saying what is
/// missing when there is no session, and when an embedded display cannot start.
std::unique_ptr<Desktop> commandDesktop(bool headless);

/// A demo script's desktop: Brimble's own display with `headless`, on a Wayland desktop and
/// where there is no session; the user's X11 display otherwise.
std::unique_ptr<Desktop> scriptDesktop(bool headless);

/// The user's desktop, for one-shot commands whose effect must outlive them (a window opened,
/// text typed): an embedded display would vanish with the command. Throws std::runtime_error
/// saying how to start a display that stays when the user has none.
std::unique_ptr<Desktop> lastingDesktop();

}  // namespace brimble::cli
