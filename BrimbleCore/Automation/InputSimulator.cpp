#include "BrimbleCore/Automation/InputSimulator.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "BrimbleCore/Automation/InputError.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

constexpr double kKeyHold = 0.008;
constexpr double kClickHold = 0.050;
constexpr double kKeymapSettle = 0.010;
constexpr double kRestoreGrace = 0.100;
constexpr double kScrollPause = 0.020;
constexpr double kIdlePoll = 0.020;
constexpr double kMoveStepsPerSecond = 60;
constexpr int kReturnKey = 36;
constexpr int kTabKey = 48;

// The keys a held hot key is made of: the letters, Return and Space.
constexpr std::array<int, 28> kIdleKeys = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  11, 12, 13, 14,
                                           15, 16, 17, 31, 32, 34, 35, 36, 37, 38, 40, 45, 46, 49};

Clock::Duration secondsToDuration(double seconds) {
  return std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(seconds));
}

int buttonNumber(MouseButton button) {
  return button == MouseButton::left ? 1 : 3;
}

int wheelButton(ScrollDirection direction) {
  switch (direction) {
    case ScrollDirection::up:
      return 4;
    case ScrollDirection::down:
      return 5;
    case ScrollDirection::left:
      return 6;
    case ScrollDirection::right:
      return 7;
  }
  return 5;
}

}  // namespace

InputSimulator::InputSimulator(InputBackend& backend, Clock& clock)
    : backend_(backend), clock_(clock), random_(std::random_device{}()) {}

std::optional<int> InputSimulator::keyCodeForName(std::string_view name) {
  static const std::vector<std::pair<std::string_view, int>> table = {
      {"enter", 36},   {"return", 36}, {"tab", 48},  {"space", 49},     {"delete", 51},
      {"escape", 53},  {"esc", 53},    {"up", 126},  {"down", 125},     {"left", 123},
      {"right", 124},  {"home", 115},  {"end", 119}, {"pageup", 116},   {"pagedown", 121},
      {"f1", 122},     {"f2", 120},    {"f3", 99},   {"f4", 118},       {"f5", 96},
      {"f6", 97},      {"f7", 98},     {"f8", 100},  {"f9", 101},       {"f10", 109},
      {"f11", 103},    {"f12", 111},   {"a", 0},     {"b", 11},         {"c", 8},
      {"d", 2},        {"e", 14},      {"f", 3},     {"g", 5},          {"h", 4},
      {"i", 34},       {"j", 38},      {"k", 40},    {"l", 37},         {"m", 46},
      {"n", 45},       {"o", 31},      {"p", 35},    {"q", 12},         {"r", 15},
      {"s", 1},        {"t", 17},      {"u", 32},    {"v", 9},          {"w", 13},
      {"x", 7},        {"y", 16},      {"z", 6},     {"backspace", 51}, {"forwarddelete", 117},
      {"insert", 114},
  };
  for (const auto& [entry, code] : table) {
    if (entry == name) {
      return code;
    }
  }
  return std::nullopt;
}

std::optional<Modifier> InputSimulator::modifierForName(std::string_view name) {
  if (name == "cmd" || name == "command" || name == "ctrl" || name == "control") {
    return Modifier::control;
  }
  if (name == "shift") {
    return Modifier::shift;
  }
  if (name == "alt" || name == "opt" || name == "option") {
    return Modifier::alt;
  }
  if (name == "super" || name == "meta" || name == "win") {
    return Modifier::super;
  }
  return std::nullopt;
}

KeyChord InputSimulator::parseKeyChord(std::string_view text) {
  const std::string lower = lowercased(text);
  KeyChord chord;
  std::size_t start = 0;
  while (true) {
    const std::size_t plus = lower.find('+', start);
    if (plus == std::string::npos) {
      chord.key = lower.substr(start);
      return chord;
    }
    std::string word = lower.substr(start, plus - start);
    if (const auto modifier = modifierForName(word)) {
      chord.modifiers.insert(*modifier);
    } else {
      chord.unknownModifiers.push_back(std::move(word));
    }
    start = plus + 1;
  }
}

