#include "BrimbleCore/Scripting/TapeParser.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <regex>

#include "BrimbleCore/Scripting/NearestName.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/TapeLexer.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

// What a tape gets when it does not say: the format's own defaults.
constexpr int kDefaultWidth = 1200;
constexpr int kDefaultHeight = 600;
constexpr int kDefaultPadding = 60;
constexpr double kDefaultFontSize = 22;
constexpr double kDefaultTypingSpeed = 0.05;
constexpr int kDefaultWindowBarSize = 40;
constexpr double kDefaultWaitTimeout = 15;
constexpr const char* kDefaultWaitPattern = ">$";
// The shell prompts with this, so that `Wait`'s default pattern finds it.
constexpr const char* kPrompt = "> ";
// The smallest terminal that still shows a line of text inside its padding.
constexpr int kSmallestText = 40;
// The variable the tape's terminal is known by.
constexpr const char* kTerminalVariable = "tape";

// The tape's keys, and the key names the engine knows them by.
const std::map<std::string, std::string>& keyNames() {
  static const std::map<std::string, std::string> names = {{"enter", "enter"},
                                                           {"tab", "tab"},
                                                           {"space", "space"},
                                                           {"backspace", "backspace"},
                                                           {"delete", "forwarddelete"},
                                                           {"insert", "insert"},
                                                           {"escape", "escape"},
                                                           {"up", "up"},
                                                           {"down", "down"},
                                                           {"left", "left"},
                                                           {"right", "right"},
                                                           {"pageup", "pageup"},
                                                           {"pagedown", "pagedown"},
                                                           {"home", "home"},
                                                           {"end", "end"}};
  return names;
}

const std::vector<std::string>& commandNames() {
  static const std::vector<std::string> names = {
      "Output",     "Require",   "Set",    "Type",     "Sleep",      "Enter", "Tab",
      "Space",      "Backspace", "Delete", "Insert",   "Escape",     "Up",    "Down",
      "Left",       "Right",     "PageUp", "PageDown", "Home",       "End",   "ScrollUp",
      "ScrollDown", "Wait",      "Hide",   "Show",     "Screenshot", "Copy",  "Paste",
      "Env",        "Source",    "Ctrl",   "Alt",      "Shift"};
  return names;
}

const std::vector<std::string>& settingNames() {
  static const std::vector<std::string> names = {
      "Shell",         "FontSize",      "FontFamily",  "Width",         "Height",
      "LetterSpacing", "LineHeight",    "TypingSpeed", "Theme",         "Padding",
      "Margin",        "MarginFill",    "WindowBar",   "WindowBarSize", "BorderRadius",
      "Framerate",     "PlaybackSpeed", "LoopOffset",  "CursorBlink"};
  return names;
}

// The tape's name as the format spells it, found whatever the case.
std::optional<std::string> canonical(const std::string& word,
                                     const std::vector<std::string>& names) {
  const std::string lower = lowercased(word);
  for (const std::string& name : names) {
    if (lowercased(name) == lower) {
      return name;
    }
  }
  return std::nullopt;
}

// A time as tapes write it: `500ms`, `2s`, `0.5`, `.5` (seconds without a unit).
std::optional<double> parseTime(const std::string& text) {
  static const std::regex kTime(R"(((?:\d+\.?\d*)|(?:\.\d+))(ms|s)?)", std::regex::icase);
  std::smatch match;
  if (!std::regex_match(text, match, kTime)) {
    return std::nullopt;
  }
  const double value = std::stod(match[1].str());
  return lowercased(match[2].str()) == "ms" ? value / 1000 : value;
}

