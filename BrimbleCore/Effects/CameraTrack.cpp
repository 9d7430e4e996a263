#include "BrimbleCore/Effects/CameraTrack.h"

#include <algorithm>
#include <cmath>

namespace brimble {
namespace {

double easeInOut(double p) {
  const double t = std::clamp(p, 0.0, 1.0);
  return t < 0.5 ? 4 * t * t * t : 1 - std::pow(-2 * t + 2, 3) / 2;
}

// The content rectangle that magnifies `layout.content` by `scale` around the screen point
// (`x`, `y`), kept so that the view never leaves the content.
CanvasRect framed(const SegmentLayout& layout, double scale, CanvasPoint centre) {
  const CanvasRect& c = layout.content;
  const double width = c.width * scale;
  const double height = c.height * scale;
  // Where the centre lies within the content, 0...1, then placed in the view's middle.
  const double u = (centre.x - c.x) / std::max(c.width, 1.0);
  const double v = (centre.y - c.y) / std::max(c.height, 1.0);
  double x = c.x + c.width / 2 - u * width;
  double y = c.y + c.height / 2 - v * height;
  x = std::clamp(x, c.x + c.width - width, c.x);
  y = std::clamp(y, c.y + c.height - height, c.y);
  return {x, y, width, height};
}

CanvasRect mixed(const CanvasRect& a, const CanvasRect& b, double p) {
  const auto mix = [p](double x, double y) { return x + (y - x) * p; };
  return {mix(a.x, b.x), mix(a.y, b.y), mix(a.width, b.width), mix(a.height, b.height)};
}

}  // namespace

CameraTrack::CameraTrack(std::span<const DemoEvent> demoEvents) {
  for (const DemoEvent& event : demoEvents) {
    if (event.kind == DemoEvent::Kind::zoom && event.scale > 0 && !event.rect.empty()) {
      moves_.push_back({event.time,
                        std::max(event.duration, 0.0),
                        {std::clamp(event.scale, 1.0, 8.0), event.rect}});
    } else if (event.kind == DemoEvent::Kind::zoomOut) {
      moves_.push_back({event.time, std::max(event.duration, 0.0), {1, std::nullopt}});
    }
  }
  std::stable_sort(moves_.begin(), moves_.end(),
                   [](const Move& a, const Move& b) { return a.start < b.start; });
}

CanvasRect CameraTrack::contentAt(const SegmentLayout& layout, double time) const {
  const auto rectOf = [&](const View& view) {
    if (!view.target || view.scale <= 1) {
      return layout.content;
    }
    const CanvasRect target = layout.toCanvas(*view.target);
    return framed(layout, view.scale, {target.x + target.width / 2, target.y + target.height / 2});
  };
  CanvasRect current = layout.content;
  for (const Move& move : moves_) {
    if (time < move.start) {
      break;
    }
    const CanvasRect to = rectOf(move.to);
    const double p = move.duration > 0 ? (time - move.start) / move.duration : 1;
    // Later moves start from wherever this one had got to when they began.
    current = mixed(current, to, easeInOut(p));
  }
  return current;
}

bool CameraTrack::changesBetween(double from, double to) const {
  for (const Move& move : moves_) {
    if (move.start <= to && move.start + move.duration >= from) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
