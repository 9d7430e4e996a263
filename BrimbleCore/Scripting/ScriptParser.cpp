#include "BrimbleCore/Scripting/ScriptParser.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "BrimbleCore/Scripting/NearestName.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Support/Text.h"
#include "BrimbleCore/Support/XID.h"

namespace brimble {
namespace {

using Tokens = ScriptParser::Tokens;

// A word's lower-cased text, else empty: keywords are bare words.
std::string keyword(const Token& token) {
  return token.kind == Token::Kind::word ? lowercased(token.text) : std::string();
}

// A choice (a direction, a style) may also be quoted.
std::string choice(const Token& token) {
  return token.kind == Token::Kind::word || token.kind == Token::Kind::string
             ? lowercased(token.text)
             : std::string();
}

// Whether `token` can stand where a number is expected. A bare word never can: it would have
// lexed as a number. A quoted string can when it holds a number, or variables that may expand
// to one when the line runs.
bool isNumeric(const Token& token) {
  switch (token.kind) {
    case Token::Kind::number:
    case Token::Kind::variable:
    case Token::Kind::variableIndex:
      return true;
    case Token::Kind::string:
      return parseScriptNumber(token.text).has_value() || token.text.find('$') != std::string::npos;
    case Token::Kind::word:
    case Token::Kind::newline:
      break;
  }
  return false;
}

// X tools (xwininfo, xprop, `brimble windows`) print window ids in hexadecimal, so a window id
// may also be written as 0x1a00007.
std::optional<double> hexadecimalWindowID(const Token& token) {
  const std::string& text = token.text;
  if (token.kind != Token::Kind::word || (!text.starts_with("0x") && !text.starts_with("0X"))) {
    return std::nullopt;
  }
  return parseXID(text);
}

ScriptValue numericValue(const Token& token) {
  if (token.kind == Token::Kind::string) {
    if (const auto number = parseScriptNumber(token.text)) {
      return ScriptValue::number(*number);
    }
  }
  return ScriptParser::extractValue(token);
}

// Reads one line's tokens after the command word, with the errors every command shares.
class LineCursor {
 public:
  LineCursor(Tokens tokens, int line)
      : tokens_(tokens),
        line_(line),
        command_(tokens.empty() ? std::string() : lowercased(tokens.front().token.text)) {}

  const std::string& command() const noexcept { return command_; }
  int line() const noexcept { return line_; }
  bool atEnd() const noexcept { return position_ >= tokens_.size(); }
  std::size_t position() const noexcept { return position_; }
  void seek(std::size_t position) noexcept { position_ = position; }
  const Token& peek() const { return tokens_[position_].token; }
  void advance() noexcept { ++position_; }

  const Token& take() {
    if (atEnd()) {
      throw ScriptError::parseError(line_, "Unexpected end of line");
    }
    return tokens_[position_++].token;
  }

  ScriptValue takeValue() { return ScriptParser::extractValue(take()); }

  /// A value that the command cannot do without: the end of the line is `missing`.
  ScriptValue takeRequired(const std::string& missing) {
    if (atEnd()) {
      throw ScriptError::missingArgument(line_, command_, missing);
    }
    return takeValue();
  }

  ScriptValue takeNumber(const std::string& what) {
    const Token& token = take();
    if (!isNumeric(token)) {
      throw ScriptError::invalidValue(line_, token.description(), what, "expected a number");
    }
    return numericValue(token);
  }

  /// Four numbers; too few (the line ends, or something else comes) is `missing`.
  ScriptRect takeRect(const std::string& missing) {
    std::array<ScriptValue, 4> values;
    for (ScriptValue& value : values) {
      if (atEnd()) {
        throw ScriptError::missingArgument(line_, command_, missing);
      }
      if (!isNumeric(peek())) {
        throw ScriptError::missingArgument(line_, command_, missing, peek().description());
      }
      value = numericValue(take());
    }
    return {values[0], values[1], values[2], values[3]};
  }