void InputSimulator::requireKnownWords(const KeyChord& chord, std::string_view text) {
  if (!chord.unknownModifiers.empty()) {
    throw InputError::unknownModifier(chord.unknownModifiers.front(), std::string(text));
  }
  if (!keyCodeForName(chord.key)) {
    throw InputError::unknownKey(chord.key, std::string(text));
  }
}

double InputSimulator::easeInOutCubic(double t) noexcept {
  if (t < 0.5) {
    return 4 * t * t * t;
  }
  const double rest = 2 - 2 * t;
  return 1 - rest * rest * rest / 2;
}

bool InputSimulator::checkAvailable() {
  if (backend_.available()) {
    return true;
  }
  logLine("BrimbleCore: " + backend_.unavailableReason() + " — input simulation unavailable");
  return false;
}

void InputSimulator::sleepSeconds(double seconds) {
  clock_.sleepFor(secondsToDuration(std::max(seconds, 0.0)));
}

void InputSimulator::holdAndRelease(KeyNumber key) {
  backend_.keyDown(key);
  sleepSeconds(kKeyHold);
  backend_.keyUp(key);
}

void InputSimulator::pressVirtualKey(int virtualKeyCode, ModifierFlags modifiers) {
  const auto key = backend_.keyForVirtualCode(virtualKeyCode);
  if (!key) {
    logLine("BrimbleCore: No key on this keyboard for virtual key code " +
            std::to_string(virtualKeyCode));
    return;
  }
  std::vector<KeyNumber> held;
  for (const Modifier modifier :
       {Modifier::control, Modifier::alt, Modifier::shift, Modifier::super}) {
    if (modifiers.contains(modifier)) {
      if (const auto modifierKey = backend_.keyForModifier(modifier)) {
        backend_.keyDown(*modifierKey);
        held.push_back(*modifierKey);
      }
    }
  }
  holdAndRelease(*key);
  for (auto it = held.rbegin(); it != held.rend(); ++it) {
    backend_.keyUp(*it);
  }
}

bool InputSimulator::typeCharacter(char32_t character) {
  if (character == U'\n') {
    pressVirtualKey(kReturnKey, {});
    return false;
  }
  if (character == U'\t') {
    pressVirtualKey(kTabKey, {});
    return false;
  }
  if (character < 0x20 || character == 0x7F) {
    return false;
  }
  if (const auto stroke = backend_.strokeFor(character)) {
    const auto shift = stroke->shift ? backend_.keyForModifier(Modifier::shift) : std::nullopt;
    if (shift) {
      backend_.keyDown(*shift);
    }
    holdAndRelease(stroke->key);
    if (shift) {
      backend_.keyUp(*shift);
    }
    return false;
  }
  if (backend_.typeWithoutKey(character)) {
    return false;
  }
  const auto spare = backend_.bindSpareKey(character);
  if (!spare) {
    char code[16];
    std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(character));
    logLine(std::string("BrimbleCore: Cannot type ") + code + ": " + backend_.untypableReason());
    return false;
  }
  // Programs apply a new keyboard map once they have read the change notice; a key pressed
  // before that types what the key meant before (measured: 2 lines in 10 garbled).
  sleepSeconds(kKeymapSettle);
  holdAndRelease(*spare);
  return true;
}

