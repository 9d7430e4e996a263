// The input family: typing, keys, the pointer and the wheel, carried out by the input
// simulator on the server's display.

#include <cstddef>
#include <string>

#include "BrimbleCore/Automation/InputError.h"
#include "BrimbleCore/MCP/MCPToolSupport.h"
#include "BrimbleCore/MCP/MCPTools.h"

namespace brimble::mcp {
namespace {

constexpr double kDefaultCharDelay = 0.05;
constexpr int kDefaultTicks = 3;
// Past this a call would hold the server for minutes; an assistant meant something else.
constexpr double kMaxMoveSeconds = 60;
constexpr int kMaxTicks = 1000;
// At the default pace this is over eight minutes of typing; more is a paste, not a demo, and would
// hold the desktop for as long.
constexpr std::size_t kMaxTypedCharacters = 10000;

/// Characters as typed: UTF-8 continuation bytes belong to the character before them.
std::size_t characterCount(const std::string& text) {
  std::size_t count = 0;
  for (const char c : text) {
    count += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
  }
  return count;
}

InputSimulator& inputOf(MCPDesktop& desktop) {
  InputSimulator& input = desktop.input();
  if (!input.available()) {
    fail(desktop.texts().toolInputUnavailable);
  }
  return input;
}

JSONValue typeText(MCPDesktop& desktop, const MCPCallContext& call, const Arguments& arguments) {
  const auto text = arguments.string("text");
  if (!text) {
    fail("'text' parameter is required");
  }
  if (const std::size_t count = characterCount(*text); count > kMaxTypedCharacters) {
    fail("text is too long: " + std::to_string(count) + " characters, at most " +
         std::to_string(kMaxTypedCharacters) + " per call (split it across calls)");
  }
  const double delay = arguments.number("delay").value_or(kDefaultCharDelay);
  if (!(delay >= 0 && delay <= 5)) {
    fail("delay must be between 0 and 5 seconds (got " + numberText(delay) + ")");
  }
  const bool enter = arguments.boolean("enter").value_or(false);
  InputSimulator& input = inputOf(desktop);
  input.waitForKeyboardIdle();
  input.typeText(*text, delay, enter, [&call] { return call.stop().stop_requested(); });
  return JSONValue::Object{{"typed", true}, {"characters", text->size()}, {"enter", enter}};
}

JSONValue click(MCPDesktop& desktop, const Arguments& arguments) {
  const auto x = arguments.integer("x");
  const auto y = arguments.integer("y");
  if (x.has_value() != y.has_value()) {
    fail("'x' and 'y' go together: give both, or neither to click at the pointer");
  }
  InputSimulator& input = inputOf(desktop);
  const ScreenPoint at = x && y ? ScreenPoint{*x, *y} : input.cursorPosition();
  const bool right = arguments.boolean("right").value_or(false);
  input.click(at.x, at.y, right ? MouseButton::right : MouseButton::left);
  return JSONValue::Object{
      {"clicked", true}, {"x", at.x}, {"y", at.y}, {"button", right ? "right" : "left"}};
}

JSONValue moveCursor(MCPDesktop& desktop, const Arguments& arguments) {
  const auto x = arguments.integer("x");
  const auto y = arguments.integer("y");
  if (!x || !y) {
    fail("'x' and 'y' parameters are required");
  }
  const double duration = arguments.number("duration").value_or(0);
  if (!(duration >= 0 && duration <= kMaxMoveSeconds)) {
    fail("duration must be between 0 and 60 seconds (got " + numberText(duration) + ")");
  }
  InputSimulator& input = inputOf(desktop);
  if (duration > 0) {
    input.smoothMove(*x, *y, duration);
  } else {
    input.setCursorPosition(*x, *y);
  }
  return JSONValue::Object{{"moved", true}, {"x", *x}, {"y", *y}, {"duration", duration}};
}

JSONValue keyPress(MCPDesktop& desktop, const Arguments& arguments) {
  const auto key = arguments.string("key");
  if (!key || key->empty()) {
    fail("'key' parameter is required (e.g. 'cmd+c', 'enter', 'shift+tab')");
  }
  const KeyChord chord = InputSimulator::parseKeyChord(*key);
  try {
    // A shortcut sent without one of its modifiers would do something else entirely.
    InputSimulator::requireKnownWords(chord, *key);
  } catch (const InputError& error) {
    fail(error.what());
  }
  InputSimulator& input = inputOf(desktop);
  input.waitForKeyboardIdle();
  if (!input.pressKey(chord.key, chord.modifiers)) {
    fail("Unknown key '" + chord.key + "' in '" + *key + "'");
  }
  return JSONValue::Object{{"pressed", *key}};
}

JSONValue scroll(MCPDesktop& desktop, const Arguments& arguments) {
  const auto direction = arguments.string("direction");
  if (!direction) {
    fail("'direction' parameter is required (up, down, left, right)");
  }
  ScrollDirection scrollDirection = ScrollDirection::up;
  if (*direction == "up") {
    scrollDirection = ScrollDirection::up;
  } else if (*direction == "down") {
    scrollDirection = ScrollDirection::down;
  } else if (*direction == "left") {
    scrollDirection = ScrollDirection::left;
  } else if (*direction == "right") {
    scrollDirection = ScrollDirection::right;
  } else {
    fail("Invalid direction '" + *direction + "'. Must be: up, down, left, right");
  }
  const int ticks = arguments.integer("ticks").value_or(kDefaultTicks);
  if (ticks < 1 || ticks > kMaxTicks) {
    fail("ticks must be between 1 and 1000 (got " + std::to_string(ticks) + ")");
  }
  inputOf(desktop).scroll(scrollDirection, ticks);
  return JSONValue::Object{{"scrolled", *direction}, {"ticks", ticks}};
}

}  // namespace

void registerInputTools(const ToolEnvironment& environment) {
  MCPDesktop& desktop = environment.desktop;
  MCPServer& server = environment.server;
  server.registerTool(
      {"type_text", "Simulate typing text with human-like pacing. Optionally press Enter after.",
       objectSchema({{"text", property("string", "Text to type (at most 10000 characters)")},
                     {"enter", property("boolean", "Press Enter after typing (default: false)")},
                     {"delay", property("number",
                                        "Per-character delay in seconds (default: "
                                        "0.05)")}},
                    {"text"})},
      [&desktop, &server](const JSONValue& arguments) {
        return typeText(desktop, server.currentCall(), Arguments(arguments));
      });
  server.registerTool(
      {"click", "Click at screen coordinates. If x/y omitted, clicks at current cursor position.",
       objectSchema({{"x", property("number", "X screen coordinate")},
                     {"y", property("number", "Y screen coordinate")},
                     {"right", property("boolean", "Right-click (default: false)")}})},
      [&desktop](const JSONValue& arguments) { return click(desktop, Arguments(arguments)); });
  server.registerTool(
      {"move_cursor", "Move cursor to a screen position. Optionally animate with smooth movement.",
       objectSchema({{"x", property("number", "Target X coordinate")},
                     {"y", property("number", "Target Y coordinate")},
                     {"duration", property("number",
                                           "Smooth move duration in seconds (0 = "
                                           "instant)")}},
                    {"x", "y"})},
      [&desktop](const JSONValue& arguments) { return moveCursor(desktop, Arguments(arguments)); });
  server.registerTool(
      {"key_press",
       "Press a key with optional modifiers. Use '+' to combine: 'cmd+c', 'shift+tab', "
       "'ctrl+alt+delete'.",
       objectSchema({{"key", property("string",
                                      "Key spec (e.g. 'enter', 'cmd+c', 'shift+tab', "
                                      "'f5')")}},
                    {"key"})},
      [&desktop](const JSONValue& arguments) { return keyPress(desktop, Arguments(arguments)); });
  server.registerTool(
      {"scroll", "Scroll in a direction at the current cursor position.",
       objectSchema({{"direction", property("string", "Scroll direction: up, down, left, right")},
                     {"ticks", property("integer", "Number of scroll ticks (default: 3)")}},
                    {"direction"})},
      [&desktop](const JSONValue& arguments) { return scroll(desktop, Arguments(arguments)); });
}

}  // namespace brimble::mcp
