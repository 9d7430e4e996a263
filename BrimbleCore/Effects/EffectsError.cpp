#include "BrimbleCore/Effects/EffectsError.h"

#include <sstream>

namespace brimble {

EffectsError EffectsError::invalidColor(const std::string& setting, const std::string& value) {
  return {Code::invalidColor, "Invalid colour '" + value + "' for '" + setting +
                                  "': expected a hex colour such as #1a1a2e"};
}

EffectsError EffectsError::invalidSetting(const std::string& setting, const std::string& value,
                                          const std::string& expected) {
  return {Code::invalidSetting,
          "Invalid value '" + value + "' for '" + setting + "': expected " + expected};
}

EffectsError EffectsError::invalidSetting(const std::string& setting, double value,
                                          const std::string& expected) {
  std::ostringstream text;
  text << value;
  return invalidSetting(setting, text.str(), expected);
}

EffectsError EffectsError::drawingFailed(const std::string& reason) {
  return {Code::drawingFailed, "Drawing failed: " + reason};
}

}  // namespace brimble
