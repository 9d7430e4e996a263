#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"

namespace brimble::x11 {

/// Input through the XTest extension, on a connection of its own. Virtual key codes become the
/// X keysyms of the same keys; a character the keyboard map lacks is bound to one of up to 16
/// unused keycodes, taken in turn. Every event is synchronised with the server before a call
/// returns, so a caller that then asks another connection what happened sees it. When the
/// server goes away, every call from then on throws XDisplayError::connectionLost. One thread
/// at a time.
class X11InputBackend final : public InputBackend {
 public:
  /// Connects to `displayName`. Never throws: without a reachable display or
  /// without XTest it is simply not available.
  explicit X11InputBackend(const std::string& displayName);
  X11InputBackend(const X11InputBackend&) = delete;
  X11InputBackend& operator=(const X11InputBackend&) = delete;
  X11InputBackend(X11InputBackend&&) = delete;
  X11InputBackend& operator=(X11InputBackend&&) = delete;
  /// Releases keys and buttons it still holds and gives the spare key its old meaning back.
  ~X11InputBackend() override;

  bool available() const override { return available_; }
  std::string unavailableReason() const override {
    return "Failed to open the X display's XTest extension for input";
  }
  void keyDown(KeyNumber key) override;
  void keyUp(KeyNumber key) override;
  void buttonDown(int button) override;
  void buttonUp(int button) override;
  void moveTo(ScreenPoint point) override;
  ScreenPoint cursorPosition() override;
  std::optional<KeyStroke> strokeFor(char32_t character) override;
  std::optional<KeyNumber> keyForVirtualCode(int virtualKeyCode) override;
  std::optional<KeyNumber> keyForModifier(Modifier modifier) override;
  std::optional<KeyNumber> bindSpareKey(char32_t character) override;
  void restoreSpareKeys() override;
  KeyboardState keyboardState() override;

 private:
  void sync();

  XDisplayPtr display_;
  bool available_ = false;
  struct SpareKey {
    KeyNumber key = 0;
    std::vector<unsigned long> original;  // its keysyms before we bound it
  };
  std::vector<SpareKey> spareKeys_;  // in the order they were bound, oldest first
  std::vector<KeyNumber> keysDown_;
  std::vector<int> buttonsDown_;
};

}  // namespace brimble::x11
