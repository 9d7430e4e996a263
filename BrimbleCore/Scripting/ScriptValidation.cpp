#include "BrimbleCore/Scripting/ScriptValidation.h"

#include <cstdlib>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <variant>

#include "BrimbleCore/Scripting/NearestName.h"
#include "BrimbleCore/Scripting/PacePreset.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptFrontEnd.h"
#include "BrimbleCore/Scripting/ScriptIncludes.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

// The text a value will certainly have when the line runs, when it has no variables in it.
std::optional<std::string> literalText(const ScriptValue& value) {
  switch (value.kind) {
    case ScriptValue::Kind::number:
      return formatScriptNumber(value.value);
    case ScriptValue::Kind::string:
      if (value.namesInText().empty()) {
        return value.text;
      }
      break;
    case ScriptValue::Kind::variable:
    case ScriptValue::Kind::variableIndex:
      break;
  }
  return std::nullopt;
}

std::string expectedValues(const ScriptSettingInfo& setting) {
  if (!setting.expected.empty()) {
    return "expected " + setting.expected;
  }
  if (!setting.allowedValues.empty()) {
    std::string list;
    for (const std::string& value : setting.allowedValues) {
      list += list.empty() ? "expected: " : ", ";
      list += value;
    }
    return list;
  }
  const std::string atLeast =
      setting.minimum ? " of at least " + formatScriptNumber(*setting.minimum) : "";
  if (setting.type == "integer") {
    return "expected an integer" + atLeast;
  }
  if (setting.type == "number") {
    return "expected a number" + atLeast;
  }
  return "expected true or false";
}

using NamedValues = std::vector<const ScriptValue*>;

void collect(const ScriptValue& value, NamedValues& into) {
  into.push_back(&value);
}
void collect(const std::optional<ScriptValue>& value, NamedValues& into) {
  if (value) {
    into.push_back(&*value);
  }
}
void collect(const std::optional<ScriptRect>& rect, NamedValues& into) {
  if (rect) {
    for (const ScriptValue* field : {&rect->x, &rect->y, &rect->width, &rect->height}) {
      into.push_back(field);
    }
  }
}

// Every argument of an instruction that may name a variable, found by the field names the
// instruction types share, so a new command needs no entry here.
template <typename Instruction>
NamedValues argumentsOf(const Instruction& instruction) {
  NamedValues values;
  const auto add = [&](const auto& field) { collect(field, values); };
  if constexpr (requires { instruction.value; })
    add(instruction.value);
  if constexpr (requires { instruction.app; })
    add(instruction.app);
  if constexpr (requires { instruction.window.value; })
    add(instruction.window.value);
  if constexpr (requires { instruction.width; })
    add(instruction.width);
  if constexpr (requires { instruction.height; })
    add(instruction.height);
  if constexpr (requires { instruction.duration; })
    add(instruction.duration);
  if constexpr (requires { instruction.text; })
    add(instruction.text);
  if constexpr (requires { instruction.delay; })
    add(instruction.delay);
  if constexpr (requires { instruction.x; })
    add(instruction.x);
  if constexpr (requires { instruction.y; })
    add(instruction.y);
  if constexpr (requires { instruction.ticks; })
    add(instruction.ticks);
  if constexpr (requires { instruction.keyChord; })
    add(instruction.keyChord);
  if constexpr (requires { instruction.seconds; })
    add(instruction.seconds);
  if constexpr (requires { instruction.command; })
    add(instruction.command);
  if constexpr (requires { instruction.title; })
    add(instruction.title);
  if constexpr (requires { instruction.subtitle; })
    add(instruction.subtitle);
  if constexpr (requires { instruction.button; })
    add(instruction.button);
  if constexpr (requires { instruction.color; })
    add(instruction.color);
  if constexpr (requires { instruction.match; })
    add(instruction.match);
  if constexpr (requires { instruction.target.rect; }) {
    add(instruction.target.rect);
  } else if constexpr (requires { instruction.target; }) {
    add(instruction.target);
  }
  if constexpr (requires { instruction.timeout; })
    add(instruction.timeout);
  if constexpr (requires { instruction.url; })
    add(instruction.url);
  if constexpr (requires { instruction.scale; })
    add(instruction.scale);
  if constexpr (requires { instruction.program; })
    add(instruction.program);
  if constexpr (requires { instruction.path; })
    add(instruction.path);
  if constexpr (requires { instruction.pattern; })
    add(instruction.pattern);
  return values;
}

