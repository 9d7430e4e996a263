#pragma once

#include <optional>
#include <string_view>

#include "BrimbleCore/Automation/TerminalLook.h"
#include "BrimbleCore/Scripting/ScriptContext.h"

namespace brimble {

/// The look a script's settings ask of the terminals it opens: `terminal-font`,
/// `terminal-font-size`, `terminal-columns`, `terminal-rows`, `terminal-theme`,
/// `terminal-padding`, `terminal-shell`, `terminal-prompt`, `line-height`, `cursor-blink` and
/// `window-title`. A
/// value the table rules out leaves that part as the display has it.
TerminalLook scriptTerminalLook(const ScriptContext& context);

/// The pixel size `terminal-width` and `terminal-height` ask for (either alone keeps the other
/// as the terminal opens); no value when neither is set.
struct TerminalPixelSize {
  std::optional<int> width;
  std::optional<int> height;
};
std::optional<TerminalPixelSize> scriptTerminalPixelSize(const ScriptContext& context);

/// Whether `app` names a terminal ("Terminal", "xterm", "uxterm", any case).
bool namesTerminal(std::string_view app);

}  // namespace brimble
