#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Effects/EffectColor.h"

namespace brimble {

/// What the bar over a window shows: a plain centred title, or the three window buttons of a
/// desktop (close, minimise, zoom) on the left or the right, filled or as rings.
enum class WindowBarStyle { title, colorful, colorfulRight, rings, ringsRight };

/// The names scripts give the styles, "none" first (no bar): none, title, colorful,
/// colorful-right, rings, rings-right.
const std::vector<std::string>& windowBarStyleNames();

/// The style `name` names, in any case and with or without the dash ("ColorfulRight" too); no
/// value for "none" and for anything that names no style.
std::optional<WindowBarStyle> windowBarStyleNamed(std::string_view name);

/// A bar to paint over the top of a window. A value; any thread.
struct WindowBar {
  WindowBarStyle style = WindowBarStyle::title;
  /// Centred in the bar; may be empty.
  std::string title;
  /// The bar's colour; no value paints a light neutral bar with a soft gradient.
  std::optional<EffectColor> color;
};

}  // namespace brimble
