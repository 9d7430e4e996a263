#pragma once

#include <span>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Effects/SegmentLayout.h"

struct _cairo;

namespace brimble {

/// Badges for the keys a viewer cannot see being pressed: chords (Ctrl+Shift+T) and special
/// keys (Enter, Tab, Esc, the arrows), shown as key caps near the bottom for about a second.
/// Plain typing shows on screen by itself and gets no badge. Immutable once built; paint from
/// any number of threads.
class KeystrokeBadges {
 public:
  static constexpr double kDuration = 1.1;
  static constexpr double kFadeIn = 0.08;
  static constexpr double kFadeOut = 0.25;

  struct Badge {
    double time = 0;
    /// The keys, modifiers first: {"Ctrl", "Shift", "T"}.
    std::vector<std::string> keys;
    /// When it goes: its time plus kDuration, or earlier when the next badge comes.
    double end = 0;
  };

  explicit KeystrokeBadges(std::span<const InputEvent> events);

  const std::vector<Badge>& badges() const noexcept { return badges_; }
  /// The label of `key` (a keyboard-map name) on a badge, or empty when the key is plain
  /// typing or a modifier.
  static std::string specialKeyLabel(const std::string& key);
  /// Draws the badge shown at `time` centred near the bottom of `area` (canvas pixels).
  void paint(_cairo* cairo, const CanvasRect& area, double uiScale, double time) const;
  /// Whether a badge appears, fades or goes within [`from`, `to`].
  bool changesBetween(double from, double to) const;

 private:
  std::vector<Badge> badges_;
};

}  // namespace brimble
