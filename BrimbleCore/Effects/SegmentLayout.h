#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// A rectangle in output pixels, fractional where scaling makes it so.
struct CanvasRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const CanvasRect&) const = default;
};

/// A point in output pixels.
struct CanvasPoint {
  double x = 0;
  double y = 0;
};

/// Where one segment sits on the output canvas: the part of its frames that is shown (the
/// window manager's decorations cut away when asked), the scale to the output, the bars painted
/// above it (a plain title bar, a browser's address bar) and the padding of a background. A
/// value; any thread.
struct SegmentLayout {
  /// Frame pixels shown: the frames' own pixels, less the cropped decorations.
  int cropLeft = 0;
  int cropTop = 0;
  int cropWidth = 0;
  int cropHeight = 0;
  /// The shown pixels, scaled, on the canvas.
  CanvasRect content;
  /// The window as the viewer sees it: `content` with the bars above it.
  CanvasRect window;
  double titleBarHeight = 0;  // 0: none
  double addressBarHeight = 0;
  /// Output pixels per frame pixel.
  double scale = 1;
  /// Scales sizes of drawn things (rings, badges, bars) with the output: 1 at 800 pixels wide.
  double uiScale = 1;
  double cornerRadius = 0;  // of `window`: on a background, or as the settings ask
  /// Frame pixels per screen pixel, and the screen position of the frames' top left corner.
  double screenScale = 1;
  double screenX = 0;
  double screenY = 0;

  /// The size `content` is scaled to, in whole pixels.
  ImageSize contentSize() const noexcept;
  /// Where screen point (`x`, `y`) shows on the canvas.
  CanvasPoint toCanvas(double x, double y) const noexcept;
  CanvasRect toCanvas(const ScreenRect& rect) const noexcept;
};

/// The canvas of a render and the layout of each segment on it.
struct CanvasLayout {
  ImageSize canvas;
  /// One per segment; segments without frames get an empty layout.
  std::vector<SegmentLayout> segments;
  /// Padding of the background (the margin) around the window, 0 without a background.
  double padding = 0;

  /// Lays `segments` out for `settings`, each frame size read from `frameSizes` (one per
  /// segment; empty sizes for segments without frames). Every segment is centred on a canvas as
  /// large as the largest, at most `settings.maxWidth` wide (when positive), in even sizes.
  static CanvasLayout make(std::span<const RenderSegment> segments,
                           std::span<const ImageSize> frameSizes, const RenderSettings& settings);
};

}  // namespace brimble
