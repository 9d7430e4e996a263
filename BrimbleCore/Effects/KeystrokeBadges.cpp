#include "BrimbleCore/Effects/KeystrokeBadges.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <optional>
#include <utility>

#include <cairo.h>
#include <pango/pangocairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"

namespace brimble {
namespace {

enum Modifier { kControl, kAlt, kShift, kSuper, kModifierCount };

std::optional<Modifier> modifierOf(const std::string& key) {
  if (key.starts_with("Control")) {
    return kControl;
  }
  if (key.starts_with("Alt") || key.starts_with("Meta") || key == "ISO_Level3_Shift") {
    return kAlt;
  }
  if (key.starts_with("Shift")) {
    return kShift;
  }
  if (key.starts_with("Super") || key.starts_with("Hyper")) {
    return kSuper;
  }
  return std::nullopt;
}

// What a key shows on a cap when a chord needs it: letters upper-case, named keys by name.
std::string capLabel(const std::string& key) {
  if (std::string special = KeystrokeBadges::specialKeyLabel(key); !special.empty()) {
    return special;
  }
  if (key.size() == 1) {
    return std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(key[0]))));
  }
  static const std::array<std::pair<const char*, const char*>, 12> kPunctuation = {{
      {"comma", ","},
      {"period", "."},
      {"minus", "-"},
      {"equal", "="},
      {"slash", "/"},
      {"backslash", "\\"},
      {"semicolon", ";"},
      {"apostrophe", "'"},
      {"bracketleft", "["},
      {"bracketright", "]"},
      {"grave", "`"},
      {"plus", "+"},
  }};
  for (const auto& [name, label] : kPunctuation) {
    if (key == name) {
      return label;
    }
  }
  return key;
}

// Starts drawing a dark pill at (`left`, `top`) into a group the size of the pill, so that
// endPill fades the pill and what is drawn on it as one.
void beginPill(cairo_t* cairo, double left, double top, double width, double height) {
  cairo_save(cairo);
  cairo_rectangle(cairo, std::floor(left) - 1, std::floor(top) - 1, std::ceil(width) + 2,
                  std::ceil(height) + 2);
  cairo_clip(cairo);
  cairo_push_group(cairo);
  roundedRectangle(cairo, left, top, width, height, height / 2.4);
  cairo_set_source_rgba(cairo, 0.08, 0.08, 0.1, 0.82);
  cairo_fill(cairo);
}

void endPill(cairo_t* cairo, double alpha) {
  cairo_pop_group_to_source(cairo);
  cairo_paint_with_alpha(cairo, std::clamp(alpha, 0.0, 1.0));
  cairo_restore(cairo);
}

// Typed text on one dark pill, its latest characters when it is wider than the frame.
void paintTyped(cairo_t* cairo, const CanvasRect& area, double ui, const std::string& text,
                double alpha) {
  if (text.empty()) {
    return;
  }
  const double fontSize = 17 * ui;
  const double padX = 14 * ui;
  const double padY = 9 * ui;
  const double maxWidth = area.width - 2 * (10 * ui + padX);
  if (maxWidth < fontSize) {
    return;
  }
  PangoLayoutPtr layout = textLayout(cairo, text, "Monospace Bold", fontSize);
  pango_layout_set_width(layout.get(), static_cast<int>(maxWidth * PANGO_SCALE));
  pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_START);
  PangoRectangle ink{};
  PangoRectangle logical{};
  pango_layout_get_pixel_extents(layout.get(), &ink, &logical);
  const double pillWidth = logical.width + 2 * padX;
  const double pillHeight = logical.height + 2 * padY;
  const double left = area.x + (area.width - pillWidth) / 2;
  const double top = area.y + area.height - pillHeight - 22 * ui;
  beginPill(cairo, left, top, pillWidth, pillHeight);
  cairo_move_to(cairo, left + padX - logical.x, top + padY - logical.y);
  cairo_set_source_rgba(cairo, 1, 1, 1, 1);
  pango_cairo_show_layout(cairo, layout.get());
  endPill(cairo, alpha);
}

}  // namespace

std::string KeystrokeBadges::specialKeyLabel(const std::string& key) {
  static const std::array<std::pair<const char*, const char*>, 19> kSpecial = {{
      {"Return", "Enter"},   {"KP_Enter", "Enter"},   {"Tab", "Tab"},      {"ISO_Left_Tab", "Tab"},
      {"Escape", "Esc"},     {"Left", "\u2190"},      {"Right", "\u2192"}, {"Up", "\u2191"},
      {"Down", "\u2193"},    {"BackSpace", "\u232B"}, {"Delete", "Del"},   {"Home", "Home"},
      {"End", "End"},        {"Prior", "PgUp"},       {"Page_Up", "PgUp"}, {"Next", "PgDn"},
      {"Page_Down", "PgDn"}, {"Insert", "Ins"},       {"space", "Space"},
  }};
  for (const auto& [name, label] : kSpecial) {
    if (key == name) {
      return label;
    }
  }
  if (key.size() >= 2 && key.size() <= 3 && key[0] == 'F' &&
      std::all_of(key.begin() + 1, key.end(), [](char c) { return std::isdigit(c) != 0; })) {
    return key;
  }
  return {};
}

