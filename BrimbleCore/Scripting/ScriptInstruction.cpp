#include "BrimbleCore/Scripting/ScriptInstruction.h"

#include <array>

namespace brimble {
namespace {

// In the order of the ScriptInstruction alternatives.
constexpr std::array<std::string_view, 38> kCommandNames = {
    "set",
    "open",
    "focus",
    "capture-window",
    "resize",
    "clear",
    "record",
    "stop",
    "remain",
    "render",
    "type",
    "click",
    "click",
    "tap",
    "move",
    "cursor",
    "scroll",
    "key",
    "wait",
    "wait-for-idle",
    "run",
    "spotlight",
    "spotlight-shift",
    "clear-fx",
    "intro",
    "outro",
    "dismiss-dialog",
    "click-button-in-dialog",
    "set-background",
    "target",
    "fill",
    "move-to",
    "wait-for",
    "browser",
    "navigate",
    "highlight",
    "zoom",
    "zoom-out",
};
static_assert(kCommandNames.size() == std::variant_size_v<ScriptInstruction>);

}  // namespace

std::string_view commandName(const ScriptInstruction& instruction) {
  return kCommandNames[instruction.index()];
}

}  // namespace brimble