  /// The name after `as`, which must be a `$variable`.
  std::string takeVariableAfterAs() {
    if (atEnd() || peek().kind != Token::Kind::variable) {
      throw ScriptError::parseError(line_, "'as' must be followed by $variable", {},
                                    atEnd() ? "as" : peek().description());
    }
    return take().text;
  }

  /// An optional `as $v` clause closing the line.
  std::optional<std::string> takeOptionalAs() {
    if (atEnd() || keyword(peek()) != "as") {
      return std::nullopt;
    }
    advance();
    return takeVariableAfterAs();
  }

  /// Marks option `name` as given; a second time is an error.
  void once(const std::string& name) {
    if (std::find(seen_.begin(), seen_.end(), name) != seen_.end()) {
      throw ScriptError::parseError(line_, "Duplicate '" + name + "' keyword in " + command_, {},
                                    peek().description());
    }
    seen_.push_back(name);
  }

  [[noreturn]] void unexpected(const std::string& expected) const {
    const std::string text = peek().description();
    throw ScriptError::parseError(line_, "Unexpected '" + text + "' in " + command_,
                                  expected.empty() ? std::string() : "expected " + expected, text);
  }

  void expectEnd(const std::string& expected = {}) const {
    if (!atEnd()) {
      unexpected(expected);
    }
  }

 private:
  Tokens tokens_;
  std::size_t position_ = 1;
  int line_;
  std::string command_;
  std::vector<std::string> seen_;
};

// Reads `keyword <value>` options until the line ends, calling `handle(keyword)` for each; the
// handler returns false for a token it does not know.
template <typename Handler>
void parseOptions(LineCursor& cursor, const std::string& expected, Handler handle) {
  while (!cursor.atEnd()) {
    const std::string name = keyword(cursor.peek());
    if (name.empty() || !handle(name)) {
      cursor.unexpected(expected);
    }
  }
}

ScrollDirection takeDirection(LineCursor& cursor) {
  static const std::unordered_map<std::string, ScrollDirection> directions = {
      {"up", ScrollDirection::up},
      {"down", ScrollDirection::down},
      {"left", ScrollDirection::left},
      {"right", ScrollDirection::right}};
  const auto found = directions.find(choice(cursor.peek()));
  if (found == directions.end()) {
    throw ScriptError::invalidValue(cursor.line(), cursor.peek().description(), "scroll direction",
                                    "expected up|down|left|right");
  }
  cursor.advance();
  return found->second;
}

SpotlightInstruction spotlightFromTokens(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "spotlight target");
  }
  SpotlightInstruction spotlight;
  const std::string kind = keyword(cursor.peek());
  if (kind == "stdout") {
    cursor.advance();
    if (cursor.atEnd() || cursor.peek().kind != Token::Kind::variableIndex) {
      throw ScriptError::parseError(lineNumber, "Expected $variable[N] for stdout target", {},
                                    cursor.atEnd() ? "stdout" : cursor.peek().description());
    }
    const Token& line = cursor.take();
    spotlight.target = {SpotlightTarget::Kind::stdout, line.text, line.index, std::nullopt};
  } else if (kind == "region") {
    cursor.advance();
    spotlight.target = {SpotlightTarget::Kind::region, {}, 0, cursor.takeRect("x y width height")};
  } else {
    throw ScriptError::invalidValue(lineNumber, cursor.peek().description(), "spotlight target",
                                    "expected stdout|region");
  }
  parseOptions(cursor, "duration", [&](const std::string& name) {
    if (name != "duration") {
      return false;
    }
    cursor.once(name);
    cursor.advance();
    spotlight.duration = cursor.takeNumber(cursor.command() + " duration");
    return true;
  });
  return spotlight;
}

// The element target that fill, move-to, wait-for, highlight and zoom begin with.
ScriptValue takeTarget(LineCursor& cursor) {
  return cursor.takeRequired("<target>");
}

}  // namespace

