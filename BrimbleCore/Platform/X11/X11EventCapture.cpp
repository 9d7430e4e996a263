#include "BrimbleCore/Platform/X11/X11EventCapture.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <poll.h>

#include "BrimbleCore/Platform/X11/XHandles.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble::x11 {
namespace {

constexpr int kPointerSampleMilliseconds = 16;

ScreenPoint pointer(Display* display) {
  const PointerState state = queryPointer(display);
  return {state.x, state.y};
}

/// The keysym name of a key's first level in the current map, read from the server because
/// the map may have changed since this connection last looked.
std::string keyName(Display* display, int keycode) {
  int perKeycode = 0;
  const XFreePtr<KeySym> symbols(
      XGetKeyboardMapping(display, static_cast<KeyCode>(keycode), 1, &perKeycode));
  if (!symbols) {
    return {};
  }
  const KeySym keysym = perKeycode > 0 ? symbols.get()[0] : NoSymbol;
  const char* name = keysym != NoSymbol ? XKeysymToString(keysym) : nullptr;
  return name != nullptr ? name : "";
}

/// The slave devices XTest drives ("Virtual core XTEST pointer" and "... keyboard").
std::set<int> xtestDevices(Display* display) {
  std::set<int> devices;
  int count = 0;
  XIDeviceInfo* info = XIQueryDevice(display, XIAllDevices, &count);
  for (int i = 0; i < count; ++i) {
    if (std::strstr(info[i].name, "XTEST") != nullptr) {
      devices.insert(info[i].deviceid);
    }
  }
  XIFreeDeviceInfo(info);
  return devices;
}

}  // namespace

X11EventCapture::X11EventCapture(std::string displayName, const Clock& clock)
    : displayName_(std::move(displayName)), clock_(clock) {}

bool X11EventCapture::start() {
  XDisplayPtr display = openDisplay(displayName_);
  if (!display) {
    logLine("BrimbleCore: Event capture unavailable: cannot connect to the X display");
    return false;
  }
  int opcode = 0;
  int event = 0;
  int error = 0;
  int major = 2;
  int minor = 2;
  if (XQueryExtension(display.get(), "XInputExtension", &opcode, &event, &error) == 0 ||
      XIQueryVersion(display.get(), &major, &minor) != Success || major < 2 ||
      (major == 2 && minor < 2)) {
    logLine("BrimbleCore: Event capture unavailable: the X server lacks XInput 2.2");
    return false;
  }
  unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
  for (const int type :
       {XI_RawKeyPress, XI_RawKeyRelease, XI_RawButtonPress, XI_RawButtonRelease, XI_RawMotion}) {
    XISetMask(bits, type);
  }
  XIEventMask mask{XIAllMasterDevices, static_cast<int>(sizeof bits), bits};
  XISelectEvents(display.get(), DefaultRootWindow(display.get()), &mask, 1);
  // Once the server has the selection, every event that follows reaches us.
  XSync(display.get(), False);

  {
    std::scoped_lock lock(eventsMutex_);
    events_.clear();
  }
  started_ = clock_.now();
  const std::set<int> devices = xtestDevices(display.get());
  // Where the pointer is now, not when the thread gets going: a warp in between would be lost.
  const ScreenPoint position = pointer(display.get());
  thread_ = std::jthread([this, connection = std::move(display), opcode, devices,
                          position](const std::stop_token& stop) mutable {
    listen(stop, std::move(connection), opcode, devices, position);
  });
  return true;
}

std::vector<InputEvent> X11EventCapture::stopAndCollectEvents() {
  if (thread_.joinable()) {
    thread_.request_stop();
    thread_.join();
  }
  std::scoped_lock lock(eventsMutex_);
  return std::exchange(events_, {});
}

void X11EventCapture::add(InputEvent event) {
  event.timestamp = std::chrono::duration<double>(clock_.now() - started_).count();
  std::scoped_lock lock(eventsMutex_);
  events_.push_back(std::move(event));
}

