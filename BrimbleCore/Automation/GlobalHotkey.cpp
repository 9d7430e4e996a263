#include "BrimbleCore/Automation/GlobalHotkey.h"

#include <cctype>
#include <map>

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

std::string keysymNameOf(const std::string& key) {
  // Qt's and scripts' names for keys whose keysym is spelled differently.
  static const std::map<std::string, std::string> kAliases = {
      {"esc", "Escape"},
      {"escape", "Escape"},
      {"enter", "Return"},
      {"return", "Return"},
      {"del", "Delete"},
      {"delete", "Delete"},
      {"ins", "Insert"},
      {"pgup", "Prior"},
      {"pageup", "Prior"},
      {"pgdown", "Next"},
      {"pagedown", "Next"},
      {"backspace", "BackSpace"},
      {"forwarddelete", "Delete"},
      {"+", "plus"},
      {"-", "minus"},
      {"=", "equal"},
      {",", "comma"},
      {".", "period"},
      {"/", "slash"},
      {";", "semicolon"},
      {"'", "apostrophe"},
      {"[", "bracketleft"},
      {"]", "bracketright"},
      {"\\", "backslash"},
      {"`", "grave"},
      {"space", "space"},
  };
  if (const auto alias = kAliases.find(key); alias != kAliases.end()) {
    return alias->second;
  }
  // Letters and digits are their own keysyms in lower case; named keys are capitalised ("F9",
  // "Home", "Print").
  if (key.size() == 1) {
    return key;
  }
  std::string name = key;
  name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
  return name;
}

}  // namespace brimble
