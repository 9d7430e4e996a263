#pragma once

#include <chrono>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble::testing {

/// An input backend that records what it is asked to do as readable lines ("key a down",
/// "move 10,20", "bind spare U+00E9", "without key U+2713"), each also stamped with the clock's
/// time in milliseconds. Its keyboard map has ASCII letters, digits, space and a few punctuation
/// marks ('A' is 'a' with Shift, '!' is '1' with Shift); everything else needs its one spare key,
/// unless it is told to type without keys.
/// Virtual key codes name a key "vk<code>" except the few named below.
class FakeInputBackend final : public InputBackend {
 public:
  static constexpr KeyNumber kSpareKey = 3000;

  explicit FakeInputBackend(const Clock& clock) : clock_(clock), start_(clock.now()) {}

  bool available() const override { return available_; }
  std::string unavailableReason() const override { return "The fake keyboard is unplugged"; }
  void keyDown(KeyNumber key) override {
    record("key " + name(key) + " down");
    if (onKeyDown) {
      onKeyDown();
    }
  }
  void keyUp(KeyNumber key) override { record("key " + name(key) + " up"); }
  void buttonDown(int button) override { record("button " + std::to_string(button) + " down"); }
  void buttonUp(int button) override { record("button " + std::to_string(button) + " up"); }
  void moveTo(ScreenPoint point) override {
    cursor_ = point;
    record("move " + std::to_string(point.x) + "," + std::to_string(point.y));
  }
  ScreenPoint cursorPosition() override { return cursor_; }

  std::optional<KeyStroke> strokeFor(char32_t c) override {
    if ((c >= U'a' && c <= U'z') || (c >= U'0' && c <= U'9') || c == U' ' || c == U'.') {
      return KeyStroke{static_cast<KeyNumber>(c), false};
    }
    if (c >= U'A' && c <= U'Z') {
      return KeyStroke{static_cast<KeyNumber>(c - U'A' + U'a'), true};
    }
    if (c == U'!') {
      return KeyStroke{static_cast<KeyNumber>(U'1'), true};
    }
    if (bound_ == c) {
      return KeyStroke{kSpareKey, false};
    }
    return std::nullopt;
  }
  std::optional<KeyNumber> keyForVirtualCode(int code) override {
    return static_cast<KeyNumber>(1000 + code);
  }
  std::optional<KeyNumber> keyForModifier(Modifier modifier) override {
    return static_cast<KeyNumber>(2000 + static_cast<int>(modifier));
  }
  std::optional<KeyNumber> bindSpareKey(char32_t c) override {
    char code[16];
    std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(c));
    record(std::string("bind spare ") + code);
    if (!spareKeys_) {
      return std::nullopt;
    }
    bound_ = c;
    return kSpareKey;
  }
  void restoreSpareKeys() override {
    record("restore spares");
    bound_.reset();
  }
  /// Only once `setTypesWithoutKey(true)`; then every character it is offered.
  bool typeWithoutKey(char32_t c) override {
    if (!typesWithoutKey_) {
      return false;
    }
    char code[16];
    std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(c));
    record(std::string("without key ") + code);
    return true;
  }

  /// Each poll takes the next queued state; the last one stays.
  KeyboardState keyboardState() override {
    ++statePolls_;
    if (states_.size() > 1) {
      KeyboardState state = states_.front();
      states_.pop_front();
      return state;
    }
    return states_.empty() ? KeyboardState{} : states_.front();
  }

  void setAvailable(bool available) { available_ = available; }
  void setSpareKeys(bool spareKeys) { spareKeys_ = spareKeys; }
  void setTypesWithoutKey(bool typesWithoutKey) { typesWithoutKey_ = typesWithoutKey; }
  void queueKeyboardState(KeyboardState state) { states_.push_back(std::move(state)); }
  int statePolls() const { return statePolls_; }
  /// Runs after each key goes down (a test makes the display slow with it).
  std::function<void()> onKeyDown;

  const std::vector<std::string>& lines() const { return lines_; }
  /// The lines as "<ms> <line>", milliseconds of the clock since this backend was made.
  const std::vector<std::string>& timedLines() const { return timedLines_; }

  static std::string name(KeyNumber key) {
    static const std::map<KeyNumber, std::string> names = {
        {1036, "return"},  {1048, "tab"}, {1008, "c"},     {1096, "f5"},        {2000, "shift"},
        {2001, "control"}, {2002, "alt"}, {2003, "super"}, {kSpareKey, "spare"}};
    if (const auto found = names.find(key); found != names.end()) {
      return found->second;
    }
    if (key >= 1000) {
      return "vk" + std::to_string(key - 1000);
    }
    return key == ' ' ? "space" : std::string(1, static_cast<char>(key));
  }

 private:
  void record(const std::string& line) {
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock_.now() - start_);
    lines_.push_back(line);
    timedLines_.push_back(std::to_string(elapsed.count()) + " " + line);
  }

  const Clock& clock_;
  const Clock::TimePoint start_;
  bool available_ = true;
  bool spareKeys_ = true;
  bool typesWithoutKey_ = false;
  std::optional<char32_t> bound_;  // one spare key is enough here
  ScreenPoint cursor_;
  std::deque<KeyboardState> states_;
  int statePolls_ = 0;
  std::vector<std::string> lines_;
  std::vector<std::string> timedLines_;
};

}  // namespace brimble::testing