std::vector<LocatedInstruction> ScriptParser::parse(std::string_view source) {
  const LexResult lexed = ScriptLexer::tokenizeLocated(source);
  const std::vector<LocatedToken>& tokens = lexed.tokens;
  std::vector<LocatedInstruction> instructions;
  instructions.reserve(lexed.lineTexts.size());
  auto lineText = lexed.lineTexts.begin();
  std::size_t start = 0;
  while (start < tokens.size()) {
    // tokens[start] is the line's newline marker.
    std::size_t end = start + 1;
    while (end < tokens.size() && tokens[end].token.kind != Token::Kind::newline) {
      ++end;
    }
    const int lineNumber = tokens[start].line;
    const Tokens line(tokens.data() + start + 1, end - start - 1);
    // Lines are numbered in increasing order, so the texts are met in map order.
    while (lineText != lexed.lineTexts.end() && lineText->first < lineNumber) {
      ++lineText;
    }
    const std::string& text = lineText->second;
    try {
      instructions.push_back({parseLine(line, lineNumber), lineNumber, text});
    } catch (const ScriptError& error) {
      throw ScriptError::annotated(error, anchorColumn(error, line), text);
    }
    start = end;
  }
  return instructions;
}

ScriptInstruction ScriptParser::parseLine(Tokens tokens, int lineNumber) {
  if (tokens.empty() || tokens.front().token.kind != Token::Kind::word) {
    throw ScriptError::parseError(
        lineNumber, "Expected command", {},
        tokens.empty() ? std::string() : tokens.front().token.description());
  }
  const std::string& word = tokens.front().token.text;
  const ScriptCommand* command = ScriptCommandTable::shared().find(lowercased(word));
  if (command == nullptr) {
    throw ScriptError::unknownCommand(lineNumber, word,
                                      nearestName(lowercased(word), scriptCommandNames()));
  }
  return command->parse(tokens, lineNumber);
}

ScriptValue ScriptParser::extractValue(const Token& token) {
  switch (token.kind) {
    case Token::Kind::number:
      return ScriptValue::number(token.value);
    case Token::Kind::variable:
      return ScriptValue::variable(token.text);
    case Token::Kind::variableIndex:
      return ScriptValue::variableIndex(token.text, token.index);
    case Token::Kind::word:
    case Token::Kind::string:
    case Token::Kind::newline:
      break;
  }
  return ScriptValue::string(token.text, token.literalDollars);
}

int ScriptParser::anchorColumn(const ScriptError& error, Tokens tokens) {
  if (tokens.empty()) {
    return 1;
  }
  const std::string& subject = error.subject();
  if (!subject.empty() && error.code() != ScriptError::Code::unknownCommand) {
    // The last match: repeated and misplaced tokens come after the ones that were accepted.
    for (std::size_t i = tokens.size(); i-- > 1;) {
      if (tokens[i].token.description() == subject) {
        return tokens[i].column;
      }
    }
  }
  return tokens.front().column;
}

ScriptInstruction ScriptParser::parseSet(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  if (cursor.atEnd()) {
    throw ScriptError::parseError(lineNumber, "Expected setting name");
  }
  const Token& name = cursor.peek();
  if (name.kind != Token::Kind::word && name.kind != Token::Kind::string) {
    throw ScriptError::parseError(lineNumber, "Expected setting name", {}, name.description());
  }
  cursor.advance();
  SetInstruction set{lowercased(name.text), cursor.takeRequired("key and value")};
  // One render can be written to several files at once.
  while (set.name == "output" && !cursor.atEnd()) {
    set.moreValues.push_back(cursor.takeValue());
  }
  cursor.expectEnd();
  return set;
}

ScriptInstruction ScriptParser::parseOpen(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  OpenInstruction open{cursor.takeValue()};
  cursor.expectEnd();
  return open;
}

ScriptInstruction ScriptParser::parseFocus(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  FocusInstruction focus{cursor.takeValue()};
  cursor.expectEnd();
  return focus;
}

