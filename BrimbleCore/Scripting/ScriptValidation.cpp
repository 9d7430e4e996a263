#include "BrimbleCore/Scripting/ScriptValidation.h"

#include <optional>
#include <variant>

#include "BrimbleCore/Scripting/PacePreset.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"

namespace brimble {
namespace {

const std::string kSimulatorUnavailable = "Simulator capture is not available on this platform.";
const std::string kSafariUnavailable =
    "Safari is not available on this platform; use 'browser chrome'";

// The text a value will certainly have when the line runs, when it has no variables in it.
std::optional<std::string> literalText(const ScriptValue& value) {
  switch (value.kind) {
    case ScriptValue::Kind::number:
      return formatScriptNumber(value.value);
    case ScriptValue::Kind::string:
      if (value.text.find('$') == std::string::npos) {
        return value.text;
      }
      break;
    case ScriptValue::Kind::variable:
    case ScriptValue::Kind::variableIndex:
      break;
  }
  return std::nullopt;
}

std::string expectedValues(const ScriptSettingSpec& setting) {
  if (!setting.allowedValues.empty()) {
    std::string list;
    for (const std::string& value : setting.allowedValues) {
      list += list.empty() ? "expected: " : ", ";
      list += value;
    }
    return list;
  }
  if (setting.type == "integer") {
    return "expected an integer";
  }
  if (setting.type == "number") {
    return "expected a number";
  }
  return "expected true or false";
}

class Checker {
 public:
  void check(const LocatedInstruction& located) {
    const std::string prefix = "Warning: line " + std::to_string(located.line) + ": ";
    if (renderLine_ && !reportedUnreachable_) {
      warnings_.push_back(prefix + "unreachable code after 'render' on line " +
                          std::to_string(*renderLine_));
      reportedUnreachable_ = true;
    }
    const ScriptInstruction& instruction = located.instruction;
    if (const auto* set = std::get_if<SetInstruction>(&instruction)) {
      checkSetting(*set, prefix);
    } else if (const auto* record = std::get_if<RecordInstruction>(&instruction)) {
      hasRecord_ = true;
      if (record->target.kind == RecordTarget::Kind::simulator) {
        warnings_.push_back(prefix + kSimulatorUnavailable);
      }
    } else if (std::holds_alternative<TapInstruction>(instruction)) {
      warnings_.push_back(prefix + kSimulatorUnavailable);
    } else if (const auto* browser = std::get_if<BrowserInstruction>(&instruction)) {
      if (browser->engine == BrowserEngine::safari) {
        warnings_.push_back(prefix + kSafariUnavailable);
      }
    } else if (std::holds_alternative<RenderInstruction>(instruction) && !renderLine_) {
      renderLine_ = located.line;
    }
  }

  ScriptValidation finish(int instructionCount) {
    if (!hasRecord_) {
      warnings_.push_back("Warning: script has no 'record' commands");
    }
    return {instructionCount, renderLine_.has_value(), std::move(warnings_)};
  }

 private:
  void checkSetting(const SetInstruction& set, const std::string& prefix) {
    if (!isKnownSetting(set.name)) {
      warnings_.push_back(prefix + "unknown setting '" + set.name + "'");
      return;
    }
    const auto text = literalText(set.value);
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
    const ScriptSettingSpec* known = findScriptSetting(set.name);
    if (known != nullptr && !isAcceptedSettingValue(*known, *text)) {
      warnings_.push_back(prefix + "invalid value '" + *text + "' for setting '" + set.name +
                          "' (" + expectedValues(*known) + ")");
    }
  }

  std::vector<std::string> warnings_;
  std::optional<int> renderLine_;
  bool reportedUnreachable_ = false;
  bool hasRecord_ = false;
};

}  // namespace

std::vector<std::string> ScriptValidation::lines() const {
  std::vector<std::string> result = warnings;
  result.push_back("Valid: " + std::to_string(instructionCount) + " instructions");
  if (explicitRender) {
    result.push_back("  Explicit render: yes");
  }
  return result;
}

ScriptValidation validate(std::string_view source) {
  const std::vector<LocatedInstruction> instructions = ScriptParser::parse(source);
  Checker checker;
  for (const LocatedInstruction& located : instructions) {
    checker.check(located);
  }
  return checker.finish(static_cast<int>(instructions.size()));
}

}  // namespace brimble