// The variable a record or spotlight target reads, beside its ScriptValues.
template <typename Instruction>
std::optional<std::string> targetVariableOf(const Instruction&) {
  return std::nullopt;
}
std::optional<std::string> namedVariable(const std::string& name) {
  return name.empty() ? std::nullopt : std::optional<std::string>(name);
}
std::optional<std::string> targetVariableOf(const RecordInstruction& record) {
  return namedVariable(record.target.variable);
}
std::optional<std::string> targetVariableOf(const SpotlightInstruction& spotlight) {
  return namedVariable(spotlight.target.variable);
}
std::optional<std::string> targetVariableOf(const SpotlightShiftInstruction& spotlight) {
  return namedVariable(spotlight.target.variable);
}

// The variable an instruction defines with `as $v`.
template <typename Instruction>
std::optional<std::string> definedVariableOf(const Instruction& instruction) {
  if constexpr (requires { instruction.variable; }) {
    return instruction.variable;
  }
  return std::nullopt;
}

// The 1-based column at which `word` first appears in `source` (compared without regard to
// case, as commands and keys are), else 1.
int columnOf(const std::string& source, const std::string& word) {
  const std::size_t at = lowercased(source).find(lowercased(word));
  if (at == std::string::npos || word.empty()) {
    return 1;
  }
  int column = 1;
  for (std::size_t i = 0; i < at; ++i) {
    // UTF-8 continuation bytes belong to the character before them.
    if ((static_cast<unsigned char>(source[i]) & 0xC0) != 0x80) {
      ++column;
    }
  }
  return column;
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates) {
  const auto nearest = nearestName(word, candidates);
  return nearest ? "; did you mean '" + *nearest + "'?" : std::string();
}

class Checker {
 public:
  void check(const LocatedInstruction& located) {
    located_ = &located;
    const std::string prefix = "Warning: line " + std::to_string(located.line) + ": ";
    if (renderLine_ && !reportedUnreachable_) {
      warnings_.push_back(prefix + "unreachable code after 'render' on line " +
                          std::to_string(*renderLine_));
      reportedUnreachable_ = true;
    }
    const ScriptInstruction& instruction = located.instruction;
    checkVariables(instruction, prefix);
    if (const auto unavailable = unavailableOnThisPlatform(instruction)) {
      warnings_.push_back(prefix + *unavailable);
    }
    if (const auto* set = std::get_if<SetInstruction>(&instruction)) {
      checkSetting(*set, prefix);
    } else if (const auto* output = std::get_if<OutputInstruction>(&instruction)) {
      if (!outputNamed_) {
        outputs_.clear();
      }
      noteOutput(output->path);
    } else if (std::holds_alternative<RecordInstruction>(instruction)) {
      hasRecord_ = true;
    } else if (const auto* key = std::get_if<KeyInstruction>(&instruction)) {
      checkKey(*key);
    } else if (const auto* wait = std::get_if<WaitInstruction>(&instruction)) {
      checkWait(wait->seconds, prefix);
    } else if (const auto* idle = std::get_if<WaitForIdleInstruction>(&instruction)) {
      checkWait(idle->seconds, prefix);
    } else if (const auto* waitForText = std::get_if<WaitForTextInstruction>(&instruction)) {
      checkPattern(waitForText->pattern);
    } else if (std::holds_alternative<RenderInstruction>(instruction) && !renderLine_) {
      renderLine_ = located.line;
    }
  }

  void finish(ParsedScript& script) {
    if (!hasRecord_) {
      warnings_.push_back("Warning: script has no 'record' commands");
    }
    script.instructionCount = static_cast<int>(script.instructions.size());
    script.explicitRender = renderLine_.has_value();
    script.output = std::move(output_);
    if (outputsKnown_) {
      script.outputs = std::move(outputs_);
    }
    script.warnings = std::move(warnings_);
  }

 private:
  // What the script would otherwise run with is not what it says, so the check stops it before
  // anything opens.
  [[noreturn]] void fail(const std::string& message, const std::string& about) const {
    throw ScriptError::annotated(ScriptError::parseError(located_->line, message),
                                 columnOf(located_->source, about), located_->source);
  }

  void noteOutput(const ScriptValue& value) {
    outputNamed_ = true;
    if (const auto text = literalText(value)) {
      outputs_.push_back(*text);
    } else {
      outputsKnown_ = false;
    }
  }

  void checkSetting(const SetInstruction& set, const std::string& prefix) {
    if (!isKnownSetting(set.name)) {
      fail("Unknown setting '" + set.name + "'" + didYouMean(set.name, scriptSettingNames()),
           set.name);
    }
    const auto text = literalText(set.value);
    if (set.name == "output") {
      output_ = text;
      outputs_.clear();
      outputsKnown_ = true;
      noteOutput(set.value);
      for (const ScriptValue& more : set.moreValues) {
        noteOutput(more);
      }
    }
    if (!text) {
      return;
    }
    if (set.name == "pace") {
      if (!pacePresetNamed(*text)) {
        warnings_.push_back(prefix + "unknown pace preset '" + *text +
                            "' (expected: " + pacePresetNames() + ")");
      }
      return;
    }
    const ScriptSettingInfo* known = findScriptSetting(set.name);
    if (known != nullptr && !isAcceptedSettingValue(*known, *text)) {
      fail("Invalid value '" + *text + "' for setting '" + set.name + "' (" +
               expectedValues(*known) + ")" + didYouMean(*text, known->allowedValues),
           *text);
    }
  }