ScriptInstruction ScriptParser::parseResize(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  ResizeInstruction resize;
  resize.width = cursor.takeNumber("resize width");
  resize.height = cursor.takeNumber("resize height");
  cursor.expectEnd();
  return resize;
}

ScriptInstruction ScriptParser::parseWait(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  WaitInstruction wait{cursor.takeNumber("wait seconds")};
  cursor.expectEnd();
  return wait;
}

ScriptInstruction ScriptParser::parseWaitForIdle(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  WaitForIdleInstruction wait{cursor.takeNumber("wait-for-idle seconds")};
  cursor.expectEnd();
  return wait;
}

ScriptInstruction ScriptParser::parseMoveTo(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  MoveToInstruction moveTo{takeTarget(cursor)};
  cursor.expectEnd();
  return moveTo;
}

void ScriptParser::expectNoArguments(Tokens tokens, int lineNumber) {
  LineCursor(tokens, lineNumber).expectEnd();
}

ScriptInstruction ScriptParser::parseCaptureWindow(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "target specification");
  }
  CaptureWindowInstruction capture;
  const std::string selector = keyword(cursor.peek());
  if (selector == "app") {
    cursor.advance();
    capture.window = {WindowReference::Kind::appName, cursor.takeValue()};
  } else if (selector == "id") {
    cursor.advance();
    const std::optional<double> hexadecimal =
        cursor.atEnd() ? std::nullopt : hexadecimalWindowID(cursor.peek());
    if (hexadecimal) {
      cursor.advance();
    }
    capture.window = {
        WindowReference::Kind::windowID,
        hexadecimal ? ScriptValue::number(*hexadecimal) : cursor.takeNumber("capture-window id")};
  } else {
    const std::string got = cursor.peek().description();
    throw ScriptError::parseError(lineNumber, "Expected 'app' or 'id', got '" + got + "'", {}, got);
  }
  capture.variable = cursor.takeOptionalAs();
  cursor.expectEnd("as $variable");
  return capture;
}

ScriptInstruction ScriptParser::parseRecord(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  const std::string missingTarget = "window variable or 'region'";
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), missingTarget);
  }
  RecordInstruction record;
  const Token& first = cursor.peek();
  if (first.kind == Token::Kind::variable) {
    cursor.advance();
    record.target = {RecordTarget::Kind::window, first.text, std::nullopt};
    if (!cursor.atEnd() && keyword(cursor.peek()) == "crop") {
      cursor.advance();
      record.target.kind = RecordTarget::Kind::windowCrop;
      record.target.rect = cursor.takeRect("x y w h");
    }
  } else if (keyword(first) == "region") {
    cursor.advance();
    record.target = {RecordTarget::Kind::region, {}, cursor.takeRect("x y w h")};
  } else if (keyword(first) == "simulator") {
    cursor.advance();
    record.target = {RecordTarget::Kind::simulator, {}, std::nullopt};
  } else {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), missingTarget,
                                       first.description());
  }
  parseRecordTrailingArgs(tokens, cursor.position(), lineNumber, record);
  return record;
}

void ScriptParser::parseRecordTrailingArgs(Tokens tokens, std::size_t start, int lineNumber,
                                           RecordInstruction& record) {
  LineCursor cursor(tokens, lineNumber);
  cursor.seek(start);
  parseOptions(cursor, "duration, continue or audio", [&](const std::string& name) {
    if (name == "duration") {
      cursor.once(name);
      cursor.advance();
      record.duration = cursor.takeNumber("record duration");
    } else if (name == "continue") {
      cursor.once(name);
      cursor.advance();
      record.continues = true;
    } else if (name == "audio") {
      cursor.once(name);
      if (record.target.kind == RecordTarget::Kind::simulator) {
        throw ScriptError::parseError(
            lineNumber,
            "simctl captures no audio, so 'audio' cannot be used with 'record simulator'.", {},
            cursor.peek().description());
      }
      cursor.advance();
      record.audio = true;
    } else {
      return false;
    }
    return true;
  });
}