void InputSimulator::typeText(std::string_view text, double charDelay, bool pressEnter,
                              const std::function<bool()>& isCancelled) {
  if (!checkAvailable()) {
    return;
  }
  const auto cancelled = [&] { return isCancelled && isCancelled(); };
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  bool boundSpareKeys = false;
  // Keys fall on a steady beat of the delay, counted from when the first went in, so the hold, the
  // round trips to the display and the sleeps' overshoot do not slow the pace asked for. Each
  // falls up to 15 % either side of its beat, so the caret does not tick like a metronome, yet a
  // long text keeps the pace exactly and neighbours are never nearer than 70 % of the delay. A
  // stall longer than a delay is not made up in a burst: the beat starts again.
  const Clock::Duration behindAtMost = secondsToDuration(std::max(charDelay, 0.0));
  Clock::TimePoint beat = clock_.now();
  for (const char32_t character : decodeUTF8(text)) {
    if (cancelled()) {
      break;
    }
    boundSpareKeys = typeCharacter(character) || boundSpareKeys;
    beat += secondsToDuration(charDelay);
    Clock::TimePoint due = beat + secondsToDuration(charDelay * 0.3 * (unit(random_) - 0.5));
    const Clock::TimePoint now = clock_.now();
    if (now - due > behindAtMost) {
      beat = now;
      due = now;
    }
    clock_.sleepUntil(due);
  }
  if (pressEnter && !cancelled()) {
    sleepSeconds(charDelay / 2);
    pressVirtualKey(kReturnKey, {});
  }
  if (boundSpareKeys) {
    // A program reads a key with the map as it is when it gets to it: a busy one that is still
    // behind would find the last bound keys meaning nothing.
    sleepSeconds(kRestoreGrace);
    backend_.restoreSpareKeys();
    sleepSeconds(kKeymapSettle);
  }
}

void InputSimulator::click(int x, int y, MouseButton button) {
  if (!checkAvailable()) {
    return;
  }
  // X presses a button wherever the pointer is, so it goes to the point first.
  backend_.moveTo({x, y});
  backend_.buttonDown(buttonNumber(button));
  sleepSeconds(kClickHold);
  backend_.buttonUp(buttonNumber(button));
}

void InputSimulator::setCursorPosition(int x, int y) {
  if (!checkAvailable()) {
    return;
  }
  backend_.moveTo({x, y});
}

void InputSimulator::smoothMove(int toX, int toY, double duration) {
  if (duration <= 0) {
    setCursorPosition(toX, toY);
    return;
  }
  if (!checkAvailable()) {
    return;
  }
  const ScreenPoint start = backend_.cursorPosition();
  // The epsilon keeps 0.35 s at 21 steps although 0.35 * 60 is 20.999... in binary.
  const int steps = std::max(1, static_cast<int>(duration * kMoveStepsPerSecond + 1e-9));
  const double step = duration / steps;
  const Clock::TimePoint began = clock_.now();
  for (int i = 1; i <= steps; ++i) {
    const double eased = easeInOutCubic(static_cast<double>(i) / steps);
    backend_.moveTo({static_cast<int>(std::lround(start.x + (toX - start.x) * eased)),
                     static_cast<int>(std::lround(start.y + (toY - start.y) * eased))});
    if (i < steps) {
      // Deadlines from the start, so time spent sending does not stretch the move.
      clock_.sleepUntil(began + std::chrono::duration_cast<Clock::Duration>(
                                    std::chrono::duration<double>(step * i)));
    }
  }
}

bool InputSimulator::pressKey(std::string_view name, ModifierFlags modifiers) {
  const auto code = keyCodeForName(name);
  if (!code) {
    return false;
  }
  if (checkAvailable()) {
    pressVirtualKey(*code, modifiers);
  }
  return true;
}

void InputSimulator::scroll(ScrollDirection direction, int ticks) {
  if (!checkAvailable()) {
    return;
  }
  const int button = wheelButton(direction);
  for (int tick = 0; tick < ticks; ++tick) {
    if (tick > 0) {
      sleepSeconds(kScrollPause);
    }
    backend_.buttonDown(button);
    backend_.buttonUp(button);
  }
}

void InputSimulator::waitForKeyboardIdle() {
  if (!checkAvailable()) {
    return;
  }
  std::vector<KeyNumber> watched;
  for (const int code : kIdleKeys) {
    if (const auto key = backend_.keyForVirtualCode(code)) {
      watched.push_back(*key);
    }
  }
  while (true) {
    const KeyboardState state = backend_.keyboardState();
    const bool keyHeld =
        std::any_of(state.keysDown.begin(), state.keysDown.end(), [&](KeyNumber key) {
          return std::find(watched.begin(), watched.end(), key) != watched.end();
        });
    if (state.modifiers.empty() && !keyHeld) {
      return;
    }
    sleepSeconds(kIdlePoll);
  }
}

ScreenPoint InputSimulator::cursorPosition() {
  return backend_.cursorPosition();
}

}  // namespace brimble
