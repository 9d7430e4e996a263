#include "BrimbleCore/Platform/X11/X11InputBackend.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <X11/X.h>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include "BrimbleCore/Platform/X11/XHandles.h"

namespace brimble::x11 {
namespace {

// Enough that a program must fall 16 bound characters behind to read a key rebound since.
constexpr std::size_t kMaxSpareKeys = 16;

/// One snapshot of the core keyboard map. Read afresh for each question, because Xlib's own
/// cache only follows changes for connections that read their MappingNotify events.
class Keymap {
 public:
  explicit Keymap(Display* display) {
    XDisplayKeycodes(display, &minKeycode_, &maxKeycode_);
    symbols_.reset(XGetKeyboardMapping(display, static_cast<KeyCode>(minKeycode_),
                                       maxKeycode_ - minKeycode_ + 1, &perKeycode_));
    checkConnection(display);
    if (!symbols_) {
      maxKeycode_ = minKeycode_ - 1;
    }
  }

  int minKeycode() const { return minKeycode_; }
  int maxKeycode() const { return maxKeycode_; }
  int perKeycode() const { return perKeycode_; }

  KeySym at(int keycode, int column) const {
    if (column >= perKeycode_) {
      return NoSymbol;
    }
    return symbols_.get()[(keycode - minKeycode_) * perKeycode_ + column];
  }

  /// What the key gives without and with Shift in the first group. A key that lists one
  /// letter gives its upper case with Shift, as Xlib's lookup does.
  std::pair<KeySym, KeySym> levels(int keycode) const {
    const KeySym plain = at(keycode, 0);
    const KeySym shifted = at(keycode, 1);
    if (shifted != NoSymbol) {
      return {plain, shifted};
    }
    KeySym lower = NoSymbol;
    KeySym upper = NoSymbol;
    XConvertCase(plain, &lower, &upper);
    return {lower, upper};
  }

  bool unused(int keycode) const {
    for (int column = 0; column < perKeycode_; ++column) {
      if (at(keycode, column) != NoSymbol) {
        return false;
      }
    }
    return true;
  }