ScriptInstruction ScriptParser::parseType(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  TypeInstruction type{cursor.takeRequired("text"), false, std::nullopt};
  parseOptions(cursor, "enter or delay", [&](const std::string& name) {
    if (name == "enter") {
      cursor.once(name);
      cursor.advance();
      type.enter = true;
    } else if (name == "delay") {
      cursor.once(name);
      cursor.advance();
      type.delay = cursor.takeNumber("type delay");
    } else {
      return false;
    }
    return true;
  });
  return type;
}

ScriptInstruction ScriptParser::parseClick(Tokens tokens, int lineNumber) {
  // `right` may stand anywhere, so it is taken out first and the rest read as a position or a
  // target.
  std::vector<LocatedToken> rest;
  bool right = false;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (i > 0 && keyword(tokens[i].token) == "right") {
      right = true;
    } else {
      rest.push_back(tokens[i]);
    }
  }
  LineCursor cursor(rest, lineNumber);
  if (cursor.atEnd()) {
    return ClickInstruction{std::nullopt, std::nullopt, right};
  }
  const std::string expected = "<x> <y>, <target> or right";
  const Token& first = cursor.peek();
  const bool coordinate = first.kind == Token::Kind::number ||
                          first.kind == Token::Kind::variable ||
                          first.kind == Token::Kind::variableIndex ||
                          (first.kind == Token::Kind::string && parseScriptNumber(first.text));
  if (coordinate && rest.size() > 2) {
    ClickInstruction click;
    click.x = cursor.takeNumber("click x");
    click.y = cursor.takeNumber("click y");
    click.right = right;
    cursor.expectEnd(expected);
    return click;
  }
  if (first.kind == Token::Kind::number) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "x y");
  }
  ClickTargetInstruction click{cursor.takeValue(), right};
  cursor.expectEnd(expected);
  return click;
}

ScriptInstruction ScriptParser::parseTap(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  const std::string missing = "x y (device framebuffer pixels)";
  TapInstruction tap;
  for (ScriptValue* value : {&tap.x, &tap.y}) {
    if (cursor.atEnd()) {
      throw ScriptError::missingArgument(lineNumber, cursor.command(), missing);
    }
    if (!isNumeric(cursor.peek())) {
      throw ScriptError::missingArgument(lineNumber, cursor.command(), missing,
                                         cursor.peek().description());
    }
    *value = numericValue(cursor.take());
  }
  cursor.expectEnd();
  return tap;
}

ScriptInstruction ScriptParser::parseMove(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  MoveInstruction move;
  move.x = cursor.takeNumber("move x");
  move.y = cursor.takeNumber("move y");
  parseOptions(cursor, "duration", [&](const std::string& name) {
    if (name != "duration") {
      return false;
    }
    cursor.once(name);
    cursor.advance();
    move.duration = cursor.takeNumber("move duration");
    return true;
  });
  return move;
}

ScriptInstruction ScriptParser::parseScroll(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "direction");
  }
  ScrollInstruction scroll;
  scroll.direction = takeDirection(cursor);
  if (!cursor.atEnd()) {
    scroll.ticks = cursor.takeNumber("scroll ticks");
  }
  cursor.expectEnd();
  return scroll;
}

ScriptInstruction ScriptParser::parseKey(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  KeyInstruction key{cursor.takeRequired("key name")};
  cursor.expectEnd();
  return key;
}

ScriptInstruction ScriptParser::parseRequire(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  RequireInstruction require{cursor.takeRequired("program")};
  cursor.expectEnd();
  return require;
}

ScriptInstruction ScriptParser::parseScreenshot(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  ScreenshotInstruction screenshot{cursor.takeRequired("a .png file")};
  cursor.expectEnd();
  return screenshot;
}

ScriptInstruction ScriptParser::parseInclude(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  const ScriptValue file = cursor.takeRequired("a script file");
  // The included lines are parsed and checked with the script, before any line runs: the name
  // cannot wait for a variable.
  if (file.kind != ScriptValue::Kind::string || !file.namesInText().empty() || file.text.empty()) {
    throw ScriptError::invalidValue(lineNumber, tokens[1].token.description(), "include",
                                    "expected a file name written out, without variables");
  }
  cursor.expectEnd();
  return IncludeInstruction{file.text};
}