std::string KeystrokeBadges::typedText(const std::string& key) {
  if (key.size() == 1 && std::isprint(static_cast<unsigned char>(key[0])) != 0) {
    return key;
  }
  static const std::array<std::pair<const char*, const char*>, 33> kCharacters = {{
      {"space", " "},      {"exclam", "!"},       {"quotedbl", "\""},   {"numbersign", "#"},
      {"dollar", "$"},     {"percent", "%"},      {"ampersand", "&"},   {"apostrophe", "'"},
      {"parenleft", "("},  {"parenright", ")"},   {"asterisk", "*"},    {"plus", "+"},
      {"comma", ","},      {"minus", "-"},        {"period", "."},      {"slash", "/"},
      {"colon", ":"},      {"semicolon", ";"},    {"less", "<"},        {"equal", "="},
      {"greater", ">"},    {"question", "?"},     {"at", "@"},          {"bracketleft", "["},
      {"backslash", "\\"}, {"bracketright", "]"}, {"asciicircum", "^"}, {"underscore", "_"},
      {"grave", "`"},      {"braceleft", "{"},    {"bar", "|"},         {"braceright", "}"},
      {"asciitilde", "~"},
  }};
  for (const auto& [name, text] : kCharacters) {
    if (key == name) {
      return text;
    }
  }
  return {};
}

std::string KeystrokeBadges::label(const Badge& badge) {
  std::string text;
  for (const std::string& key : badge.keys) {
    if (!badge.typed && !text.empty()) {
      text += '+';
    }
    text += key;
  }
  return text;
}

KeystrokeBadges::KeystrokeBadges(std::span<const InputEvent> events, bool withTypedText) {
  std::array<int, kModifierCount> held{};
  // Plain typing grows the typed-text caption of its burst, or starts one.
  const auto type = [&](const InputEvent& event) {
    Badge* current = nullptr;
    if (!badges_.empty() && badges_.back().typed && !badges_.back().changeTimes.empty() &&
        event.timestamp - badges_.back().changeTimes.back() <= kTypingGap) {
      current = &badges_.back();
    }
    if (event.key == "BackSpace") {
      if (current != nullptr && !current->keys.empty()) {
        current->keys.pop_back();
        current->changeTimes.push_back(event.timestamp);
        current->shownTexts.push_back(label(*current));
        current->end = event.timestamp + kDuration;
      }
      return;
    }
    std::string text = typedText(event.key);
    if (text.empty()) {
      return;
    }
    if (current == nullptr) {
      if (!badges_.empty()) {
        badges_.back().end = std::min(badges_.back().end, event.timestamp);
      }
      current = &badges_.emplace_back();
      current->time = event.timestamp;
      current->typed = true;
    }
    current->keys.push_back(std::move(text));
    current->changeTimes.push_back(event.timestamp);
    current->shownTexts.push_back(label(*current));
    current->end = event.timestamp + kDuration;
  };
  for (const InputEvent& event : events) {
    const bool down = event.kind == InputEvent::Kind::keyDown;
    if (!down && event.kind != InputEvent::Kind::keyUp) {
      continue;
    }
    if (const auto modifier = modifierOf(event.key)) {
      held[*modifier] = std::max(0, held[*modifier] + (down ? 1 : -1));
      continue;
    }
    if (!down || event.key.empty()) {
      continue;
    }
    const bool chord = held[kControl] > 0 || held[kAlt] > 0 || held[kSuper] > 0;
    const std::string special = specialKeyLabel(event.key);
    // Space and Backspace are part of typing unless a chord makes them a command.
    const bool typing = event.key == "space" || event.key == "BackSpace";
    if (!chord && (special.empty() || typing)) {
      if (withTypedText) {
        type(event);
      }
      continue;
    }
    Badge badge;
    badge.time = event.timestamp;
    badge.end = event.timestamp + kDuration;
    static constexpr std::array<const char*, kModifierCount> kNames = {"Ctrl", "Alt", "Shift",
                                                                       "Super"};
    for (int m : {kControl, kAlt, kShift, kSuper}) {
      if (held[m] > 0) {
        badge.keys.emplace_back(kNames[m]);
      }
    }
    badge.keys.push_back(capLabel(event.key));
    if (!badges_.empty()) {
      badges_.back().end = std::min(badges_.back().end, badge.time);
    }
    badges_.push_back(std::move(badge));
  }
}

