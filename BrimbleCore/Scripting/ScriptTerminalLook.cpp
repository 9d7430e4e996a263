#include "BrimbleCore/Scripting/ScriptTerminalLook.h"

#include "BrimbleCore/Scripting/ScriptSettings.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {

TerminalLook scriptTerminalLook(const ScriptContext& context) {
  TerminalLook look;
  if (const std::string* font = context.usableSetting("terminal-font")) {
    look.font = *font;
  }
  if (const std::string* size = context.usableSetting("terminal-font-size")) {
    look.fontSize = doubleFromSettingText(*size);
  }
  if (const std::string* columns = context.usableSetting("terminal-columns")) {
    look.columns = intFromSettingText(*columns);
  }
  if (const std::string* rows = context.usableSetting("terminal-rows")) {
    look.rows = intFromSettingText(*rows);
  }
  if (const std::string* theme = context.usableSetting("terminal-theme")) {
    look.theme = TerminalTheme::parse(*theme);
  }
  if (const std::string* padding = context.usableSetting("terminal-padding")) {
    look.padding = intFromSettingText(*padding);
  }
  if (const std::string* height = context.usableSetting("line-height")) {
    look.lineHeight = doubleFromSettingText(*height);
  }
  if (const std::string* blink = context.usableSetting("cursor-blink")) {
    look.cursorBlink = boolFromSettingText(*blink);
  }
  if (const std::string* title = context.usableSetting("window-title")) {
    look.title = *title;
  }
  if (const std::string* shell = context.usableSetting("terminal-shell")) {
    look.shell = *shell;
  }
  if (const std::string* prompt = context.usableSetting("terminal-prompt")) {
    look.prompt = *prompt;
  }
  return look;
}

std::optional<TerminalPixelSize> scriptTerminalPixelSize(const ScriptContext& context) {
  TerminalPixelSize size;
  if (const std::string* width = context.usableSetting("terminal-width")) {
    size.width = intFromSettingText(*width);
  }
  if (const std::string* height = context.usableSetting("terminal-height")) {
    size.height = intFromSettingText(*height);
  }
  if (!size.width && !size.height) {
    return std::nullopt;
  }
  return size;
}

bool namesTerminal(std::string_view app) {
  const std::string name = lowercased(trimmed(app));
  return name == "terminal" || name == "xterm" || name == "uxterm";
}

}  // namespace brimble
