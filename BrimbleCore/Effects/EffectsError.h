#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Why the render path could not make the frames it was asked for.
class EffectsError : public std::runtime_error {
 public:
  enum class Code { invalidColor, invalidSetting, drawingFailed };

  /// `setting` ("intro-bg", "background") holds `value`, which is no "#rrggbb" colour.
  static EffectsError invalidColor(const std::string& setting, const std::string& value);
  /// `setting` holds `value`, which it cannot take; `expected` says what it can.
  static EffectsError invalidSetting(const std::string& setting, const std::string& value,
                                     const std::string& expected);
  /// As above for a number, written as briefly as it reads ("-1", "0.25").
  static EffectsError invalidSetting(const std::string& setting, double value,
                                     const std::string& expected);
  /// cairo refused to draw; `reason` is its own words.
  static EffectsError drawingFailed(const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  EffectsError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
