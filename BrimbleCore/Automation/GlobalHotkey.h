#pragma once

#include <stdexcept>
#include <string>

#include "BrimbleCore/Automation/InputSimulator.h"

namespace brimble {

class GlobalHotkeyError : public std::runtime_error {
 public:
  enum class Code { invalidShortcut, alreadyTaken, unavailable };

  static GlobalHotkeyError invalidShortcut(const std::string& shortcut);
  /// Another program holds the shortcut.
  static GlobalHotkeyError alreadyTaken(const std::string& shortcut);
  /// The desktop cannot take global shortcuts now; `reason` says why, in the platform's words.
  static GlobalHotkeyError unavailable(const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  GlobalHotkeyError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// Parses a shortcut as Qt writes it ("Ctrl+Shift+G", "Meta+F9") with the key-chord rules of
/// InputSimulator, refusing words that name no modifier and a missing key. Throws
/// GlobalHotkeyError::invalidShortcut.
KeyChord parseShortcut(const std::string& shortcut);

/// The XKB keysym name of a key as parseShortcut names it ("g", "F9", "Return", "slash"): how
/// desktops spell the key of a shortcut they bind (the portal's triggers, GNOME's accelerators).
std::string keysymNameOf(const std::string& key);

/// One system-wide shortcut that reaches the application whichever window has the focus. The
/// owner watches `eventFd()` for readability (a QSocketNotifier in the app) and then calls
/// `takePresses()`. One thread at a time.
class GlobalHotkey {
 public:
  virtual ~GlobalHotkey() = default;

  /// A file descriptor that becomes readable when presses may be waiting.
  virtual int eventFd() const = 0;
  /// Reads what arrived and returns how many times the shortcut was pressed (a held key's
  /// repeats do not count).
  virtual int takePresses() = 0;
};

}  // namespace brimble