ScriptInstruction ScriptParser::parseOutput(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  OutputInstruction output{cursor.takeRequired("a file or folder")};
  cursor.expectEnd();
  return output;
}

ScriptInstruction ScriptParser::parseEnv(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "name and value");
  }
  const Token& name = cursor.peek();
  // The name goes into the environment as it is written: a shell cannot read a variable whose
  // name is not a word of letters, digits and underscores, or starts with a digit.
  const bool word = (name.kind == Token::Kind::word || name.kind == Token::Kind::string) &&
                    !name.text.empty() && !std::isdigit(static_cast<unsigned char>(name.text[0])) &&
                    std::all_of(name.text.begin(), name.text.end(), isVariableNameCharacter);
  if (!word) {
    throw ScriptError::invalidValue(lineNumber, name.description(), "env name",
                                    "expected a name of letters, digits and _");
  }
  cursor.advance();
  EnvInstruction env{name.text, cursor.takeRequired("value")};
  cursor.expectEnd();
  return env;
}

ScriptInstruction ScriptParser::parseRun(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  RunInstruction run{cursor.takeRequired("command"), std::nullopt};
  run.variable = cursor.takeOptionalAs();
  cursor.expectEnd("as $variable");
  return run;
}

ScriptInstruction ScriptParser::parseSpotlight(Tokens tokens, int lineNumber) {
  SpotlightInstruction spotlight = spotlightFromTokens(tokens, lineNumber);
  if (lowercased(tokens.front().token.text) == "spotlight-shift") {
    return SpotlightShiftInstruction{std::move(spotlight.target), std::move(spotlight.duration)};
  }
  return spotlight;
}

ScriptInstruction ScriptParser::parseCursor(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  CursorInstruction move;
  move.x = cursor.takeNumber("cursor x");
  move.y = cursor.takeNumber("cursor y");
  cursor.expectEnd();
  return move;
}

ScriptInstruction ScriptParser::parseIntro(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  IntroInstruction card{cursor.takeRequired("title text"), std::nullopt, std::nullopt};
  parseOptions(cursor, "subtitle or duration", [&](const std::string& name) {
    if (name == "subtitle") {
      cursor.once(name);
      cursor.advance();
      card.subtitle = cursor.takeValue();
    } else if (name == "duration") {
      cursor.once(name);
      cursor.advance();
      card.duration = cursor.takeNumber(cursor.command() + " duration");
    } else {
      return false;
    }
    return true;
  });
  if (cursor.command() == "outro") {
    return OutroInstruction{std::move(card.title), std::move(card.subtitle),
                            std::move(card.duration)};
  }
  return card;
}

ScriptInstruction ScriptParser::parseAppButtonKeywords(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  const bool dismiss = cursor.command() == "dismiss-dialog";
  std::optional<ScriptValue> app;
  std::optional<ScriptValue> button;
  if (cursor.atEnd()) {
    throw ScriptError::parseError(lineNumber,
                                  "Expected 'app' or 'button' keyword in " + cursor.command());
  }
  while (!cursor.atEnd()) {
    const std::string name = keyword(cursor.peek());
    if (name != "app" && name != "button") {
      const std::string got = cursor.peek().description();
      throw ScriptError::parseError(lineNumber,
                                    "Unexpected keyword '" + got + "' in " + cursor.command() +
                                        " (expected 'app' or 'button')",
                                    {}, got);
    }
    cursor.once(name);
    cursor.advance();
    (name == "app" ? app : button) =
        cursor.takeRequired(name == "app" ? "app name" : "button label");
  }
  if (dismiss) {
    return DismissDialogInstruction{std::move(app), std::move(button)};
  }
  if (!button) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "button label");
  }
  return ClickButtonInDialogInstruction{std::move(*button), std::move(app)};
}

