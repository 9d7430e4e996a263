#pragma once

#include <string>

#include "BrimbleCore/Automation/GlobalHotkey.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"

namespace brimble::x11 {

/// A global shortcut through XGrabKey on the root window, on a connection of its own. The grab
/// is taken for all four combinations of NumLock and CapsLock, which X counts as modifiers, so
/// the shortcut works whichever of them is on. One thread at a time.
class X11GlobalHotkey final : public GlobalHotkey {
 public:
  /// Grabs `shortcut` (see parseKeyChord) on `displayName` (":0"). Throws GlobalHotkeyError:
  /// invalidShortcut (also for a key the keyboard does not have), alreadyTaken when another
  /// client holds it (X answers BadAccess), unavailable when the display cannot be reached.
  X11GlobalHotkey(const std::string& shortcut, const std::string& displayName);
  X11GlobalHotkey(const X11GlobalHotkey&) = delete;
  X11GlobalHotkey& operator=(const X11GlobalHotkey&) = delete;
  /// Releases the grabs.
  ~X11GlobalHotkey() override;

  int eventFd() const override;
  int takePresses() override;

 private:
  /// The modifier combinations grabbed: the chord's own with each lock combination.
  std::vector<unsigned> grabMasks() const;

  XDisplayPtr display_;
  unsigned long root_ = 0;
  int keycode_ = 0;
  unsigned modifiers_ = 0;
  unsigned numLockMask_ = 0;
  bool held_ = false;
};

}  // namespace brimble::x11