void X11EventCapture::listen(const std::stop_token& stop, XDisplayPtr connection, int opcode,
                             const std::set<int>& xtestDevices, ScreenPoint position) {
  // Exceptions must not leave the thread; the capture then ends with what it has.
  try {
    Display* display = connection.get();
    bool motionRead = false;

    const auto moveTo = [&](ScreenPoint now, bool synthetic) {
      if (now != position) {
        position = now;
        InputEvent moved;
        moved.kind = InputEvent::Kind::mouseMoved;
        moved.position = now;
        moved.synthetic = synthetic;
        add(std::move(moved));
      }
    };

    const auto handle = [&](const XIRawEvent& raw) {
      const bool synthetic = xtestDevices.count(raw.sourceid) > 0;
      InputEvent event;
      event.synthetic = synthetic;
      switch (raw.evtype) {
        case XI_RawMotion: {
          motionRead = true;
          // XTest motion as we send it carries the absolute position, in event order; a
          // mouse reports deltas before acceleration, so ask where the pointer is now.
          const bool bothAxes = raw.valuators.mask_len > 0 && XIMaskIsSet(raw.valuators.mask, 0) &&
                                XIMaskIsSet(raw.valuators.mask, 1);
          moveTo(synthetic && bothAxes
                     ? ScreenPoint{static_cast<int>(std::lround(raw.valuators.values[0])),
                                   static_cast<int>(std::lround(raw.valuators.values[1]))}
                     : pointer(display),
                 synthetic);
          return;
        }
        case XI_RawKeyPress:
        case XI_RawKeyRelease:
          event.kind =
              raw.evtype == XI_RawKeyPress ? InputEvent::Kind::keyDown : InputEvent::Kind::keyUp;
          event.key = keyName(display, raw.detail);
          break;
        case XI_RawButtonPress:
        case XI_RawButtonRelease:
          if (raw.detail >= 4 && raw.detail <= 7) {
            // A wheel click is a press and a release; one event per click.
            if (raw.evtype == XI_RawButtonRelease) {
              return;
            }
            constexpr ScrollDirection kWheel[] = {ScrollDirection::up, ScrollDirection::down,
                                                  ScrollDirection::left, ScrollDirection::right};
            event.kind = InputEvent::Kind::scroll;
            event.direction = kWheel[raw.detail - 4];
          } else {
            event.kind = raw.evtype == XI_RawButtonPress ? InputEvent::Kind::mouseDown
                                                         : InputEvent::Kind::mouseUp;
            event.button = raw.detail;
          }
          break;
        default:
          return;
      }
      event.position = position;
      add(std::move(event));
    };

    const auto drain = [&] {
      while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        XGenericEventCookie& cookie = event.xcookie;
        if (cookie.type == GenericEvent && cookie.extension == opcode &&
            XGetEventData(display, &cookie) != 0) {
          handle(*static_cast<const XIRawEvent*>(cookie.data));
          XFreeEventData(display, &cookie);
        }
      }
    };

    // A warp moves the pointer without a raw event. Ask where the pointer is, then read every
    // event the server sent before answering a round trip after that: a position no motion
    // explains is a warp. While motion comes in, it explains the position; look again later.
    const auto detectWarp = [&] {
      const ScreenPoint queried = pointer(display);
      XSync(display, False);
      // Without its server the answers are made up, and the connection polls readable for ever.
      checkConnection(display);
      motionRead = false;
      drain();
      if (!motionRead) {
        moveTo(queried, false);
      }
    };

    pollfd wait{ConnectionNumber(display), POLLIN, 0};
    while (!stop.stop_requested()) {
      ::poll(&wait, 1, kPointerSampleMilliseconds);
      drain();
      detectWarp();
    }
    // The round trip inside also reads whatever the server sent before the stop.
    detectWarp();
  } catch (const std::exception& error) {
    logLine(std::string("BrimbleCore: Event capture stopped: ") + error.what());
  }
}

}  // namespace brimble::x11