ScriptInstruction ScriptParser::parseSetBackground(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "hex color");
  }
  if (keyword(cursor.peek()) != "color") {
    const std::string got = cursor.peek().description();
    throw ScriptError::parseError(lineNumber, "Expected 'color', got '" + got + "'", {}, got);
  }
  cursor.advance();
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "hex color");
  }
  const Token& color = cursor.take();
  SetBackgroundInstruction background{extractValue(color)};
  // Digits-only colours lex as numbers and would lose their leading zeros ("001122").
  if (color.kind == Token::Kind::number && color.value >= 0 &&
      color.value == static_cast<double>(static_cast<long long>(color.value))) {
    std::string digits = formatScriptNumber(color.value);
    if (digits.size() < 6) {
      digits.insert(0, 6 - digits.size(), '0');
    }
    background.color = ScriptValue::string(std::move(digits));
  }
  cursor.expectEnd();
  return background;
}

ScriptInstruction ScriptParser::parseTarget(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(),
                                       "window \"Match\" or app \"Name\"");
  }
  TargetInstruction target;
  const std::string selector = keyword(cursor.peek());
  if (selector == "window") {
    target.kind = TargetInstruction::Kind::window;
  } else if (selector == "app") {
    target.kind = TargetInstruction::Kind::app;
  } else {
    const std::string got = cursor.peek().description();
    throw ScriptError::parseError(lineNumber, "Expected 'window' or 'app', got '" + got + "'", {},
                                  got);
  }
  cursor.advance();
  target.match = cursor.takeRequired(selector == "window" ? "window \"Match\"" : "app \"Name\"");
  target.variable = cursor.takeOptionalAs();
  cursor.expectEnd("as $variable");
  return target;
}

ScriptInstruction ScriptParser::parseFill(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  FillInstruction fill;
  fill.target = takeTarget(cursor);
  fill.text = cursor.takeRequired("text");
  parseOptions(cursor, "enter", [&](const std::string& name) {
    if (name != "enter") {
      return false;
    }
    cursor.once(name);
    cursor.advance();
    fill.enter = true;
    return true;
  });
  return fill;
}

ScriptInstruction ScriptParser::parseWaitFor(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  WaitForInstruction wait;
  wait.target = takeTarget(cursor);
  parseOptions(cursor, "timeout", [&](const std::string& name) {
    if (name != "timeout") {
      return false;
    }
    cursor.once(name);
    cursor.advance();
    wait.timeout = cursor.takeNumber("wait-for timeout");
    return true;
  });
  return wait;
}

ScriptInstruction ScriptParser::parseWaitForText(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  WaitForTextInstruction wait{cursor.takeRequired("text pattern")};
  parseOptions(cursor, "timeout or in", [&](const std::string& name) {
    if (name == "timeout") {
      cursor.once(name);
      cursor.advance();
      wait.timeout = cursor.takeNumber("wait-for-text timeout");
    } else if (name == "in") {
      cursor.once(name);
      cursor.advance();
      const Token& scope = cursor.take();
      const std::string value = choice(scope);
      if (value != "screen" && value != "line") {
        throw ScriptError::invalidValue(lineNumber, scope.description(), "wait-for-text scope",
                                        "expected screen|line");
      }
      wait.lastLine = value == "line";
    } else {
      return false;
    }
    return true;
  });
  return wait;
}

ScriptInstruction ScriptParser::parseBrowser(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  const std::string usage = "<chrome|safari> \"url\"";
  if (cursor.atEnd()) {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), usage);
  }
  BrowserInstruction browser;
  const std::string engine = choice(cursor.peek());
  if (engine == "chrome") {
    browser.engine = BrowserEngine::chrome;
  } else if (engine == "safari") {
    browser.engine = BrowserEngine::safari;
  } else {
    throw ScriptError::missingArgument(lineNumber, cursor.command(), "browser engine",
                                       cursor.peek().description());
  }
  cursor.advance();
  browser.url = cursor.takeRequired(usage);
  browser.variable = cursor.takeOptionalAs();
  cursor.expectEnd("as $variable");
  return browser;
}

