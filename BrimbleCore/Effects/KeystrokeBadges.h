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
/// Plain typing shows on screen by itself and gets no badge, unless typed text is asked for:
/// then the text typed in a burst shows as a caption of its own, growing as it is typed.
/// Immutable once built; paint from any number of threads.
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
    /// Typed text rather than keys: `keys` holds the text, one entry per key typed.
    bool typed = false;
    /// Typed text: the times its text changed (a key typed or taken back), and the text shown
    /// from each of them on.
    std::vector<double> changeTimes;
    std::vector<std::string> shownTexts;
  };

  /// Keys typed at most this far apart belong to one typed-text caption.
  static constexpr double kTypingGap = 1.5;

  /// Badges for `events`; with `typedText`, plain typing gets captions of the text too.
  explicit KeystrokeBadges(std::span<const InputEvent> events, bool withTypedText = false);

  const std::vector<Badge>& badges() const noexcept { return badges_; }
  /// The label of `key` (a keyboard-map name) on a badge, or empty when the key is plain
  /// typing or a modifier.
  static std::string specialKeyLabel(const std::string& key);
  /// The text a plain key press types (a keyboard-map name: "a", "comma", "space"), or empty for
  /// a key that types nothing printable.
  static std::string typedText(const std::string& key);
  /// What `badge` says in one line: "Ctrl+Shift+T", or the typed text.
  static std::string label(const Badge& badge);
  /// Draws the badge shown at `time` centred near the bottom of `area` (canvas pixels).
  void paint(_cairo* cairo, const CanvasRect& area, double uiScale, double time) const;
  /// Whether a badge appears, fades or goes within [`from`, `to`].
  bool changesBetween(double from, double to) const;

 private:
  std::vector<Badge> badges_;
};

}  // namespace brimble
