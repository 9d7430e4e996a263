#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Effects/OutputClock.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Effects/RenderTimeline.h"
#include "BrimbleCore/Effects/SegmentLayout.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

class TitleCardPainter;

/// The effects pass: makes each output frame of a render from the segments' frames, their input
/// and the effects the settings switch on: time (idle handling, typing cadence, crossfades,
/// title cards), the window's setting (background, title bars, browser chrome, crop) and the
/// overlays (zoom, highlights, spotlights, click ripples, the pointer, key badges).
///
/// Frames are decoded only when asked for, so memory holds a few frames whatever the
/// recordings' length. Building it reads every compressed frame once, to see where the picture
/// changes: a repeated picture is decoded and drawn once.
///
/// Thread-safe once built: `frame` may run on several threads at once. The segments must
/// outlive it.
class FrameCompositor {
 public:
  /// Throws EffectsError (invalidColor for a colour setting that is not one, invalidSetting
  /// for a negative idle threshold, drawingFailed).
  FrameCompositor(std::span<const RenderSegment> segments, const RenderSettings& settings);
  ~FrameCompositor();
  FrameCompositor(const FrameCompositor&) = delete;
  FrameCompositor& operator=(const FrameCompositor&) = delete;

  /// The output frames' sources, 1/fps apart.
  const std::vector<TimelineFrame>& timeline() const noexcept { return timeline_; }
  int frameCount() const noexcept { return static_cast<int>(timeline_.size()); }
  ImageSize canvasSize() const noexcept { return layout_.canvas; }
  const CanvasLayout& layout() const noexcept { return layout_; }
  /// How segment `index` plays (idle handling, typing cadence).
  const SegmentClock& clock(int index) const;
  /// Where the segments' moments show in the output.
  const OutputClock& outputClock() const noexcept { return outputClock_; }

  /// Output frame `index` (bgra8, opaque, canvas size); no value when its source frame cannot be
  /// decoded.
  std::optional<Image> frame(int index) const;
  /// Whether output frame `index` shows exactly what the frame before it shows, known without
  /// drawing either.
  bool repeatsPrevious(int index) const;

 private:
  struct SegmentEffects;
  struct ContentKey {
    int segment = -1;
    int frame = -1;
    bool full = false;  // the cropped frame at its own size, for a zoomed camera
    bool operator==(const ContentKey&) const = default;
  };

  /// One source (a segment frame or a card) drawn on the canvas, before any crossfade.
  Image sourceFrame(TimelineSource source, int segment, int frame, double time, double dip,
                    bool& decoded) const;
  Image segmentFrame(int segment, int frame, double time, bool& decoded) const;
  /// The shown part of a segment's frame, scaled to its content size (or cropped only).
  std::optional<Image> content(int segment, int frame, bool full) const;
  bool overlaysChange(int segment, double from, double to) const;

  std::span<const RenderSegment> segments_;
  RenderSettings settings_;
  CanvasLayout layout_;
  std::vector<std::unique_ptr<SegmentEffects>> effects_;
  std::unique_ptr<TitleCardPainter> intro_;
  std::unique_ptr<TitleCardPainter> outro_;
  std::vector<TimelineFrame> timeline_;
  OutputClock outputClock_;

  mutable std::mutex contentMutex_;  // guards the cache below
  /// Recently decoded content, newest first: repeated source frames under moving overlays and
  /// both sides of a crossfade are decoded once.
  mutable std::list<std::pair<ContentKey, Image>> contentCache_;
};

}  // namespace brimble
