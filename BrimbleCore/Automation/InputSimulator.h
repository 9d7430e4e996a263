#pragma once

#include <functional>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// The mouse buttons a click can use.
enum class MouseButton { left, right };

/// The wheel directions, in this order.
enum class ScrollDirection { up, down, left, right };

/// A key with the modifiers to hold, as "cmd+shift+z" names it.
struct KeyChord {
  std::string key;  // lower-case key name
  ModifierFlags modifiers;
  std::vector<std::string> unknownModifiers;  // lower-case words that name no modifier
  bool operator==(const KeyChord&) const = default;
};

/// Synthesises keyboard, mouse and wheel input so that scripts and assistants can drive the
/// desktop while it is recorded, timed to look human on a recording: jittered typing, a short
/// hold between down and up, eased pointer paths. Events go through an InputBackend; every wait
/// goes through the Clock. Both are borrowed and must outlive it. One thread at a time.
class InputSimulator {
 public:
  InputSimulator(InputBackend& backend, Clock& clock);

  /// The platform-neutral virtual key code of a lower-case key name ("enter", "f5", "c"); no
  /// value for an unknown name.
  static std::optional<int> keyCodeForName(std::string_view name);
  /// The modifier a lower-case modifier word stands for. "cmd" and "command" mean Control, the
  /// shortcut modifier on Linux, so copy and paste keep their meaning.
  static std::optional<Modifier> modifierForName(std::string_view name);
  /// Splits "ctrl+alt+delete" at "+" into modifiers and the final key name, lower-cased. A word
  /// before the key that names no modifier is kept aside in `unknownModifiers` and otherwise
  /// ignored, as scripts and assistants expect; the key name is not checked.
  static KeyChord parseKeyChord(std::string_view text);
  /// For callers that refuse what `parseKeyChord` would let pass: throws InputError
  /// (unknownModifier, unknownKey) naming the first word of `text` that is neither a modifier
  /// nor, last, a key, since a shortcut sent without one of its modifiers does something else.
  static void requireKnownWords(const KeyChord& chord, std::string_view text);

  /// Types UTF-8 `text` one character at a time, waiting `charDelay` seconds ±30 % after each.
  /// Characters the keyboard map lacks are typed the platform's other way where it has one
  /// (`InputBackend::typeWithoutKey`), else through spare keys bound to them, which get their
  /// old meaning back 100 ms after the text.
  /// A line feed presses Return and a tab Tab; other control characters are skipped.
  /// `isCancelled` is asked before each character; once it says true, typing stops with no key
  /// left down. With `pressEnter`, Return follows half a delay after the last character.
  void typeText(std::string_view text, double charDelay, bool pressEnter,
                const std::function<bool()>& isCancelled = {});

  /// Presses and releases `button` at a point, held 50 ms.
  void click(int x, int y, MouseButton button);
  /// Puts the pointer at a point at once.
  void setCursorPosition(int x, int y);
  /// Moves the pointer from where it is to a point over `duration` seconds, 60 steps a second,
  /// eased in and out (cubic). A duration of 0 or less is a warp.
  void smoothMove(int toX, int toY, double duration);
  /// Presses one key with modifiers held, for 8 ms. False, and no event, for an unknown name.
  bool pressKey(std::string_view name, ModifierFlags modifiers);
  /// One wheel click per tick.
  void scroll(ScrollDirection direction, int ticks);
  /// Returns once no modifier and none of the letter keys, Return or Space is held, so that a
  /// user's hot-key modifiers cannot turn typed text into shortcuts.
  void waitForKeyboardIdle();

  ScreenPoint cursorPosition();
  /// Whether synthetic input reaches the display (on X11: the XTest extension is there).
  bool available() const { return backend_.available(); }
  /// Why not, in the platform's words; asked only when `available` is false.
  std::string unavailableReason() const { return backend_.unavailableReason(); }

  /// Where an eased move is at `t` (0 to 1) of its time: ease-in-out cubic.
  static double easeInOutCubic(double t) noexcept;

 private:
  bool checkAvailable();
  /// True when it bound a spare key.
  bool typeCharacter(char32_t character);
  void pressVirtualKey(int virtualKeyCode, ModifierFlags modifiers);
  void holdAndRelease(KeyNumber key);
  void sleepSeconds(double seconds);

  InputBackend& backend_;
  Clock& clock_;
  std::mt19937 random_;
};

}  // namespace brimble
