#include "BrimbleCore/Automation/GlobalHotkey.h"

#include <fmt/format.h>

namespace brimble {

GlobalHotkeyError GlobalHotkeyError::invalidShortcut(const std::string& shortcut) {
  return {Code::invalidShortcut,
          fmt::format("\"{}\" is not a shortcut: give modifiers and one key, such as Ctrl+Shift+G.",
                      shortcut)};
}

GlobalHotkeyError GlobalHotkeyError::alreadyTaken(const std::string& shortcut) {
  return {Code::alreadyTaken,
          fmt::format("The shortcut {} is already used by another program. Choose another one in "
                      "Brimble's settings, or free it in that program.",
                      shortcut)};
}

GlobalHotkeyError GlobalHotkeyError::unavailable(const std::string& reason) {
  return {Code::unavailable, reason};
}

KeyChord parseShortcut(const std::string& shortcut) {
  const KeyChord chord = InputSimulator::parseKeyChord(shortcut);
  if (chord.key.empty() || !chord.unknownModifiers.empty() ||
      chord.key.find(' ') != std::string::npos) {
    throw GlobalHotkeyError::invalidShortcut(shortcut);
  }
  return chord;
}

}  // namespace brimble
