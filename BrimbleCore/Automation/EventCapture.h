#pragma once

#include <string>
#include <vector>

#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Automation/InputSimulator.h"

namespace brimble {

/// One keyboard or pointer event seen while recording, for effects such as click indicators,
/// keystroke badges and cursor smoothing.
struct InputEvent {
  enum class Kind { keyDown, keyUp, mouseDown, mouseUp, mouseMoved, scroll };

  Kind kind = Kind::mouseMoved;
  /// Seconds since the capture started.
  double timestamp = 0;
  /// Where the pointer was, in screen pixels.
  ScreenPoint position;
  /// Key events: the key's name in the keyboard map ("a", "Return", "Control_L"); empty when
  /// the key means nothing in the map by the time it is read.
  std::string key;
  /// Mouse button events: 1 left, 2 middle, 3 right.
  int button = 0;
  /// Scroll events: the wheel's direction, one event per click.
  ScrollDirection direction = ScrollDirection::down;
  /// Whether input simulation sent it, rather than a person.
  bool synthetic = false;
};

/// Listens to keyboard and pointer input while a recording runs and timestamps it. Start and
/// stop it from one thread; it gathers events on a thread of its own.
class EventCapture {
 public:
  EventCapture() = default;
  EventCapture(const EventCapture&) = delete;
  EventCapture& operator=(const EventCapture&) = delete;
  EventCapture(EventCapture&&) = delete;
  EventCapture& operator=(EventCapture&&) = delete;
  virtual ~EventCapture() = default;

  /// Starts listening; input from the moment it returns is captured. False, with the reason
  /// logged, when the platform cannot listen: the recording then goes on without events.
  virtual bool start() = 0;
  /// Stops listening and returns the events in the order they happened.
  virtual std::vector<InputEvent> stopAndCollectEvents() = 0;
};

}  // namespace brimble
