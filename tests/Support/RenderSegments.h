#pragma once

#include <memory>
#include <string>

#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Encoding/ImageCodec.h"

namespace brimble::testing {

/// `count` PNG frames of `image` at `fps`, recorded from the window whose content starts at
/// `origin` on the screen.
inline RenderSegment stillSegment(const Image& image, int count, ScreenPoint origin = {},
                                  int fps = 10) {
  auto store = std::make_unique<InMemoryFrameStore>();
  store->frames.assign(static_cast<std::size_t>(count), encodePNG(image));
  RenderSegment segment;
  segment.frames = std::move(store);
  segment.fps = fps;
  segment.duration = static_cast<double>(count) / fps;
  segment.windowFrame = {origin.x, origin.y, image.width(), image.height()};
  return segment;
}

inline InputEvent inputEvent(InputEvent::Kind kind, double time, const std::string& key = {},
                             ScreenPoint position = {}, int button = 0) {
  InputEvent event;
  event.kind = kind;
  event.timestamp = time;
  event.key = key;
  event.position = position;
  event.button = button;
  return event;
}

/// Ten frames a second without a crossfade, so that frame i shows time i / 10 of a segment.
inline RenderSettings tenFPSNoFade() {
  RenderSettings settings;
  settings.fps = 10;
  settings.transition = 0;
  return settings;
}

}  // namespace brimble::testing
