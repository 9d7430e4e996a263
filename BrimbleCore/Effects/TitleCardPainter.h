#pragma once

#include "BrimbleCore/Effects/EffectColor.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// Title cards: a title and an optional subtitle centred on a calm background, the text
/// rising gently into place as the card opens. Any script pango can shape renders (fonts
/// permitting); long titles wrap. Immutable once built; frames may be asked from any thread.
class TitleCardPainter {
 public:
  /// How long a card without a duration of its own stays, seconds.
  static constexpr double kDefaultDuration = 2.5;
  /// How long the text takes to rise into place.
  static constexpr double kTextRise = 0.45;
  static constexpr const char* kDefaultBackground = "#1a1a2e";
  static constexpr const char* kDefaultForeground = "#f4f4f8";

  /// `intro`: whether the text rises in (an outro's is simply there, as the recording fades
  /// into it). Throws EffectsError::drawingFailed.
  TitleCardPainter(const TitleCard& card, EffectColor background, EffectColor foreground,
                   ImageSize canvas, bool intro);

  /// The card `time` seconds after it began.
  Image frameAt(double time) const;
  /// Whether frames at `from` and `to` differ.
  bool changesBetween(double from, double to) const;
  double duration() const noexcept { return duration_; }
  /// Characters of the title and subtitle that no installed font has (drawn as boxes).
  int missingGlyphs() const noexcept { return missingGlyphs_; }

 private:
  Image backdrop_;
  Image text_;     // transparent, the size of the canvas
  Image settled_;  // the card once the text has risen
  double duration_ = kDefaultDuration;
  double rise_ = 0;
  bool intro_ = true;
  int missingGlyphs_ = 0;
};

}  // namespace brimble
