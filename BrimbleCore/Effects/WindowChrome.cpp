#include "BrimbleCore/Effects/WindowChrome.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <cairo.h>
#include <glib.h>
#include <pango/pangocairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"

namespace brimble {
namespace {

// The first `count` characters (not bytes) of UTF-8 `text`.
std::string prefixOf(const std::string& text, long count) {
  if (!g_utf8_validate(text.c_str(), static_cast<gssize>(text.size()), nullptr)) {
    return text.substr(0, static_cast<std::size_t>(std::max(count, 0L)));
  }
  const char* end = g_utf8_offset_to_pointer(
      text.c_str(), std::min<long>(count, g_utf8_strlen(text.c_str(), -1)));
  return std::string(text.c_str(), end);
}

long characterCount(const std::string& text) {
  if (!g_utf8_validate(text.c_str(), static_cast<gssize>(text.size()), nullptr)) {
    return static_cast<long>(text.size());
  }
  return g_utf8_strlen(text.c_str(), -1);
}

void barPath(cairo_t* cairo, const CanvasRect& bar, double radius) {
  if (radius <= 0) {
    cairo_rectangle(cairo, bar.x, bar.y, bar.width, bar.height);
    return;
  }
  constexpr double kQuarter = std::numbers::pi / 2;
  cairo_new_sub_path(cairo);
  cairo_move_to(cairo, bar.x, bar.y + bar.height);
  cairo_arc(cairo, bar.x + radius, bar.y + radius, radius, 2 * kQuarter, 3 * kQuarter);
  cairo_arc(cairo, bar.x + bar.width - radius, bar.y + radius, radius, 3 * kQuarter, 0);
  cairo_line_to(cairo, bar.x + bar.width, bar.y + bar.height);
  cairo_close_path(cairo);
}

}  // namespace

WindowChrome::WindowChrome(const RenderSegment& segment) : initial_(segment.chromeURL) {
  for (const DemoEvent& event : segment.demoEvents) {
    if (event.kind != DemoEvent::Kind::navigate) {
      continue;
    }
    double typing = 0;
    if (segment.chromeTyping) {
      typing = event.duration > 0 ? event.duration
                                  : std::min(2.0, kTypingStep * characterCount(event.url));
    }
    navigations_.push_back({event.time, event.time + typing, event.url});
  }
  // A page typed in without a recorded navigation is typed from the segment's start.
  if (navigations_.empty() && segment.chromeTyping && !initial_.empty()) {
    navigations_.push_back({0, std::min(2.0, kTypingStep * characterCount(initial_)), initial_});
    initial_.clear();
  }
  std::stable_sort(navigations_.begin(), navigations_.end(),
                   [](const Navigation& a, const Navigation& b) { return a.start < b.start; });
}

std::pair<std::string, bool> WindowChrome::addressAt(double time) const {
  std::string shown = initial_;
  for (const Navigation& navigation : navigations_) {
    if (time < navigation.start) {
      break;
    }
    if (time < navigation.typingEnd) {
      const double p = (time - navigation.start) / (navigation.typingEnd - navigation.start);
      const auto typed = static_cast<long>(std::floor(p * characterCount(navigation.url)));
      return {prefixOf(navigation.url, typed), true};
    }
    shown = navigation.url;
  }
  return {shown, false};
}

void WindowChrome::paintTitleBar(cairo_t* cairo, const SegmentLayout& layout, const WindowBar& bar,
                                 bool roundTop) {
  if (layout.titleBarHeight <= 0) {
    return;
  }
  const double ui = layout.uiScale;
  const CanvasRect area{layout.window.x, layout.window.y, layout.window.width,
                        layout.titleBarHeight};
  cairo_save(cairo);
  barPath(cairo, area, roundTop ? layout.cornerRadius : 0);
  bool dark = false;
  if (bar.color) {
    cairo_set_source_rgb(cairo, bar.color->red, bar.color->green, bar.color->blue);
    dark = bar.color->luminance() < 0.5;
  } else {
    cairo_pattern_t* shade = cairo_pattern_create_linear(0, area.y, 0, area.y + area.height);
    cairo_pattern_add_color_stop_rgb(shade, 0, 0.955, 0.955, 0.96);
    cairo_pattern_add_color_stop_rgb(shade, 1, 0.905, 0.905, 0.915);
    cairo_set_source(cairo, shade);
    cairo_pattern_destroy(shade);
  }
  cairo_fill(cairo);
  // A bar of the window's own colour needs no line under it: it reads as part of the window.
  if (!bar.color) {
    cairo_rectangle(cairo, area.x, area.y + area.height - 1, area.width, 1);
    cairo_set_source_rgba(cairo, 0, 0, 0, 0.14);
    cairo_fill(cairo);
  }
  const bool buttons = bar.style != WindowBarStyle::title;
  const bool right =
      bar.style == WindowBarStyle::colorfulRight || bar.style == WindowBarStyle::ringsRight;
  const bool rings = bar.style == WindowBarStyle::rings || bar.style == WindowBarStyle::ringsRight;
  // A desktop's close, minimise and zoom buttons: 12 pixels across, 8 apart, in a 28-pixel bar.
  const double diameter = std::clamp(area.height * 0.43, 4.0, 40.0);
  const double gap = diameter * 0.67;
  const double inset = std::max(area.height / 2, diameter * 1.6);
  const double buttonsWidth = 3 * diameter + 2 * gap;
  if (buttons) {
    constexpr double kColors[3][3] = {
        {1.0, 0.373, 0.341}, {0.996, 0.737, 0.180}, {0.157, 0.784, 0.251}};
    const double first =
        right ? area.x + area.width - inset - buttonsWidth + diameter / 2 : area.x + inset;
    const double centreY = area.y + area.height / 2;
    for (int i = 0; i < 3; ++i) {
      const double centreX = first + i * (diameter + gap);
      cairo_set_source_rgb(cairo, kColors[i][0], kColors[i][1], kColors[i][2]);
      if (rings) {
        const double line = std::max(1.0, diameter * 0.14);
        cairo_set_line_width(cairo, line);
        cairo_arc(cairo, centreX, centreY, (diameter - line) / 2, 0, 2 * std::numbers::pi);
        cairo_stroke(cairo);
      } else {
        cairo_arc(cairo, centreX, centreY, diameter / 2, 0, 2 * std::numbers::pi);
        cairo_fill(cairo);
      }
    }
  }
  if (!bar.title.empty()) {
    // Centred on the bar, kept clear of the buttons on both sides so it stays centred.
    const double side = buttons ? inset + buttonsWidth + 10 * ui : 20 * ui;
    const double width = area.width - 2 * side;
    if (width > 20) {
      PangoLayoutPtr text =
          textLayout(cairo, bar.title, "Sans Medium", std::clamp(area.height * 0.43, 7.0, 13 * ui));
      pango_layout_set_width(text.get(), static_cast<int>(width * PANGO_SCALE));
      pango_layout_set_ellipsize(text.get(), PANGO_ELLIPSIZE_END);
      pango_layout_set_alignment(text.get(), PANGO_ALIGN_CENTER);
      int textWidth = 0;
      int textHeight = 0;
      pango_layout_get_pixel_size(text.get(), &textWidth, &textHeight);
      if (dark) {
        cairo_set_source_rgba(cairo, 1, 1, 1, 0.72);
      } else {
        cairo_set_source_rgb(cairo, 0.2, 0.2, 0.22);
      }
      cairo_move_to(cairo, area.x + side, area.y + (area.height - textHeight) / 2);
      pango_cairo_show_layout(cairo, text.get());
    }
  }
  cairo_restore(cairo);
}

void WindowChrome::paintAddressBar(cairo_t* cairo, const SegmentLayout& layout, double time,
                                   bool roundTop) const {
  if (layout.addressBarHeight <= 0) {
    return;
  }
  const double ui = layout.uiScale;
  const CanvasRect bar{layout.window.x, layout.window.y + layout.titleBarHeight,
                       layout.window.width, layout.addressBarHeight};
  cairo_save(cairo);
  barPath(cairo, bar, roundTop && layout.titleBarHeight <= 0 ? layout.cornerRadius : 0);
  cairo_set_source_rgb(cairo, 0.93, 0.93, 0.94);
  cairo_fill(cairo);
  cairo_rectangle(cairo, bar.x, bar.y + bar.height - 1, bar.width, 1);
  cairo_set_source_rgba(cairo, 0, 0, 0, 0.12);
  cairo_fill(cairo);
  // Back and forward: two light chevrons, then the field.
  cairo_set_line_width(cairo, 1.6 * ui);
  cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
  cairo_set_source_rgb(cairo, 0.45, 0.45, 0.48);
  const double mid = bar.y + bar.height / 2;
  for (int i = 0; i < 2; ++i) {
    const double x = bar.x + (16 + 22 * i) * ui;
    const double direction = i == 0 ? 1 : -1;
    cairo_move_to(cairo, x + 3 * ui * direction, mid - 5 * ui);
    cairo_line_to(cairo, x - 2 * ui * direction, mid);
    cairo_line_to(cairo, x + 3 * ui * direction, mid + 5 * ui);
    cairo_stroke(cairo);
  }
  const double fieldX = bar.x + 60 * ui;
  const double fieldHeight = bar.height - 12 * ui;
  const CanvasRect field{fieldX, bar.y + 6 * ui, bar.x + bar.width - 12 * ui - fieldX, fieldHeight};
  roundedRectangle(cairo, field.x, field.y, field.width, field.height, fieldHeight / 2);
  cairo_set_source_rgb(cairo, 1, 1, 1);
  cairo_fill_preserve(cairo);
  cairo_set_line_width(cairo, 1);
  cairo_set_source_rgba(cairo, 0, 0, 0, 0.1);
  cairo_stroke(cairo);

  const auto [address, typing] = addressAt(time);
  PangoLayoutPtr text = textLayout(cairo, address.empty() ? " " : address, "Sans", 13 * ui);
  pango_layout_set_width(text.get(), static_cast<int>((field.width - 30 * ui) * PANGO_SCALE));
  pango_layout_set_ellipsize(text.get(), PANGO_ELLIPSIZE_END);
  int width = 0;
  int height = 0;
  pango_layout_get_pixel_size(text.get(), &width, &height);
  const double textX = field.x + 14 * ui;
  const double textY = field.y + (field.height - height) / 2;
  cairo_set_source_rgb(cairo, 0.16, 0.16, 0.18);
  cairo_move_to(cairo, textX, textY);
  pango_cairo_show_layout(cairo, text.get());
  if (typing) {
    const double caretX = textX + (address.empty() ? 0 : width) + 1.5 * ui;
    cairo_rectangle(cairo, caretX, textY + 1 * ui, 1.5 * ui, height - 2 * ui);
    cairo_set_source_rgb(cairo, 0.2, 0.4, 0.95);
    cairo_fill(cairo);
  }
  cairo_restore(cairo);
}

bool WindowChrome::changesBetween(double from, double to) const {
  for (const Navigation& navigation : navigations_) {
    if (navigation.start <= to && navigation.typingEnd >= from) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
