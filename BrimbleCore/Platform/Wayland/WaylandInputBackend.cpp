#include "BrimbleCore/Platform/Wayland/WaylandInputBackend.h"

#include <algorithm>
#include <cstdio>
#include <thread>
#include <utility>

#include <linux/input-event-codes.h>

#include "BrimbleCore/Platform/ATSPI/ATSPIWindowSystem.h"

namespace brimble::wayland {
namespace {

// X keysyms (the values of X11/keysymdef.h, which every Wayland compositor's xkb map uses).
constexpr KeyNumber kShiftL = 0xffe1;
constexpr KeyNumber kControlL = 0xffe3;
constexpr KeyNumber kAltL = 0xffe9;
constexpr KeyNumber kSuperL = 0xffeb;
constexpr KeyNumber kSpace = 0x20;

// How long applications get to take the keyboard a new session makes.
constexpr auto kPrimeSettle = std::chrono::milliseconds(150);
// How long a new session waits for a window to become active before it sends keys anyway.
constexpr auto kActivationTimeout = std::chrono::seconds(3);

/// On a seat without a keyboard of its own, windows get the keyboard, and so become active, only
/// a moment after the session's first key, later on a busy machine; keys sent before that are
/// lost. On a desktop with a keyboard a window is active already and this returns at once.
void waitForAnActiveWindow() {
  atspi::ATSPIWindowSystem windows;
  const auto deadline = std::chrono::steady_clock::now() + kActivationTimeout;
  while (!windows.activeWindow() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

// After a key whose effect on the text cannot be told (Return, an arrow, a shortcut), an
// insertion waits this long, so that the key arrives first.
constexpr auto kUntrackedKeySettle = std::chrono::milliseconds(50);

/// The keysyms of the virtual key codes that key names and the idle check use.
std::optional<KeyNumber> keysymForVirtualCode(int code) {
  // The Mac "delete" key (51) erases backwards: BackSpace.
  static constexpr std::pair<int, KeyNumber> table[] = {
      {0, 'a'},      {1, 's'},      {2, 'd'},      {3, 'f'},      {4, 'h'},      {5, 'g'},
      {6, 'z'},      {7, 'x'},      {8, 'c'},      {9, 'v'},      {11, 'b'},     {12, 'q'},
      {13, 'w'},     {14, 'e'},     {15, 'r'},     {16, 'y'},     {17, 't'},     {31, 'o'},
      {32, 'u'},     {34, 'i'},     {35, 'p'},     {36, 0xff0d},  {37, 'l'},     {38, 'j'},
      {40, 'k'},     {45, 'n'},     {46, 'm'},     {48, 0xff09},  {49, kSpace},  {51, 0xff08},
      {53, 0xff1b},  {96, 0xffc2},  {97, 0xffc3},  {98, 0xffc4},  {99, 0xffc0},  {100, 0xffc5},
      {101, 0xffc6}, {103, 0xffc8}, {109, 0xffc7}, {111, 0xffc9}, {115, 0xff50}, {116, 0xff55},
      {118, 0xffc1}, {119, 0xff57}, {120, 0xffbf}, {121, 0xff56}, {122, 0xffbe}, {123, 0xff51},
      {124, 0xff53}, {125, 0xff54}, {126, 0xff52}};
  for (const auto& [virtualCode, keysym] : table) {
    if (virtualCode == code) {
      return keysym;
    }
  }
  return std::nullopt;
}

bool isModifier(KeyNumber keysym) {
  // Shift, Control, Caps Lock, Meta, Alt, Super and Hyper, left and right; AltGr.
  return (keysym >= 0xffe1 && keysym <= 0xffee) || keysym == 0xfe03;
}

/// Modifiers that turn a character key into a shortcut.
bool isShortcutModifier(KeyNumber keysym) {
  return keysym == kControlL || keysym == 0xffe4 || (keysym >= 0xffe7 && keysym <= 0xffee);
}

/// The character a keysym types: Latin-1 keysyms are their code points, Unicode keysyms
/// 0x1000000 plus theirs; none for function keys.
std::optional<char32_t> characterOf(KeyNumber keysym) {
  if ((keysym >= 0x20 && keysym <= 0x7e) || (keysym >= 0xa0 && keysym <= 0xff)) {
    return static_cast<char32_t>(keysym);
  }
  if (keysym >= 0x1000100 && keysym <= 0x110ffff) {
    return static_cast<char32_t>(keysym - 0x1000000);
  }
  return std::nullopt;
}

std::string utf8(char32_t character) {
  char bytes[8] = {};
  const gint length = g_unichar_to_utf8(static_cast<gunichar>(character), bytes);
  return std::string(bytes, static_cast<std::size_t>(length));
}

std::optional<int> evdevButton(int xButton) {
  switch (xButton) {
    case 1:
      return BTN_LEFT;
    case 2:
      return BTN_MIDDLE;
    case 3:
      return BTN_RIGHT;
    case 8:
      return BTN_SIDE;
    case 9:
      return BTN_EXTRA;
    default:
      return std::nullopt;
  }
}

}  // namespace

WaylandInputBackend::WaylandInputBackend(std::shared_ptr<DesktopPortal> portal, Options options)
    : portal_(std::move(portal)),
      options_(std::move(options)),
      tokenFile_(options_.tokenFile, "the remote-desktop permission") {}

WaylandInputBackend::~WaylandInputBackend() {
  if (!session_) {
    return;
  }
  try {
    for (const KeyNumber key : keysDown_) {
      session_->keysym(key, false);
    }
    for (const int button : buttonsDown_) {
      if (const auto code = evdevButton(button)) {
        session_->pointerButton(*code, false);
      }
    }
  } catch (const PortalError&) {
    // The session is gone, and the keys it held with it.
  }
}

bool WaylandInputBackend::available() const {
  if (!version_) {
    version_ = portal_ ? portal_->version(DesktopPortal::kRemoteDesktop) : 0;
  }
  return *version_ > 0;
}

std::string WaylandInputBackend::unavailableReason() const {
  return PortalError::unavailable("remote input (org.freedesktop.portal.RemoteDesktop)",
                                  portal_ ? "the interface is missing" : "no session bus")
      .what();
}

RemoteDesktopSession& WaylandInputBackend::session() {
  if (session_) {
    return *session_;
  }
  if (!portal_) {
    throw PortalError::unavailable("remote input (org.freedesktop.portal.RemoteDesktop)",
                                   "no session bus");
  }
  session_ = std::make_unique<RemoteDesktopSession>(
      *portal_, RemoteDesktopSession::Options{.restoreToken = tokenFile_.read(),
                                              .dialogTimeout = options_.dialogTimeout});
  // Tokens are single-use: the new one replaces the one just spent.
  tokenFile_.store(session_->restoreToken());
  // mutter makes the session's keyboard on its first key, and that key is lost (on a headless
  // seat, windows get the keyboard, and so the focus, only then): a lone Shift changes nothing.
  // The pause lets the applications take the new keyboard before keys that count arrive.
  session_->keysym(kShiftL, true);
  session_->keysym(kShiftL, false);
  readyForKeys_ = false;
  pointerShown_ = false;
  std::this_thread::sleep_for(kPrimeSettle);
  return *session_;
}

template <typename Send>
void WaylandInputBackend::send(const Send& event) {
  RemoteDesktopSession& current = session();
  try {
    event(current);
  } catch (const PortalError&) {
    // The desktop ended the session (its "stop sharing"); whatever it held is released.
    session_.reset();
    keysDown_.clear();
    buttonsDown_.clear();
    throw;
  }
}

void WaylandInputBackend::readyForKeys() {
  session();
  if (!readyForKeys_) {
    // Pointer events need no keyboard; only keys wait, and only once a session.
    waitForAnActiveWindow();
    readyForKeys_ = true;
  }
}

void WaylandInputBackend::keyDown(KeyNumber key) {
  readyForKeys();
  send([&](RemoteDesktopSession& session) { session.keysym(key, true); });
  keysDown_.push_back(key);
  const bool shortcut = std::any_of(keysDown_.begin(), keysDown_.end(), isShortcutModifier);
  if (const auto character = characterOf(key); character && !shortcut) {
    keyedSinceInsertion_ += utf8(*character);
  } else if (!isModifier(key)) {
    keyedSinceInsertion_.clear();
    untrackedKeyAt_ = std::chrono::steady_clock::now();
  }
}

void WaylandInputBackend::keyUp(KeyNumber key) {
  send([&](RemoteDesktopSession& session) { session.keysym(key, false); });
  if (const auto held = std::find(keysDown_.begin(), keysDown_.end(), key);
      held != keysDown_.end()) {
    keysDown_.erase(held);
  }
}

void WaylandInputBackend::buttonDown(int button) {
  using Axis = RemoteDesktopSession::Axis;
  // X numbers the wheel's clicks as buttons 4 to 7; the portal takes them as axis steps, where
  // positive goes down and right.
  if (button >= 4 && button <= 7) {
    const Axis axis = button <= 5 ? Axis::vertical : Axis::horizontal;
    const int steps = button % 2 == 0 ? -1 : 1;
    send([&](RemoteDesktopSession& session) { session.pointerAxisDiscrete(axis, steps); });
    return;
  }
  const auto code = evdevButton(button);
  if (!code) {
    return;
  }
  send([&](RemoteDesktopSession& session) { session.pointerButton(*code, true); });
  buttonsDown_.push_back(button);
  // A click moves the caret or the focus.
  keyedSinceInsertion_.clear();
  untrackedKeyAt_ = std::chrono::steady_clock::now();
}

void WaylandInputBackend::buttonUp(int button) {
  const auto code = evdevButton(button);
  if (!code) {
    return;  // a wheel click is over once sent
  }
  send([&](RemoteDesktopSession& session) { session.pointerButton(*code, false); });
  if (const auto held = std::find(buttonsDown_.begin(), buttonsDown_.end(), button);
      held != buttonsDown_.end()) {
    buttonsDown_.erase(held);
  }
}

void WaylandInputBackend::moveTo(ScreenPoint point) {
  send([&](RemoteDesktopSession& session) {
    const std::vector<ScreenCastStream>& streams = session.streams();
    const auto holding = std::find_if(streams.begin(), streams.end(), [&](const auto& stream) {
      return !stream.frame.intersection({point.x, point.y, 1, 1}).empty();
    });
    const ScreenCastStream& stream = holding != streams.end() ? *holding : streams.front();
    const ScreenRect& frame = stream.frame;
    const int x = std::clamp(point.x, frame.x, frame.x + std::max(frame.width, 1) - 1);
    const int y = std::clamp(point.y, frame.y, frame.y + std::max(frame.height, 1) - 1);
    session.pointerMotionAbsolute(stream.nodeID, x - frame.x, y - frame.y);
    cursor_ = {x, y};
  });
  if (!pointerShown_) {
    // The session's pointer, like its keyboard, is made on its first event, and the window under
    // it learns of the pointer only after that: a button pressed at once may find no window (a
    // first click was lost on a loaded machine).
    std::this_thread::sleep_for(kPrimeSettle);
    pointerShown_ = true;
  }
}

std::optional<KeyStroke> WaylandInputBackend::strokeFor(char32_t character) {
  if (character >= 0x20 && character <= 0x7e) {
    return KeyStroke{static_cast<KeyNumber>(character), false};
  }
  return std::nullopt;
}

std::optional<KeyNumber> WaylandInputBackend::keyForVirtualCode(int virtualKeyCode) {
  return keysymForVirtualCode(virtualKeyCode);
}

std::optional<KeyNumber> WaylandInputBackend::keyForModifier(Modifier modifier) {
  switch (modifier) {
    case Modifier::shift:
      return kShiftL;
    case Modifier::control:
      return kControlL;
    case Modifier::alt:
      return kAltL;
    case Modifier::super:
      return kSuperL;
  }
  return std::nullopt;
}

void WaylandInputBackend::unicodeEntry(char32_t character) {
  // GTK's own input method: Ctrl+Shift+U starts a code point, hex digits spell it, and space
  // ends it. The keys go the way of all others, so they keep their order with them.
  char hex[16];
  std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(character));
  send([&](RemoteDesktopSession& session) {
    session.keysym(kControlL, true);
    session.keysym(kShiftL, true);
    session.keysym('u', true);
    session.keysym('u', false);
    session.keysym(kShiftL, false);
    session.keysym(kControlL, false);
    for (const char* digit = hex; *digit != '\0'; ++digit) {
      session.keysym(static_cast<unsigned char>(*digit), true);
      session.keysym(static_cast<unsigned char>(*digit), false);
    }
    session.keysym(kSpace, true);
    session.keysym(kSpace, false);
  });
}

bool WaylandInputBackend::typeWithoutKey(char32_t character) {
  // The user allows input before any arrives, whichever way it goes.
  readyForKeys();
  if (untrackedKeyAt_) {
    const auto settled = *untrackedKeyAt_ + kUntrackedKeySettle;
    if (std::chrono::steady_clock::now() < settled) {
      std::this_thread::sleep_until(settled);
    }
    untrackedKeyAt_.reset();
  }
  const std::string text = utf8(character);
  if (focusedText_.insert(text, keyedSinceInsertion_)) {
    keyedSinceInsertion_.clear();
    return true;
  }
  if (focusedText_.activeToolkit() == "gtk") {
    unicodeEntry(character);
    keyedSinceInsertion_ += text;
    return true;
  }
  return false;
}

std::string WaylandInputBackend::untypableReason() const {
  return "the compositor's keyboard map lacks it, no text field on the accessibility bus has the "
         "focus, and the active application is no GTK one";
}

KeyboardState WaylandInputBackend::keyboardState() {
  KeyboardState state;
  for (const KeyNumber key : keysDown_) {
    if (key == kShiftL || key == 0xffe2) {
      state.modifiers.insert(Modifier::shift);
    } else if (key == kControlL || key == 0xffe4) {
      state.modifiers.insert(Modifier::control);
    } else if (key == kAltL || key == 0xffea) {
      state.modifiers.insert(Modifier::alt);
    } else if (key == kSuperL || key == 0xffec) {
      state.modifiers.insert(Modifier::super);
    }
  }
  state.keysDown = keysDown_;
  return state;
}

}  // namespace brimble::wayland
