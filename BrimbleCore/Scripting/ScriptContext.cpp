#include "BrimbleCore/Scripting/ScriptContext.h"

#include <algorithm>
#include <cmath>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {
ScriptContext::ScriptContext() {
  for (const auto& [name, value] : initialSettings()) {
    settings_.emplace(name, value);
  }
}

const std::string* ScriptContext::setting(std::string_view name) const {
  const auto found = settings_.find(name);
  return found == settings_.end() ? nullptr : &found->second;
}

void ScriptContext::setSetting(const std::string& name, std::string value) {
  settings_.insert_or_assign(name, std::move(value));
}

void ScriptContext::applyPace(PacePreset preset) {
  for (const auto& [name, value] : presetSettings(preset)) {
    setSetting(name, value);
  }
}

const std::string* ScriptContext::usableSetting(std::string_view name) const {
  const std::string* text = setting(name);
  if (text == nullptr) {
    return nullptr;
  }
  const ScriptSettingInfo* known = findScriptSetting(name);
  return known == nullptr || isAcceptedSettingValue(*known, *text) ? text : nullptr;
}

bool ScriptContext::boolSetting(std::string_view name, bool defaultValue) const {
  const std::string* text = usableSetting(name);
  return text == nullptr ? defaultValue : boolFromSettingText(*text).value_or(defaultValue);
}

int ScriptContext::intSetting(std::string_view name, int defaultValue) const {
  const std::string* text = usableSetting(name);
  return text == nullptr ? defaultValue : intFromSettingText(*text).value_or(defaultValue);
}

double ScriptContext::doubleSetting(std::string_view name, double defaultValue) const {
  const std::string* text = usableSetting(name);
  return text == nullptr ? defaultValue : doubleFromSettingText(*text).value_or(defaultValue);
}

const ScriptVariableValue* ScriptContext::variable(std::string_view name) const {
  const auto found = variables_.find(name);
  return found == variables_.end() ? nullptr : &found->second;
}

void ScriptContext::setVariable(const std::string& name, ScriptVariableValue value) {
  variables_.insert_or_assign(name, std::move(value));
}

void ScriptContext::removeVariable(std::string_view name) {
  if (const auto found = variables_.find(name); found != variables_.end()) {
    variables_.erase(found);
  }
}

std::string ScriptContext::resolve(const ScriptValue& value, int line) const {
  switch (value.kind) {
    case ScriptValue::Kind::string:
      return interpolateVariables(value.text, line, value.literalDollars);
    case ScriptValue::Kind::number:
      return formatScriptNumber(value.value);
    case ScriptValue::Kind::variable:
    case ScriptValue::Kind::variableIndex:
      break;
  }
  const ScriptVariableValue* found = variable(value.text);
  if (found == nullptr) {
    throw ScriptError::undefinedVariable(line, value.text);
  }
  if (value.kind == ScriptValue::Kind::variable) {
    return found->stringValue();
  }
  if (auto text = found->lineAt(value.index)) {
    return std::move(*text);
  }
  throw ScriptError::runtimeError(line, value.description() + " out of range");
}

double ScriptContext::resolveDouble(const ScriptValue& value, int line) const {
  if (value.kind == ScriptValue::Kind::number) {
    return value.value;
  }
  const std::string text = resolve(value, line);
  if (const auto number = doubleFromSettingText(text)) {
    return *number;
  }
  throw ScriptError::runtimeError(line, "Expected number, got '" + text + "'");
}

int ScriptContext::resolveInt(const ScriptValue& value, int line) const {
  const double resolved = resolveDouble(value, line);
  if (!std::isfinite(resolved) || std::abs(resolved) > 1e9) {
    throw ScriptError::runtimeError(line, "Expected number, got '" + resolve(value, line) + "'");
  }
  return static_cast<int>(std::lround(resolved));
}

std::uint32_t ScriptContext::resolveWindowID(const std::string& name, int line) const {
  const ScriptVariableValue* value = variable(name);
  if (value == nullptr) {
    throw ScriptError::undefinedVariable(line, name);
  }
  if (const auto id = value->windowIDValue()) {
    return *id;
  }
  throw ScriptError::runtimeError(
      line, "$" + name + " holds no window (bind one with capture-window ... as $" + name + ")");
}

std::string ScriptContext::interpolateVariables(std::string_view text, int line,
                                                std::span<const std::size_t> literalDollars) const {
  std::string result;
  result.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const std::size_t dollar = text.find('$', i);
    if (dollar == std::string_view::npos) {
      result.append(text.substr(i));
      break;
    }
    result.append(text.substr(i, dollar - i));
    if (std::find(literalDollars.begin(), literalDollars.end(), dollar) != literalDollars.end()) {
      result += '$';
      i = dollar + 1;
      continue;
    }
    std::size_t end = dollar + 1;
    while (end < text.size() && isVariableNameCharacter(text[end])) {
      ++end;
    }
    const std::string_view name = text.substr(dollar + 1, end - dollar - 1);
    if (name.empty()) {
      result += '$';
    } else if (const ScriptVariableValue* found = variable(name)) {
      result += found->stringValue();
    } else {
      result.append(text.substr(dollar, end - dollar));
      logLine("BrimbleCore: Warning: line " + std::to_string(line) + ": undefined variable '$" +
              std::string(name) + "'");
    }
    i = end;
  }
  return result;
}

}  // namespace brimble