std::optional<int> parseCount(const std::string& text) {
  if (text.empty() || text.size() > 6 ||
      !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  return std::stoi(text);
}

std::optional<double> parseNumber(const std::string& text) {
  static const std::regex kNumber(R"(-?(?:\d+\.?\d*|\.\d+))");
  if (!std::regex_match(text, kNumber)) {
    return std::nullopt;
  }
  return std::stod(text);
}

// One `Set`: the value as written, where it was written.
struct TapeSetting {
  TapeToken name;
  TapeToken value;
};

class TapeReader {
 public:
  TapeReader(std::string_view source, TapeParser::Role role)
      : source_(source), role_(role), tokens_(lexTape(source)) {}

  TapeScript read() {
    while (next_ < tokens_.size()) {
      const TapeToken& word = tokens_[next_++];
      try {
        command(word);
      } catch (const ScriptError& error) {
        throw annotate(error, word);
      }
    }
    TapeScript script;
    if (role_ == TapeParser::Role::sourced) {
      script.instructions = std::move(body_);
    } else {
      script.instructions = std::move(before_);
      dressTerminal(script.instructions);
      script.instructions.insert(script.instructions.end(), std::make_move_iterator(body_.begin()),
                                 std::make_move_iterator(body_.end()));
    }
    script.warnings = std::move(warnings_);
    return script;
  }

 private:
  void command(const TapeToken& word) {
    if (word.kind != TapeToken::Kind::word) {
      throw ScriptError::parseError(word.line, "Expected a command, not '" + word.text + "'", {},
                                    word.text);
    }
    // `Name[+Part...][@TIME]`.
    const std::size_t at = word.text.find('@');
    const std::string head = word.text.substr(0, at);
    std::optional<double> speed;
    if (at != std::string::npos) {
      const std::string time = word.text.substr(at + 1);
      speed = parseTime(time);
      if (!speed) {
        throw ScriptError::invalidValue(word.line, time, word.text.substr(0, at) + " speed",
                                        "expected a time such as 500ms or 2s");
      }
    }
    std::vector<std::string> parts = split(head, '+');
    const std::optional<std::string> name = canonical(parts.front(), commandNames());
    if (!name) {
      throw ScriptError::unknownCommand(word.line, parts.front(),
                                        nearestName(parts.front(), commandNames()));
    }
    const int line = word.line;
    if (*name == "Ctrl" || *name == "Alt" || *name == "Shift") {
      chord(word, parts, speed);
    } else if (*name == "Wait") {
      wait(word, parts, speed);
    } else if (parts.size() > 1) {
      throw ScriptError::parseError(line, "'" + *name + "' takes no '+' parts", {}, word.text);
    } else if (*name == "Set") {
      set(word);
    } else if (*name == "Output") {
      const TapeToken& path = argument(word, "a file or a folder ending in /");
      if (role_ == TapeParser::Role::whole) {
        before_.push_back(located(OutputInstruction{ScriptValue::string(path.text)}, line));
      }
    } else if (*name == "Require") {
      const TapeToken& program = argument(word, "a program name");
      if (started_) {
        throw ScriptError::parseError(line, "'Require' must come before the tape's commands");
      }
      placeBefore(RequireInstruction{ScriptValue::string(program.text)}, line);
    } else if (*name == "Env") {
      const TapeToken& variable = argument(word, "a variable name and a value");
      const TapeToken& value = argument(word, "a value for " + variable.text);
      // The terminal's shell is started with the tape's environment, wherever it sets it.
      placeBefore(EnvInstruction{variable.text,
                                 ScriptValue::string(value.text, literalDollars(value.text))},
                  line);
    } else if (*name == "Type") {
      const TapeToken& text = argument(word, "text to type", TapeToken::Kind::string);
      std::string typed = text.text;
      while (next_ < tokens_.size() && tokens_[next_].kind == TapeToken::Kind::string &&
             tokens_[next_].line == line) {
        typed += tokens_[next_++].text;
      }
      action(TypeInstruction{ScriptValue::string(typed, literalDollars(typed)), false,
                             ScriptValue::number(speed.value_or(typingSpeed_))},
             line);
    } else if (*name == "Sleep") {
      const TapeToken& time = argument(word, "a time such as 500ms or 2s");
      const auto seconds = parseTime(time.text);
      if (!seconds) {
        throw ScriptError::invalidValue(line, time.text, "Sleep time",
                                        "expected a time such as 500ms or 2s");
      }
      action(WaitInstruction{ScriptValue::number(*seconds)}, line);
    } else if (*name == "ScrollUp" || *name == "ScrollDown") {
      const int count = takeCount();
      for (int i = 0; i < count; ++i) {
        action(ScrollInstruction{*name == "ScrollUp" ? ScrollDirection::up : ScrollDirection::down,
                                 ScriptValue::number(1)},
               line);
        action(WaitInstruction{ScriptValue::number(speed.value_or(typingSpeed_))}, line);
      }
    } else if (*name == "Hide") {
      action(HideInstruction{}, line);
    } else if (*name == "Show") {
      action(ShowInstruction{}, line);
    } else if (*name == "Screenshot") {
      const TapeToken& path = argument(word, "a PNG file");
      action(ScreenshotInstruction{ScriptValue::string(path.text, literalDollars(path.text))},
             line);
    } else if (*name == "Copy") {
      const TapeToken& text = argument(word, "text to copy", TapeToken::Kind::string);
      clipboard_ = text.text;
    } else if (*name == "Paste") {
      if (!clipboard_) {
        throw ScriptError::parseError(line, "'Paste' has nothing to paste: no 'Copy' before it", {},
                                      word.text);
      }
      action(TypeInstruction{ScriptValue::string(*clipboard_, literalDollars(*clipboard_)), false,
                             ScriptValue::number(0)},
             line);
    } else if (*name == "Source") {
      const TapeToken& path = argument(word, "a tape file");
      action(IncludeInstruction{path.text}, line);
    } else {
      key(keyNames().at(lowercased(*name)), speed, line);
    }
  }

  // `Ctrl+KEY`, `Ctrl+Alt+KEY`, `Ctrl+Shift+KEY`, `Alt+KEY`, `Shift+KEY`.
  void chord(const TapeToken& word, const std::vector<std::string>& parts,
             std::optional<double> speed) {
    if (parts.size() < 2 || parts.back().empty()) {
      throw ScriptError::missingArgument(word.line, word.text, "a key after its modifiers",
                                         word.text);
    }
    std::string chord;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
      const auto modifier = canonical(parts[i], {"Ctrl", "Alt", "Shift"});
      if (!modifier) {
        throw ScriptError::invalidValue(word.line, parts[i], "modifier",
                                        "expected Ctrl, Alt or Shift");
      }
      chord += lowercased(*modifier) + "+";
    }
    const std::string last = lowercased(parts.back());
    const auto named = keyNames().find(last);
    chord += named != keyNames().end() ? named->second : last;
    key(chord, speed, word.line);
  }

  // `Wait[+Screen][+Line][@TIME] [/REGEX/]`.
  void wait(const TapeToken& word, const std::vector<std::string>& parts,
            std::optional<double> timeout) {
    WaitForTextInstruction wait{ScriptValue::string(kDefaultWaitPattern)};
    wait.lastLine = true;
    for (std::size_t i = 1; i < parts.size(); ++i) {
      const auto scope = canonical(parts[i], {"Screen", "Line"});
      if (!scope) {
        throw ScriptError::invalidValue(word.line, parts[i], "Wait scope",
                                        "expected Screen or Line");
      }
      wait.lastLine = *scope == "Line";
    }
    if (next_ < tokens_.size() && tokens_[next_].kind == TapeToken::Kind::regex &&
        tokens_[next_].line == word.line) {
      const TapeToken& pattern = tokens_[next_++];
      try {
        std::regex check(pattern.text, std::regex::ECMAScript);
      } catch (const std::regex_error&) {
        throw ScriptError::invalidValue(word.line, pattern.text, "Wait pattern",
                                        "expected a regular expression");
      }
      wait.pattern = ScriptValue::string(pattern.text, literalDollars(pattern.text));
    } else {
      wait.pattern = ScriptValue::string(kDefaultWaitPattern, literalDollars(kDefaultWaitPattern));
    }
    wait.timeout = ScriptValue::number(timeout.value_or(kDefaultWaitTimeout));
    action(std::move(wait), word.line);
  }

  // A key pressed `count` times (the number after it, 1 without), `speed` apart.
  void key(const std::string& name, std::optional<double> speed, int line) {
    const int count = takeCount();
    for (int i = 0; i < count; ++i) {
      action(KeyInstruction{ScriptValue::string(name)}, line);
      action(WaitInstruction{ScriptValue::number(speed.value_or(typingSpeed_))}, line);
    }
  }

  void set(const TapeToken& word) {
    const TapeToken& nameToken = argument(word, "a setting name and a value");
    const auto name = canonical(nameToken.text, settingNames());
    if (!name) {
      const auto nearest = nearestName(nameToken.text, settingNames());
      throw ScriptError::parseError(
          word.line,
          "Unknown setting '" + nameToken.text + "'" +
              (nearest ? "; did you mean '" + *nearest + "'?" : std::string()),
          {}, nameToken.text);
    }
    const TapeToken& value = argument(word, "a value for " + *name);
    if (*name == "TypingSpeed") {
      const auto speed = parseTime(value.text);
      if (!speed) {
        throw ScriptError::invalidValue(word.line, value.text, "TypingSpeed",
                                        "expected a time such as 50ms");
      }
      typingSpeed_ = *speed;
      if (started_ || role_ == TapeParser::Role::sourced) {
        action(SetInstruction{"typing-delay", ScriptValue::number(*speed)}, word.line);
      }
      return;
    }
    if (role_ == TapeParser::Role::sourced) {
      return;  // the sourcing tape's terminal is dressed already
    }
    if (started_) {
      throw ScriptError::parseError(word.line,
                                    "'Set " + *name +
                                        "' must come before the tape's commands "
                                        "(only TypingSpeed may change later)",
                                    {}, nameToken.text);
    }
    checkValue(*name, value);
    settings_[*name] = TapeSetting{nameToken, value};
  }

  // Values are checked where the tape says them, so the error points there.
  void checkValue(const std::string& name, const TapeToken& value) const {
    static const std::vector<std::string> kWholeNumbers = {
        "Width", "Height", "Padding", "Margin", "WindowBarSize", "BorderRadius", "Framerate"};
    static const std::vector<std::string> kNumbers = {"FontSize", "LineHeight", "LetterSpacing",
                                                      "PlaybackSpeed"};
    if (std::find(kWholeNumbers.begin(), kWholeNumbers.end(), name) != kWholeNumbers.end()) {
      const auto number = parseCount(value.text);
      if (!number) {
        throw ScriptError::invalidValue(value.line, value.text, name,
                                        "expected a whole number of pixels");
      }
    } else if (std::find(kNumbers.begin(), kNumbers.end(), name) != kNumbers.end()) {
      if (!parseNumber(value.text)) {
        throw ScriptError::invalidValue(value.line, value.text, name, "expected a number");
      }
    } else if (name == "WindowBar") {
      if (!canonical(value.text, {"Colorful", "ColorfulRight", "Rings", "RingsRight"})) {
        throw ScriptError::invalidValue(value.line, value.text, name,
                                        "expected Colorful, ColorfulRight, Rings or RingsRight");
      }
    } else if (name == "CursorBlink") {
      if (!canonical(value.text, {"true", "false"})) {
        throw ScriptError::invalidValue(value.line, value.text, name, "expected true or false");
      }
    } else if (name == "LoopOffset") {
      static const std::regex kOffset(R"(\d+(\.\d+)?%?)");
      if (!std::regex_match(value.text, kOffset)) {
        throw ScriptError::invalidValue(value.line, value.text, name,
                                        "expected a frame number or a percentage such as 50%");
      }
    }
  }

  // The settings and the terminal the tape's commands run in, after its outputs, requirements
  // and environment.
  void dressTerminal(std::vector<LocatedInstruction>& out) {
    const int line = firstCommandLine_.value_or(lastLine());
    const auto text = [&](const std::string& name) -> std::optional<std::string> {
      const auto found = settings_.find(name);
      return found == settings_.end() ? std::nullopt : std::optional(found->second.value.text);
    };
    const auto number = [&](const std::string& name, double fallback) {
      const auto value = text(name);
      return value ? *parseNumber(*value) : fallback;
    };
    const auto set = [&](const std::string& name, ScriptValue value) {
      out.push_back(located(SetInstruction{name, std::move(value)}, line));
    };
    const int width = static_cast<int>(number("Width", kDefaultWidth));
    const int height = static_cast<int>(number("Height", kDefaultHeight));
    const int margin = static_cast<int>(number("Margin", 0));
    const int padding = static_cast<int>(number("Padding", kDefaultPadding));
    const auto bar = text("WindowBar");
    const int barSize = bar ? static_cast<int>(number("WindowBarSize", kDefaultWindowBarSize)) : 0;
    // Width x Height is the whole frame: the window bar and the margin take their part of it.
    const int terminalWidth = width - 2 * margin;
    const int terminalHeight = height - 2 * margin - barSize;
    if (terminalWidth - 2 * padding < kSmallestText ||
        terminalHeight - 2 * padding < kSmallestText / 2) {
      const auto culprit = settings_.count("Width") != 0 ? settings_.at("Width").value
                                                         : settings_.begin()->second.value;
      throw annotate(
          ScriptError::parseError(
              culprit.line, "A frame of " + std::to_string(width) + "x" + std::to_string(height) +
                                " leaves no room for text "
                                "inside Padding " +
                                std::to_string(padding) + ", Margin " + std::to_string(margin) +
                                (barSize > 0 ? " and the window bar" : "")),
          culprit);
    }
    set("max-width", ScriptValue::number(width));
    set("include-title-bar", ScriptValue::string("false"));
    set("show-cursor", ScriptValue::string("false"));
    set("transition", ScriptValue::number(0));
    set("fps", ScriptValue::number(frameRate(number("Framerate", 0))));
    set("typing-delay", ScriptValue::number(initialTypingSpeed_));
    set("terminal-width", ScriptValue::number(terminalWidth));
    set("terminal-height", ScriptValue::number(terminalHeight));
    set("terminal-padding", ScriptValue::number(padding));
    set("terminal-font-size", ScriptValue::number(number("FontSize", kDefaultFontSize)));
    set("terminal-theme", ScriptValue::string(text("Theme").value_or("Brimble")));
    set("terminal-shell", ScriptValue::string(text("Shell").value_or("bash")));
    set("terminal-prompt", ScriptValue::string(kPrompt, literalDollars(kPrompt)));
    if (const auto font = text("FontFamily")) {
      set("terminal-font", ScriptValue::string(*font));
    }
    if (const auto lineHeight = text("LineHeight")) {
      set("line-height", ScriptValue::number(*parseNumber(*lineHeight)));
    }
    if (const auto blink = text("CursorBlink")) {
      set("cursor-blink", ScriptValue::string(lowercased(*blink)));
    }
    if (bar) {
      std::string style =
          lowercased(*canonical(*bar, {"Colorful", "ColorfulRight", "Rings", "RingsRight"}));
      if (const std::size_t right = style.find("right"); right != std::string::npos) {
        style.insert(right, "-");
      }
      set("window-bar", ScriptValue::string(style));
      set("window-bar-size", ScriptValue::number(barSize));
    }
    if (margin > 0) {
      set("margin", ScriptValue::number(margin));
    }
    if (const auto fill = text("MarginFill")) {
      set("margin-fill", ScriptValue::string(*fill));
    }
    if (const auto radius = text("BorderRadius")) {
      set("border-radius", ScriptValue::number(*parseNumber(*radius)));
    }
    if (const auto speed = text("PlaybackSpeed")) {
      set("playback-speed", ScriptValue::number(*parseNumber(*speed)));
    }
    if (const auto offset = text("LoopOffset")) {
      set("loop-offset", ScriptValue::string(*offset));
    }
    if (const auto spacing = settings_.find("LetterSpacing"); spacing != settings_.end()) {
      warnings_.push_back("Warning: line " + std::to_string(spacing->second.name.line) +
                          ": LetterSpacing is left as the font spaces its letters (the "
                          "terminal has no setting for it)");
    }

    out.push_back(located(OpenInstruction{ScriptValue::string("Terminal")}, line));
    out.push_back(located(
        CaptureWindowInstruction{{WindowReference::Kind::appName, ScriptValue::string("Terminal")},
                                 kTerminalVariable},
        line));
    // Recording starts with the prompt on screen, as the tape's first frame shows it.
    WaitForTextInstruction prompt{
        ScriptValue::string(kDefaultWaitPattern, literalDollars(kDefaultWaitPattern))};
    prompt.lastLine = true;
    out.push_back(located(std::move(prompt), line));
    // A tape that starts hidden records from its `Show`.
    const bool startsHidden =
        !body_.empty() && std::holds_alternative<HideInstruction>(body_.front().instruction);
    if (startsHidden) {
      out.push_back(std::move(body_.front()));
      body_.erase(body_.begin());
    }
    out.push_back(located(
        RecordInstruction{RecordTarget{RecordTarget::Kind::window, kTerminalVariable, std::nullopt},
                          std::nullopt, true, false},
        line));
  }

  // The frame rates the engine records at: the nearest to the tape's, 30 when it names none.
  static int frameRate(double asked) {
    if (asked <= 0) {
      return 30;
    }
    constexpr std::array<int, 4> kRates = {12, 24, 30, 60};
    return *std::min_element(kRates.begin(), kRates.end(), [&](int a, int b) {
      return std::abs(a - asked) < std::abs(b - asked);
    });
  }

  // The argument after a command: the next token on its line, of `kind` when one is given.
  const TapeToken& argument(const TapeToken& command, const std::string& what,
                            std::optional<TapeToken::Kind> kind = std::nullopt) {
    if (next_ >= tokens_.size() || tokens_[next_].line != command.line) {
      throw ScriptError::missingArgument(command.line, command.text, what, command.text);
    }
    const TapeToken& token = tokens_[next_];
    if (kind && token.kind != *kind) {
      throw ScriptError::missingArgument(command.line, command.text, what + " in quotes",
                                         token.text);
    }
    ++next_;
    return token;
  }

  // The count after a key (`Backspace 3`), 1 when none follows on its line.
  int takeCount() {
    if (next_ < tokens_.size() && tokens_[next_].line == tokens_[next_ - 1].line &&
        tokens_[next_].kind == TapeToken::Kind::word) {
      if (const auto count = parseCount(tokens_[next_].text)) {
        ++next_;
        if (*count > 10000) {
          throw ScriptError::invalidValue(tokens_[next_ - 1].line, tokens_[next_ - 1].text, "count",
                                          "expected at most 10000");
        }
        return *count;
      }
    }
    return 1;
  }

  template <typename Instruction>
  void placeBefore(Instruction instruction, int line) {
    (role_ == TapeParser::Role::whole ? before_ : body_)
        .push_back(located(std::move(instruction), line));
  }

  template <typename Instruction>
  void action(Instruction instruction, int line) {
    if (!started_) {
      started_ = true;
      firstCommandLine_ = line;
      initialTypingSpeed_ = typingSpeed_;
    }
    body_.push_back(located(std::move(instruction), line));
  }

  template <typename Instruction>
  LocatedInstruction located(Instruction instruction, int line) const {
    return LocatedInstruction{ScriptInstruction(std::move(instruction)), line,
                              std::string(trimmed(tapeLine(source_, line)))};
  }

  ScriptError annotate(const ScriptError& error, const TapeToken& fallback) const {
    // The caret goes under the token the error is about, on the line it was found.
    int column = fallback.column;
    const std::string& subject = error.subject();
    if (!subject.empty()) {
      for (const TapeToken& token : tokens_) {
        if (token.line == error.line() && token.text.find(subject) != std::string::npos) {
          column = token.column;
          if (token.text == subject) {
            break;
          }
        }
      }
    }
    return ScriptError::annotated(error, column, tapeLine(source_, error.line()));
  }

  int lastLine() const { return tokens_.empty() ? 1 : tokens_.back().line; }

  // A `$` in a tape is the shell's, never a script variable.
  static std::vector<std::size_t> literalDollars(const std::string& text) {
    std::vector<std::size_t> positions;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '$') {
        positions.push_back(i);
      }
    }
    return positions;
  }

  static std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
      const std::size_t end = text.find(separator, start);
      parts.push_back(text.substr(start, end - start));
      if (end == std::string::npos) {
        return parts;
      }
      start = end + 1;
    }
  }

  std::string_view source_;
  TapeParser::Role role_;
  std::vector<TapeToken> tokens_;
  std::size_t next_ = 0;
  std::vector<LocatedInstruction> before_;
  std::vector<LocatedInstruction> body_;
  std::map<std::string, TapeSetting> settings_;
  std::vector<std::string> warnings_;
  std::optional<std::string> clipboard_;
  std::optional<int> firstCommandLine_;
  double typingSpeed_ = kDefaultTypingSpeed;
  double initialTypingSpeed_ = kDefaultTypingSpeed;
  bool started_ = false;
};

}  // namespace

TapeScript TapeParser::parse(std::string_view source, Role role) {
  return TapeReader(source, role).read();
}

bool isTapeFile(const std::filesystem::path& file) {
  return lowercased(file.extension().string()) == ".tape";
}

}  // namespace brimble