  // A variable read before anything could have set it fails the line (`type $v`) or is typed
  // as written.
  void checkVariables(const ScriptInstruction& instruction, const std::string& prefix) {
    std::vector<std::string> read;
    std::vector<std::string> inText;
    std::optional<std::string> defined;
    const bool isRun = std::holds_alternative<RunInstruction>(instruction);
    std::visit(
        [&](const auto& command) {
          for (const ScriptValue* value : argumentsOf(command)) {
            if (value->kind == ScriptValue::Kind::variable ||
                value->kind == ScriptValue::Kind::variableIndex) {
              read.push_back(value->text);
            }
            for (std::string& name : value->namesInText()) {
              inText.push_back(std::move(name));
            }
          }
          if (auto variable = targetVariableOf(command)) {
            read.push_back(std::move(*variable));
          }
          defined = definedVariableOf(command);
        },
        instruction);
    for (const std::string& name : read) {
      if (!defined_.contains(name) && warnedVariables_.insert(name).second) {
        warnings_.push_back(prefix + "variable '$" + name +
                            "' is used before anything sets it (with 'as $" + name + "' or 'run')");
      }
    }
    for (const std::string& name : inText) {
      // In a shell command, a name the script does not set is the shell's own variable.
      if (defined_.contains(name) || (isRun && std::getenv(name.c_str()) != nullptr)) {
        continue;
      }
      if (warnedVariables_.insert(name).second) {
        warnings_.push_back(prefix + "'$" + name + "' names no variable set before this line, " +
                            (isRun ? "so the shell reads it" : "so it stays as written") +
                            " (a dollar sign that names no variable is written \\$)");
      }
    }
    if (defined) {
      defined_.insert(*defined);
      defined_.insert(*defined + "_stderr");
    }
    if (std::holds_alternative<RunInstruction>(instruction)) {
      defined_.insert("_exitcode");
    }
  }

  void checkKey(const KeyInstruction& key) {
    const auto text = literalText(key.keyChord);
    if (!text) {
      return;
    }
    const KeyChord chord = InputSimulator::parseKeyChord(*text);
    // A shortcut sent without one of its modifiers does something else.
    for (const std::string& modifier : chord.unknownModifiers) {
      fail("Unknown modifier '" + modifier + "' in '" + *text +
               "' (known: cmd, ctrl, alt, shift, super)" +
               didYouMean(modifier, scriptModifierNames()),
           *text);
    }
    if (!InputSimulator::keyCodeForName(chord.key)) {
      fail("Unknown key '" + chord.key + "' in '" + *text + "'" +
               didYouMean(chord.key, scriptKeyNames()),
           *text);
    }
  }

  // A pattern that is no regular expression would stop the script only at its line, after the
  // lines before it ran.
  void checkPattern(const ScriptValue& pattern) {
    const auto text = literalText(pattern);
    if (!text) {
      return;
    }
    try {
      std::regex(*text, std::regex::ECMAScript);
    } catch (const std::regex_error& error) {
      fail("Invalid wait-for-text pattern '" + *text + "': " + error.what(), *text);
    }
  }

  void checkWait(const ScriptValue& seconds, const std::string& prefix) {
    if (seconds.kind == ScriptValue::Kind::number && seconds.value < 0) {
      warnings_.push_back(prefix + "a negative wait (" + formatScriptNumber(seconds.value) +
                          " s) waits nothing");
    }
  }

  const LocatedInstruction* located_ = nullptr;
  std::vector<std::string> warnings_;
  std::set<std::string, std::less<>> defined_;
  std::set<std::string, std::less<>> warnedVariables_;
  std::optional<int> renderLine_;
  std::optional<std::string> output_;
  std::vector<std::string> outputs_;
  bool outputNamed_ = false;
  bool outputsKnown_ = true;
  bool reportedUnreachable_ = false;
  bool hasRecord_ = false;
};

}  // namespace

ParsedScript validate(std::string_view source, const std::filesystem::path& scriptFile) {
  ParsedScript script;
  ParsedSource parsed = parseScriptSource(source, scriptFile);
  script.instructions = expandIncludes(std::move(parsed.instructions), scriptFile);
  Checker checker;
  for (const LocatedInstruction& located : script.instructions) {
    checker.check(located);
  }
  checker.finish(script);
  script.warnings.insert(script.warnings.begin(), parsed.warnings.begin(), parsed.warnings.end());
  return script;
}

}  // namespace brimble