void KeystrokeBadges::paint(cairo_t* cairo, const CanvasRect& area, double uiScale,
                            double time) const {
  const auto badge = std::find_if(badges_.begin(), badges_.end(),
                                  [&](const Badge& b) { return time >= b.time && time < b.end; });
  if (badge == badges_.end()) {
    return;
  }
  const double alpha =
      std::min({1.0, (time - badge->time) / kFadeIn, (badge->end - time) / kFadeOut});
  const double ui = std::clamp(uiScale, 0.5, 2.0);
  const double fontSize = 17 * ui;
  const double capPadX = 9 * ui;
  const double capHeight = fontSize * 1.75;
  const double gap = 6 * ui;
  const double plusWidth = 12 * ui;
  const double margin = 10 * ui;
  if (badge->typed) {
    // The text as it stood at `time`: it grows key by key.
    const auto after = std::upper_bound(badge->changeTimes.begin(), badge->changeTimes.end(), time);
    if (after != badge->changeTimes.begin()) {
      paintTyped(
          cairo, area, ui,
          badge->shownTexts[static_cast<std::size_t>(after - badge->changeTimes.begin() - 1)],
          alpha);
    }
    return;
  }

  std::vector<PangoLayoutPtr> layouts;
  std::vector<double> widths;
  double total = 0;
  for (const std::string& key : badge->keys) {
    layouts.push_back(textLayout(cairo, key, "Sans Bold", fontSize));
    int width = 0;
    int height = 0;
    pango_layout_get_pixel_size(layouts.back().get(), &width, &height);
    widths.push_back(std::max<double>(width + 2 * capPadX, capHeight));
    total += widths.back();
  }
  total += static_cast<double>(badge->keys.size() - 1) * (plusWidth + 2 * gap);
  const double pillWidth = total + 2 * margin;
  const double pillHeight = capHeight + 2 * margin;
  // Slides up a little as it appears.
  const double rise = (1 - std::min(1.0, (time - badge->time) / (kFadeIn * 2))) * 6 * ui;
  const double left = area.x + (area.width - pillWidth) / 2;
  const double top = area.y + area.height - pillHeight - 22 * ui + rise;

  beginPill(cairo, left, top, pillWidth, pillHeight);
  double x = left + margin;
  const double capTop = top + margin;
  for (std::size_t i = 0; i < layouts.size(); ++i) {
    if (i > 0) {
      PangoLayoutPtr plus = textLayout(cairo, "+", "Sans", fontSize * 0.9);
      int width = 0;
      int height = 0;
      pango_layout_get_pixel_size(plus.get(), &width, &height);
      cairo_set_source_rgba(cairo, 1, 1, 1, 0.6);
      cairo_move_to(cairo, x + gap + (plusWidth - width) / 2, capTop + (capHeight - height) / 2);
      pango_cairo_show_layout(cairo, plus.get());
      x += plusWidth + 2 * gap;
    }
    // A key cap: a lighter face with a darker lip below it.
    roundedRectangle(cairo, x, capTop + 2 * ui, widths[i], capHeight - 2 * ui, 6 * ui);
    cairo_set_source_rgba(cairo, 0.0, 0.0, 0.0, 0.45);
    cairo_fill(cairo);
    roundedRectangle(cairo, x, capTop, widths[i], capHeight - 3 * ui, 6 * ui);
    cairo_set_source_rgba(cairo, 0.93, 0.93, 0.95, 1);
    cairo_fill(cairo);
    int width = 0;
    int height = 0;
    pango_layout_get_pixel_size(layouts[i].get(), &width, &height);
    cairo_set_source_rgba(cairo, 0.1, 0.1, 0.12, 1);
    cairo_move_to(cairo, x + (widths[i] - width) / 2, capTop + (capHeight - 3 * ui - height) / 2);
    pango_cairo_show_layout(cairo, layouts[i].get());
    x += widths[i];
  }
  endPill(cairo, alpha);
}

bool KeystrokeBadges::changesBetween(double from, double to) const {
  for (const Badge& badge : badges_) {
    if (std::any_of(badge.changeTimes.begin(), badge.changeTimes.end(),
                    [&](double t) { return t >= from && t <= to; })) {
      return true;
    }
    const bool steady = from >= badge.time + kFadeIn * 2 && to <= badge.end - kFadeOut;
    if (badge.time <= to && badge.end >= from && !steady) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
