#pragma once

#include <memory>

#include "BrimbleCore/Platform/Desktop.h"

namespace brimble::cli {

/// The desktop a command works on: Brimble's own display with `headless`, else the user's when
/// the environment names one, else Brimble's own, started now and stopped when the desktop goes.
/// Open it on the main thread before the command starts other threads. Throws when an embedded
/// display cannot start.
std::unique_ptr<Desktop> commandDesktop(bool headless);

/// The user's desktop, for one-shot commands whose effect must outlive them (a window opened,
/// text typed): an embedded display would vanish with the command. Throws std::runtime_error
/// saying how to start a display that stays when the user has none.
std::unique_ptr<Desktop> lastingDesktop();

}  // namespace brimble::cli