ScriptInstruction ScriptParser::parseNavigate(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  NavigateInstruction navigate{cursor.takeRequired("\"url\""), false};
  parseOptions(cursor, "show-typing", [&](const std::string& name) {
    if (name != "show-typing") {
      return false;
    }
    cursor.once(name);
    cursor.advance();
    navigate.showTyping = true;
    return true;
  });
  return navigate;
}

ScriptInstruction ScriptParser::parseHighlight(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  HighlightInstruction highlight;
  highlight.target = takeTarget(cursor);
  parseOptions(cursor, "duration or style", [&](const std::string& name) {
    if (name == "duration") {
      cursor.once(name);
      cursor.advance();
      highlight.duration = cursor.takeNumber("highlight duration");
    } else if (name == "style") {
      cursor.once(name);
      cursor.advance();
      const Token& style = cursor.take();
      const std::string value = choice(style);
      if (value == "outline") {
        highlight.style = HighlightStyle::outline;
      } else if (value == "glow") {
        highlight.style = HighlightStyle::glow;
      } else if (value == "box") {
        highlight.style = HighlightStyle::box;
      } else {
        throw ScriptError::invalidValue(lineNumber, style.description(), "highlight style",
                                        "expected outline|glow|box");
      }
    } else {
      return false;
    }
    return true;
  });
  return highlight;
}

ScriptInstruction ScriptParser::parseZoom(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  ZoomInstruction zoom;
  zoom.target = takeTarget(cursor);
  parseOptions(cursor, "scale, duration or mode", [&](const std::string& name) {
    if (name == "scale") {
      cursor.once(name);
      cursor.advance();
      zoom.scale = cursor.takeNumber("zoom scale");
    } else if (name == "duration") {
      cursor.once(name);
      cursor.advance();
      zoom.duration = cursor.takeNumber("zoom duration");
    } else if (name == "mode") {
      cursor.once(name);
      cursor.advance();
      const Token& mode = cursor.take();
      const std::string value = choice(mode);
      if (value == "digital") {
        zoom.mode = ZoomMode::digital;
      } else if (value == "page") {
        zoom.mode = ZoomMode::page;
      } else {
        throw ScriptError::invalidValue(lineNumber, mode.description(), "zoom mode",
                                        "expected digital|page");
      }
    } else {
      return false;
    }
    return true;
  });
  return zoom;
}

ScriptInstruction ScriptParser::parseZoomOut(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  ZoomOutInstruction zoomOut;
  parseOptions(cursor, "duration", [&](const std::string& name) {
    if (name != "duration") {
      return false;
    }
    cursor.once(name);
    cursor.advance();
    zoomOut.duration = cursor.takeNumber("zoom-out duration");
    return true;
  });
  return zoomOut;
}

ScriptInstruction ScriptParser::parseCaption(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  CaptionInstruction caption{cursor.takeRequired("caption text"), std::nullopt, false};
  parseOptions(cursor, "duration or position", [&](const std::string& name) {
    if (name == "duration") {
      cursor.once(name);
      cursor.advance();
      caption.duration = cursor.takeNumber("caption duration");
    } else if (name == "position") {
      cursor.once(name);
      cursor.advance();
      const Token& position = cursor.take();
      const std::string value = choice(position);
      if (value != "top" && value != "bottom") {
        throw ScriptError::invalidValue(lineNumber, position.description(), "caption position",
                                        "expected top|bottom");
      }
      caption.top = value == "top";
    } else {
      return false;
    }
    return true;
  });
  return caption;
}

ScriptInstruction ScriptParser::parseChapter(Tokens tokens, int lineNumber) {
  LineCursor cursor(tokens, lineNumber);
  ChapterInstruction chapter{cursor.takeRequired("chapter name")};
  cursor.expectEnd();
  return chapter;
}

}  // namespace brimble
