#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brimble {

/// Named sets of timing settings, chosen with `set pace <name>`.
enum class PacePreset { tutorial, demo, cinematic };

inline constexpr std::array<PacePreset, 3> kAllPacePresets = {
    PacePreset::tutorial, PacePreset::demo, PacePreset::cinematic};

/// "tutorial", "demo" or "cinematic".
std::string_view rawValue(PacePreset preset);

/// The preset with that exact name, if any.
std::optional<PacePreset> pacePresetNamed(std::string_view name);

/// The names of all presets joined by ", ", for messages.
std::string pacePresetNames();

/// The six settings the preset sets, as (name, value text) in a fixed order. Every preset
/// switches `auto-pace` on.
const std::vector<std::pair<std::string, std::string>>& presetSettings(PacePreset preset);

}  // namespace brimble
