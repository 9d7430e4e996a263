#include "BrimbleCore/Effects/SegmentLayout.h"

#include <algorithm>
#include <cmath>

namespace brimble {
namespace {

constexpr double kTitleBarHeight = 30;    // at a uiScale of 1
constexpr double kAddressBarHeight = 40;  // at a uiScale of 1
constexpr double kPadding = 48;           // at a uiScale of 1
constexpr double kCornerRadius = 10;      // at a uiScale of 1
constexpr double kReferenceWidth = 800;

int even(double size) {
  return std::max(2, static_cast<int>(std::lround(size / 2)) * 2);
}

}  // namespace

ImageSize SegmentLayout::contentSize() const noexcept {
  return {static_cast<int>(std::lround(content.width)),
          static_cast<int>(std::lround(content.height))};
}

CanvasPoint SegmentLayout::toCanvas(double x, double y) const noexcept {
  const double frameX = (x - screenX) * screenScale - cropLeft;
  const double frameY = (y - screenY) * screenScale - cropTop;
  return {content.x + frameX * content.width / std::max(cropWidth, 1),
          content.y + frameY * content.height / std::max(cropHeight, 1)};
}

CanvasRect SegmentLayout::toCanvas(const ScreenRect& rect) const noexcept {
  const CanvasPoint topLeft = toCanvas(rect.x, rect.y);
  const CanvasPoint bottomRight = toCanvas(rect.x + rect.width, rect.y + rect.height);
  return {topLeft.x, topLeft.y, bottomRight.x - topLeft.x, bottomRight.y - topLeft.y};
}

CanvasLayout CanvasLayout::make(std::span<const RenderSegment> segments,
                                std::span<const ImageSize> frameSizes,
                                const RenderSettings& settings) {
  CanvasLayout layout;
  layout.segments.resize(segments.size());
  // A margin frames the window as a background does, at its own width.
  const bool background = !settings.background.empty() || settings.margin.value_or(0) > 0;
  const bool hasTitleBar = settings.fauxTitleBar.has_value() || settings.windowBar.has_value();
  double canvasWidth = 0;
  double canvasHeight = 0;
  double padding = 0;
  for (std::size_t i = 0; i < segments.size() && i < frameSizes.size(); ++i) {
    const ImageSize size = frameSizes[i];
    if (size.width <= 0 || size.height <= 0) {
      continue;
    }
    const RenderSegment& segment = segments[i];
    SegmentLayout& placed = layout.segments[i];
    placed.screenScale = segment.scaleFactor > 0 ? segment.scaleFactor : 1;
    placed.screenX = segment.windowFrame.x;
    placed.screenY = segment.windowFrame.y;
    // The decorations come off exactly as the window manager reported them, in frame pixels.
    const FrameExtents& extents = segment.frameExtents;
    // A plain title bar takes the place of the window manager's, so it is cut away then too.
    if (!settings.includeTitleBar || hasTitleBar || segment.cutsWindowFrame) {
      const auto frame = [&](int screenPixels) {
        return static_cast<int>(std::lround(screenPixels * placed.screenScale));
      };
      placed.cropLeft = std::clamp(frame(extents.left), 0, size.width - 1);
      placed.cropTop = std::clamp(frame(extents.top), 0, size.height - 1);
      // The content's own size where the recorded area is known: the recorder may have left a
      // last odd row or column off the frames, which must not come off the content.
      const ScreenRect& area = segment.windowFrame;
      const int contentWidth = area.empty() ? size.width - placed.cropLeft - frame(extents.right)
                                            : frame(area.width - extents.left - extents.right);
      const int contentHeight = area.empty() ? size.height - placed.cropTop - frame(extents.bottom)
                                             : frame(area.height - extents.top - extents.bottom);
      placed.cropWidth = std::clamp(contentWidth, 1, size.width - placed.cropLeft);
      placed.cropHeight = std::clamp(contentHeight, 1, size.height - placed.cropTop);
    } else {
      placed.cropWidth = size.width;
      placed.cropHeight = size.height;
    }
    // The scale that fits the maximum width, counting the padding (which itself scales).
    const bool hasAddressBar = segment.isBrowserContent;
    const double maxWidth = settings.maxWidth > 0 ? settings.maxWidth : 1e9;
    double scale = std::min(1.0, maxWidth / placed.cropWidth);
    double ui = std::clamp(placed.cropWidth * scale / kReferenceWidth, 0.75, 2.0);
    const double margin = settings.margin ? std::max(*settings.margin, 0) : kPadding * ui;
    if (background) {
      scale = std::min(scale, (maxWidth - 2 * margin) / placed.cropWidth);
      scale = std::max(scale, 0.05);
    }
    // Without a background the canvas is the frame itself; an odd row or column at the bottom
    // or right is left off rather than the frame resampled by a pixel, which would blur text.
    if (!background && scale == 1) {
      placed.cropWidth -= placed.cropWidth % 2 == 1 && placed.cropWidth > 1 ? 1 : 0;
      placed.cropHeight -= placed.cropHeight % 2 == 1 && placed.cropHeight > 1 ? 1 : 0;
    }
    placed.scale = scale;
    placed.uiScale = ui;
    const double contentWidth = std::round(placed.cropWidth * scale);
    const double contentHeight = std::round(placed.cropHeight * scale);
    // Even heights, so that bars over an even frame leave no odd row for the canvas to pad.
    const double barHeight = settings.windowBarSize > 0 && settings.windowBar
                                 ? settings.windowBarSize
                                 : 2 * std::round(kTitleBarHeight * ui / 2);
    placed.titleBarHeight = hasTitleBar ? barHeight : 0;
    placed.addressBarHeight = hasAddressBar ? 2 * std::round(kAddressBarHeight * ui / 2) : 0;
    const double bars = placed.titleBarHeight + placed.addressBarHeight;
    placed.cornerRadius = settings.borderRadius ? std::max(*settings.borderRadius, 0)
                                                : (background ? kCornerRadius * ui : 0);
    // A radius beyond half the window would turn its corners inside out.
    placed.cornerRadius =
        std::min(placed.cornerRadius, std::min(contentWidth, contentHeight + bars) / 2);
    placed.content = {0, bars, contentWidth, contentHeight};
    placed.window = {0, 0, contentWidth, contentHeight + bars};
    const double pad = background ? std::round(margin) : 0;
    padding = std::max(padding, pad);
    canvasWidth = std::max(canvasWidth, placed.window.width + 2 * pad);
    canvasHeight = std::max(canvasHeight, placed.window.height + 2 * pad);
  }
  layout.padding = padding;
  if (canvasWidth <= 0) {
    return layout;
  }
  layout.canvas = {even(canvasWidth), even(canvasHeight)};
  for (SegmentLayout& placed : layout.segments) {
    if (placed.cropWidth == 0) {
      continue;
    }
    // Whole pixels, so that an unzoomed frame is copied rather than resampled.
    const double left = std::floor((layout.canvas.width - placed.window.width) / 2);
    const double top = std::floor((layout.canvas.height - placed.window.height) / 2);
    placed.window.x += left;
    placed.window.y += top;
    placed.content.x += left;
    placed.content.y += top;
  }
  return layout;
}

}  // namespace brimble