 private:
  int minKeycode_ = 0;
  int maxKeycode_ = 0;
  int perKeycode_ = 0;
  XFreePtr<KeySym> symbols_;
};

/// The keysym of a character: Latin-1 characters are their own keysyms, every other character
/// has the Unicode keysym 0x1000000 + its code point.
KeySym keysymFor(char32_t character) {
  if ((character >= 0x20 && character <= 0x7E) || (character >= 0xA0 && character <= 0xFF)) {
    return character;
  }
  return 0x01000000 | character;
}

/// The X keysyms of the virtual key codes that key names and the idle check use.
KeySym keysymForVirtualCode(int code) {
  // The Mac "delete" key (51) erases backwards: BackSpace.
  static constexpr std::pair<int, KeySym> table[] = {
      {0, XK_a},        {1, XK_s},        {2, XK_d},      {3, XK_f},       {4, XK_h},
      {5, XK_g},        {6, XK_z},        {7, XK_x},      {8, XK_c},       {9, XK_v},
      {11, XK_b},       {12, XK_q},       {13, XK_w},     {14, XK_e},      {15, XK_r},
      {16, XK_y},       {17, XK_t},       {31, XK_o},     {32, XK_u},      {34, XK_i},
      {35, XK_p},       {36, XK_Return},  {37, XK_l},     {38, XK_j},      {40, XK_k},
      {45, XK_n},       {46, XK_m},       {48, XK_Tab},   {49, XK_space},  {51, XK_BackSpace},
      {53, XK_Escape},  {96, XK_F5},      {97, XK_F6},    {98, XK_F7},     {99, XK_F3},
      {100, XK_F8},     {101, XK_F9},     {103, XK_F11},  {109, XK_F10},   {111, XK_F12},
      {114, XK_Insert}, {117, XK_Delete}, {115, XK_Home}, {116, XK_Prior}, {118, XK_F4},
      {119, XK_End},    {120, XK_F2},     {121, XK_Next}, {122, XK_F1},    {123, XK_Left},
      {124, XK_Right},  {125, XK_Down},   {126, XK_Up}};
  for (const auto& [virtualCode, keysym] : table) {
    if (virtualCode == code) {
      return keysym;
    }
  }
  return NoSymbol;
}

int modifierRow(Modifier modifier) {
  switch (modifier) {
    case Modifier::shift:
      return ShiftMapIndex;
    case Modifier::control:
      return ControlMapIndex;
    case Modifier::alt:
      return Mod1MapIndex;
    case Modifier::super:
      return Mod4MapIndex;
  }
  return ShiftMapIndex;
}

}  // namespace

X11InputBackend::X11InputBackend(const std::string& displayName)
    : display_(openDisplay(displayName)) {
  int eventBase = 0;
  int errorBase = 0;
  int major = 0;
  int minor = 0;
  available_ = display_ &&
               XTestQueryExtension(display_.get(), &eventBase, &errorBase, &major, &minor) == True;
}

X11InputBackend::~X11InputBackend() {
  if (!available_ || connectionLost(display_.get())) {
    return;
  }
  for (const KeyNumber key : keysDown_) {
    XTestFakeKeyEvent(display_.get(), key, False, CurrentTime);
  }
  for (const int button : buttonsDown_) {
    XTestFakeButtonEvent(display_.get(), static_cast<unsigned>(button), False, CurrentTime);
  }
  try {
    restoreSpareKeys();
    sync();
  } catch (const XDisplayError&) {
    // The server is gone, and the keys we held and bound with it.
  }
}

void X11InputBackend::sync() {
  // Discarding the queue drops the MappingNotify events our own map changes bring; nothing
  // else is selected on this connection, and a long session would pile them up.
  XSync(display_.get(), True);
  checkConnection(display_.get());
}

void X11InputBackend::keyDown(KeyNumber key) {
  XTestFakeKeyEvent(display_.get(), key, True, CurrentTime);
  sync();
  keysDown_.push_back(key);
}

void X11InputBackend::keyUp(KeyNumber key) {
  XTestFakeKeyEvent(display_.get(), key, False, CurrentTime);
  sync();
  std::erase(keysDown_, key);
}

void X11InputBackend::buttonDown(int button) {
  XTestFakeButtonEvent(display_.get(), static_cast<unsigned>(button), True, CurrentTime);
  sync();
  buttonsDown_.push_back(button);
}

void X11InputBackend::buttonUp(int button) {
  XTestFakeButtonEvent(display_.get(), static_cast<unsigned>(button), False, CurrentTime);
  sync();
  std::erase(buttonsDown_, button);
}

void X11InputBackend::moveTo(ScreenPoint point) {
  XTestFakeMotionEvent(display_.get(), -1, point.x, point.y, CurrentTime);
  sync();
}

ScreenPoint X11InputBackend::cursorPosition() {
  const PointerState pointer = queryPointer(display_.get());
  checkConnection(display_.get());
  return {pointer.x, pointer.y};
}

std::optional<KeyStroke> X11InputBackend::strokeFor(char32_t character) {
  const KeySym wanted = keysymFor(character);
  const Keymap keymap(display_.get());
  std::optional<KeyStroke> shifted;
  for (int keycode = keymap.minKeycode(); keycode <= keymap.maxKeycode(); ++keycode) {
    const auto [plain, withShift] = keymap.levels(keycode);
    if (plain == wanted) {
      return KeyStroke{static_cast<KeyNumber>(keycode), false};
    }
    if (withShift == wanted && !shifted) {
      shifted = KeyStroke{static_cast<KeyNumber>(keycode), true};
    }
  }
  return shifted;
}

std::optional<KeyNumber> X11InputBackend::keyForVirtualCode(int virtualKeyCode) {
  const KeySym wanted = keysymForVirtualCode(virtualKeyCode);
  if (wanted == NoSymbol) {
    return std::nullopt;
  }
  const Keymap keymap(display_.get());
  for (int column = 0; column < keymap.perKeycode(); ++column) {
    for (int keycode = keymap.minKeycode(); keycode <= keymap.maxKeycode(); ++keycode) {
      if (keymap.at(keycode, column) == wanted) {
        return static_cast<KeyNumber>(keycode);
      }
    }
  }
  return std::nullopt;
}

std::optional<KeyNumber> X11InputBackend::keyForModifier(Modifier modifier) {
  // The modifier map, not a keysym, says which keys set a modifier: Alt can sit on Meta_L.
  const std::unique_ptr<XModifierKeymap, decltype(&XFreeModifiermap)> map(
      XGetModifierMapping(display_.get()), &XFreeModifiermap);
  checkConnection(display_.get());
  if (!map) {
    return std::nullopt;
  }
  const int row = modifierRow(modifier);
  for (int i = 0; i < map->max_keypermod; ++i) {
    const KeyCode keycode = map->modifiermap[row * map->max_keypermod + i];
    if (keycode != 0) {
      return keycode;
    }
  }
  return std::nullopt;
}

std::optional<KeyNumber> X11InputBackend::bindSpareKey(char32_t character) {
  std::optional<KeyNumber> key;
  if (spareKeys_.size() < kMaxSpareKeys) {
    const Keymap keymap(display_.get());
    for (int keycode = keymap.maxKeycode(); keycode >= keymap.minKeycode() && !key; --keycode) {
      if (keymap.unused(keycode)) {
        SpareKey spare{static_cast<KeyNumber>(keycode), {}};
        for (int column = 0; column < keymap.perKeycode(); ++column) {
          spare.original.push_back(keymap.at(keycode, column));
        }
        spareKeys_.push_back(std::move(spare));
        key = static_cast<KeyNumber>(keycode);
      }
    }
  }
  if (!key && !spareKeys_.empty()) {
    // All taken: the one bound longest ago goes again.
    std::rotate(spareKeys_.begin(), spareKeys_.begin() + 1, spareKeys_.end());
    key = spareKeys_.back().key;
  }
  if (!key) {
    return std::nullopt;
  }
  // The same keysym with and without Shift, so a held Shift cannot change the character.
  KeySym symbols[2] = {keysymFor(character), keysymFor(character)};
  XChangeKeyboardMapping(display_.get(), static_cast<int>(*key), 2, symbols, 1);
  sync();
  return key;
}

void X11InputBackend::restoreSpareKeys() {
  for (const SpareKey& spare : spareKeys_) {
    std::vector<KeySym> symbols(spare.original.begin(), spare.original.end());
    if (symbols.empty()) {
      symbols.push_back(NoSymbol);
    }
    XChangeKeyboardMapping(display_.get(), static_cast<int>(spare.key),
                           static_cast<int>(symbols.size()), symbols.data(), 1);
  }
  if (!spareKeys_.empty()) {
    sync();
  }
  spareKeys_.clear();
}

KeyboardState X11InputBackend::keyboardState() {
  KeyboardState state;
  char keys[32] = {};
  XQueryKeymap(display_.get(), keys);
  for (int byte = 0; byte < 32; ++byte) {
    for (int bit = 0; bit < 8; ++bit) {
      if ((static_cast<unsigned char>(keys[byte]) & (1U << bit)) != 0) {
        state.keysDown.push_back(static_cast<KeyNumber>(byte * 8 + bit));
      }
    }
  }
  const unsigned mask = queryPointer(display_.get()).mask;
  checkConnection(display_.get());
  const std::pair<unsigned, Modifier> masks[] = {{ShiftMask, Modifier::shift},
                                                 {ControlMask, Modifier::control},
                                                 {Mod1Mask, Modifier::alt},
                                                 {Mod4Mask, Modifier::super}};
  for (const auto& [bits, modifier] : masks) {
    if ((mask & bits) != 0) {
      state.modifiers.insert(modifier);
    }
  }
  return state;
}

}  // namespace brimble::x11
