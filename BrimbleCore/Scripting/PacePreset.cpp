#include "BrimbleCore/Scripting/PacePreset.h"

namespace brimble {

std::string_view rawValue(PacePreset preset) {
  switch (preset) {
    case PacePreset::tutorial:
      return "tutorial";
    case PacePreset::demo:
      return "demo";
    case PacePreset::cinematic:
      break;
  }
  return "cinematic";
}

std::optional<PacePreset> pacePresetNamed(std::string_view name) {
  for (const PacePreset preset : kAllPacePresets) {
    if (rawValue(preset) == name) {
      return preset;
    }
  }
  return std::nullopt;
}

std::string pacePresetNames() {
  std::string names;
  for (const PacePreset preset : kAllPacePresets) {
    if (!names.empty()) {
      names += ", ";
    }
    names += rawValue(preset);
  }
  return names;
}

const std::vector<std::pair<std::string, std::string>>& presetSettings(PacePreset preset) {
  using Settings = std::vector<std::pair<std::string, std::string>>;
  static const Settings tutorial = {{"fps", "24"},
                                    {"typing-delay", "0.08"},
                                    {"auto-pace", "true"},
                                    {"auto-pace-delay", "1.0"},
                                    {"idle-threshold", "3.0"},
                                    {"transition", "0.5"}};
  static const Settings demo = {{"fps", "30"},
                                {"typing-delay", "0.04"},
                                {"auto-pace", "true"},
                                {"auto-pace-delay", "0.6"},
                                {"idle-threshold", "1.5"},
                                {"transition", "0.3"}};
  static const Settings cinematic = {{"fps", "30"},
                                     {"typing-delay", "0.06"},
                                     {"auto-pace", "true"},
                                     {"auto-pace-delay", "0.8"},
                                     {"idle-threshold", "2.0"},
                                     {"transition", "0.8"}};
  switch (preset) {
    case PacePreset::tutorial:
      return tutorial;
    case PacePreset::demo:
      return demo;
    case PacePreset::cinematic:
      break;
  }
  return cinematic;
}

}  // namespace brimble
