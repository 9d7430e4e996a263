#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace brimble {

/// The modifier keys a key press can hold.
enum class Modifier { shift, control, alt, super };

/// A set of modifiers. A plain value.
class ModifierFlags {
 public:
  ModifierFlags() = default;
  ModifierFlags(std::initializer_list<Modifier> modifiers) {
    for (const Modifier modifier : modifiers) {
      insert(modifier);
    }
  }

  void insert(Modifier modifier) noexcept { bits_ |= bit(modifier); }
  bool contains(Modifier modifier) const noexcept { return (bits_ & bit(modifier)) != 0; }
  bool empty() const noexcept { return bits_ == 0; }
  bool operator==(const ModifierFlags&) const = default;

 private:
  static unsigned bit(Modifier modifier) noexcept { return 1U << static_cast<unsigned>(modifier); }

  unsigned bits_ = 0;
};

/// A key of the platform's keyboard: an X keycode on X11, what the keyboard map translates; an
/// X keysym on Wayland, where the compositor finds the key for it in its own map.
using KeyNumber = unsigned;

/// How the current keyboard map produces a character: this key, with Shift held or not.
struct KeyStroke {
  KeyNumber key = 0;
  bool shift = false;
  bool operator==(const KeyStroke&) const = default;
};

/// A point in screen pixels, from the top-left corner of the whole screen.
struct ScreenPoint {
  int x = 0;
  int y = 0;
  bool operator==(const ScreenPoint&) const = default;
};

/// What the keyboard holds down right now.
struct KeyboardState {
  ModifierFlags modifiers;
  std::vector<KeyNumber> keysDown;
};

/// The few primitives input simulation needs from a platform: keys and buttons down and up,
/// pointer moves, and questions about the keyboard map. Timing, key names, easing and typing live
/// above it in InputSimulator. Each event reaches the display server before the call returns.
/// One thread at a time.
class InputBackend {
 public:
  InputBackend() = default;
  InputBackend(const InputBackend&) = delete;
  InputBackend& operator=(const InputBackend&) = delete;
  InputBackend(InputBackend&&) = delete;
  InputBackend& operator=(InputBackend&&) = delete;
  virtual ~InputBackend() = default;

  /// Whether events can be sent at all (on X11: a connection with the XTest extension).
  virtual bool available() const = 0;
  /// Why no events can be sent, in the platform's words ("Failed to open the X display's XTest
  /// extension for input"); asked only when `available` is false.
  virtual std::string unavailableReason() const = 0;

  virtual void keyDown(KeyNumber key) = 0;
  virtual void keyUp(KeyNumber key) = 0;
  /// Buttons are numbered as X numbers them: 1 left, 2 middle, 3 right, 4 and 5 wheel up and
  /// down, 6 and 7 wheel left and right.
  virtual void buttonDown(int button) = 0;
  virtual void buttonUp(int button) = 0;
  virtual void moveTo(ScreenPoint point) = 0;
  virtual ScreenPoint cursorPosition() = 0;

  /// The key that types `character` with the current map, without a third level (AltGr); no
  /// value when the map has none.
  virtual std::optional<KeyStroke> strokeFor(char32_t character) = 0;
  /// The key behind one of the platform-neutral virtual key codes of
  /// InputSimulator::keyCodeForName; no value when the map lacks it.
  virtual std::optional<KeyNumber> keyForVirtualCode(int virtualKeyCode) = 0;
  /// The key that sets `modifier`; no value when the map has none.
  virtual std::optional<KeyNumber> keyForModifier(Modifier modifier) = 0;
  /// Binds an unused key to `character`, with or without Shift, until `restoreSpareKeys`;
  /// `strokeFor` finds it from then on. Spare keys are used in turn, so a program that reads a
  /// keystroke late still finds its key bound as it was. Other programs apply a new map only once
  /// they have read the change, so callers let them settle before pressing the key. No value
  /// when every key is in use.
  virtual std::optional<KeyNumber> bindSpareKey(char32_t character) = 0;
  /// Gives every key `bindSpareKey` bound its previous meaning back.
  virtual void restoreSpareKeys() = 0;
  /// Why a character that neither `typeWithoutKey` nor a spare key could type was left out, for
  /// the log line that says so.
  virtual std::string untypableReason() const {
    return "every spare key of the keyboard map is in use";
  }
  /// Types `character`, which no key of the map types, in a way other than keys where the
  /// platform has one (on Wayland, whose keyboard map is the compositor's to change: the
  /// focused text field's editable text, or the toolkit's own Unicode entry). It lands after
  /// the keys sent before it. False when there is none; the caller binds a spare key then.
  /// X11 has none of its own: it binds spare keys.
  virtual bool typeWithoutKey(char32_t character) {
    static_cast<void>(character);
    return false;
  }

  virtual KeyboardState keyboardState() = 0;
};

}  // namespace brimble
