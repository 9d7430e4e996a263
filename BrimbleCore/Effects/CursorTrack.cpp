#include "BrimbleCore/Effects/CursorTrack.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <cairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"

namespace brimble {
namespace {

// Samples of a Gaussian kernel over ±2.5 standard deviations.
constexpr int kTaps = 15;

}  // namespace

CursorTrack::CursorTrack(const RecordedSegment& segment, bool smoothing)
    : samples_(segment.pointerTrack), images_(segment.cursorImages), smoothing_(smoothing) {
  if (samples_.empty()) {
    for (const InputEvent& event : segment.events) {
      if (event.kind != InputEvent::Kind::keyDown && event.kind != InputEvent::Kind::keyUp) {
        samples_.push_back({event.timestamp, event.position, -1});
      }
    }
  }
  std::stable_sort(samples_.begin(), samples_.end(),
                   [](const PointerSample& a, const PointerSample& b) { return a.time < b.time; });
  std::vector<Pin> clicks;
  for (const InputEvent& event : segment.events) {
    if (event.kind == InputEvent::Kind::mouseDown || event.kind == InputEvent::Kind::mouseUp) {
      clicks.push_back(
          {event.timestamp,
           {static_cast<double>(event.position.x), static_cast<double>(event.position.y)},
           kClickPull});
    }
  }
  // Neighbouring pins bend the path over disjoint spans, so each is met exactly.
  for (std::size_t i = 0; i < clicks.size(); ++i) {
    if (i > 0) {
      clicks[i].reach = std::min(clicks[i].reach, (clicks[i].time - clicks[i - 1].time) / 2);
    }
    if (i + 1 < clicks.size()) {
      clicks[i].reach = std::min(clicks[i].reach, (clicks[i + 1].time - clicks[i].time) / 2);
    }
  }
  pins_ = std::move(clicks);
}

CanvasPoint CursorTrack::rawAt(double time) const {
  auto after = std::upper_bound(samples_.begin(), samples_.end(), time,
                                [](double t, const PointerSample& s) { return t < s.time; });
  const PointerSample& sample = after == samples_.begin() ? samples_.front() : *(after - 1);
  return {static_cast<double>(sample.position.x), static_cast<double>(sample.position.y)};
}

int CursorTrack::cursorAt(double time) const {
  auto after = std::upper_bound(samples_.begin(), samples_.end(), time,
                                [](double t, const PointerSample& s) { return t < s.time; });
  return after == samples_.begin() ? samples_.front().cursor : (after - 1)->cursor;
}

CanvasPoint CursorTrack::smoothedAt(double time) const {
  double x = 0;
  double y = 0;
  double weights = 0;
  for (int i = 0; i < kTaps; ++i) {
    const double offset = (i - (kTaps - 1) / 2.0) / ((kTaps - 1) / 2.0) * 2.5;
    const double weight = std::exp(-offset * offset / 2);
    const CanvasPoint p = rawAt(time + offset * kSmoothing);
    x += p.x * weight;
    y += p.y * weight;
    weights += weight;
  }
  CanvasPoint smoothed{x / weights, y / weights};
  // Near a click the smoothed path is pulled onto it, fully at the click's time.
  for (const Pin& pin : pins_) {
    const double distance = std::abs(time - pin.time);
    if (pin.reach <= 0 || distance >= pin.reach) {
      if (distance == 0) {
        return pin.position;
      }
      continue;
    }
    const double p = distance / pin.reach;
    const double pull = 1 - p * p * (3 - 2 * p);
    // The correction is the gap at the click, so the path meets it exactly there.
    double gx = 0;
    double gy = 0;
    double gw = 0;
    for (int i = 0; i < kTaps; ++i) {
      const double offset = (i - (kTaps - 1) / 2.0) / ((kTaps - 1) / 2.0) * 2.5;
      const double weight = std::exp(-offset * offset / 2);
      const CanvasPoint q = rawAt(pin.time + offset * kSmoothing);
      gx += q.x * weight;
      gy += q.y * weight;
      gw += weight;
    }
    smoothed.x += (pin.position.x - gx / gw) * pull;
    smoothed.y += (pin.position.y - gy / gw) * pull;
  }
  return smoothed;
}

std::optional<CanvasPoint> CursorTrack::positionAt(double time) const {
  if (samples_.empty()) {
    return std::nullopt;
  }
  return smoothing_ ? smoothedAt(time) : rawAt(time);
}

void CursorTrack::paint(cairo_t* cairo, const SegmentLayout& layout, double time) const {
  const auto screen = positionAt(time);
  if (!screen) {
    return;
  }
  const CanvasPoint at = layout.toCanvas(screen->x, screen->y);
  // Cursor pictures are in screen pixels, like the frames before scaling.
  const double scale = layout.screenScale * layout.content.width / std::max(1, layout.cropWidth);
  const int index = cursorAt(time);
  cairo_save(cairo);
  if (index >= 0 && static_cast<std::size_t>(index) < images_.size() &&
      !images_[static_cast<std::size_t>(index)].image.empty()) {
    const CursorImage& cursor = images_[static_cast<std::size_t>(index)];
    const Image& picture = cursor.image;
    const Image bgra = picture.toBGRA8();
    const CairoSurfacePtr surface = surfaceOver(bgra);
    cairo_translate(cairo, at.x, at.y);
    cairo_scale(cairo, scale, scale);
    cairo_set_source_surface(cairo, surface.get(), -cursor.hotX, -cursor.hotY);
    cairo_pattern_set_filter(cairo_get_source(cairo), CAIRO_FILTER_GOOD);
    cairo_paint(cairo);
  } else {
    // A plain arrow, tip at the position: white with a dark rim, and a faint shadow.
    static constexpr std::array<std::array<double, 2>, 7> kArrow = {
        {{0, 0}, {0, 17}, {4.2, 13.2}, {7.2, 19.6}, {10, 18.4}, {7.1, 12.2}, {12.4, 12.2}}};
    const double size = std::clamp(layout.uiScale, 0.6, 2.0);
    cairo_translate(cairo, at.x, at.y);
    cairo_scale(cairo, size, size);
    const auto path = [&](double dx, double dy) {
      cairo_move_to(cairo, kArrow[0][0] + dx, kArrow[0][1] + dy);
      for (std::size_t i = 1; i < kArrow.size(); ++i) {
        cairo_line_to(cairo, kArrow[i][0] + dx, kArrow[i][1] + dy);
      }
      cairo_close_path(cairo);
    };
    path(0.8, 1.2);
    cairo_set_source_rgba(cairo, 0, 0, 0, 0.25);
    cairo_fill(cairo);
    path(0, 0);
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_fill_preserve(cairo);
    cairo_set_line_width(cairo, 1.3);
    cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
    cairo_set_source_rgb(cairo, 0.05, 0.05, 0.05);
    cairo_stroke(cairo);
  }
  cairo_restore(cairo);
}

bool CursorTrack::changesBetween(double from, double to) const {
  if (samples_.empty()) {
    return false;
  }
  const auto a = positionAt(from);
  const auto b = positionAt(to);
  if (std::lround(a->x) != std::lround(b->x) || std::lround(a->y) != std::lround(b->y) ||
      cursorAt(from) != cursorAt(to)) {
    return true;
  }
  // A move that returns to where it began still changes the frames between.
  const double margin = smoothing_ ? 2.5 * kSmoothing : 0;
  const auto first = std::lower_bound(samples_.begin(), samples_.end(), from - margin,
                                      [](const PointerSample& s, double t) { return s.time < t; });
  for (auto sample = first; sample != samples_.end() && sample->time <= to + margin; ++sample) {
    if (sample != samples_.begin() && !(sample->position == (sample - 1)->position)) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
