#include "BrimbleCore/Platform/X11/X11GlobalHotkey.h"

#include <cctype>
#include <map>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include "BrimbleCore/Support/Text.h"

namespace brimble::x11 {

namespace {

/// Qt's names for keys whose X keysym is spelled differently.
KeySym keysymForName(const std::string& name) {
  static const std::map<std::string, std::string> kAliases = {
      {"space", "space"},   {"esc", "Escape"},
      {"escape", "Escape"}, {"enter", "Return"},
      {"return", "Return"}, {"del", "Delete"},
      {"ins", "Insert"},    {"pgup", "Prior"},
      {"pgdown", "Next"},   {"backspace", "BackSpace"},
      {"print", "Print"},   {"tab", "Tab"},
      {"+", "plus"},        {"-", "minus"},
      {"=", "equal"},       {",", "comma"},
      {".", "period"},      {"/", "slash"},
  };
  if (const auto alias = kAliases.find(lowercased(name)); alias != kAliases.end()) {
    return XStringToKeysym(alias->second.c_str());
  }
  // Key names arrive lower-cased; X spells most keysyms capitalised ("F9", "Home").
  KeySym keysym = XStringToKeysym(name.c_str());
  if (keysym == NoSymbol && !name.empty()) {
    std::string capitalised = name;
    capitalised[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    keysym = XStringToKeysym(capitalised.c_str());
  }
  return keysym;
}

unsigned findNumLockMask(Display* display) {
  unsigned mask = 0;
  XModifierKeymap* map = XGetModifierMapping(display);
  if (map == nullptr) {
    return Mod2Mask;
  }
  const KeyCode numLock = XKeysymToKeycode(display, XK_Num_Lock);
  for (int modifier = 0; modifier < 8; ++modifier) {
    for (int k = 0; k < map->max_keypermod; ++k) {
      if (numLock != 0 && map->modifiermap[modifier * map->max_keypermod + k] == numLock) {
        mask = 1u << modifier;
      }
    }
  }
  XFreeModifiermap(map);
  return mask != 0 ? mask : Mod2Mask;
}

}  // namespace

X11GlobalHotkey::X11GlobalHotkey(const std::string& shortcut, const std::string& displayName)
    : display_(openDisplay(displayName)) {
  if (!display_) {
    throw GlobalHotkeyError::unavailable(
        "No X11 display could be reached for the global shortcut.");
  }
  const KeyChord chord = parseShortcut(shortcut);
  const KeySym keysym = keysymForName(chord.key);
  keycode_ = keysym == NoSymbol ? 0 : XKeysymToKeycode(display_.get(), keysym);
  if (keycode_ == 0) {
    throw GlobalHotkeyError::invalidShortcut(shortcut);
  }
  if (chord.modifiers.contains(Modifier::shift)) {
    modifiers_ |= ShiftMask;
  }
  if (chord.modifiers.contains(Modifier::control)) {
    modifiers_ |= ControlMask;
  }
  if (chord.modifiers.contains(Modifier::alt)) {
    modifiers_ |= Mod1Mask;
  }
  if (chord.modifiers.contains(Modifier::super)) {
    modifiers_ |= Mod4Mask;
  }
  numLockMask_ = findNumLockMask(display_.get());
  root_ = DefaultRootWindow(display_.get());
  // Without detectable auto-repeat a held key sends release-press pairs, which would read as
  // fresh presses; with it, repeats are presses without releases, which `held_` filters.
  XkbSetDetectableAutoRepeat(display_.get(), True, nullptr);
  const bool grabbed = succeeds(display_.get(), [&] {
    for (unsigned mask : grabMasks()) {
      XGrabKey(display_.get(), keycode_, mask, root_, False, GrabModeAsync, GrabModeAsync);
    }
  });
  if (!grabbed) {
    // BadAccess is the only error XGrabKey gives for a valid key on the root window. One
    // variant refused leaves the others grabbed: release them.
    for (unsigned mask : grabMasks()) {
      XUngrabKey(display_.get(), keycode_, mask, root_);
    }
    syncDisplay(display_.get());
    throw GlobalHotkeyError::alreadyTaken(shortcut);
  }
  XSelectInput(display_.get(), root_, NoEventMask);
  XFlush(display_.get());
}

X11GlobalHotkey::~X11GlobalHotkey() {
  if (display_ && !connectionLost(display_.get())) {
    for (unsigned mask : grabMasks()) {
      XUngrabKey(display_.get(), keycode_, mask, root_);
    }
    XFlush(display_.get());
  }
}

std::vector<unsigned> X11GlobalHotkey::grabMasks() const {
  return {modifiers_, modifiers_ | LockMask, modifiers_ | numLockMask_,
          modifiers_ | LockMask | numLockMask_};
}

int X11GlobalHotkey::eventFd() const {
  return ConnectionNumber(display_.get());
}

int X11GlobalHotkey::takePresses() {
  int presses = 0;
  while (!connectionLost(display_.get()) && XPending(display_.get()) > 0) {
    XEvent event;
    XNextEvent(display_.get(), &event);
    if (event.type == KeyPress && static_cast<int>(event.xkey.keycode) == keycode_) {
      if (!held_) {
        ++presses;
      }
      held_ = true;
    } else if (event.type == KeyRelease && static_cast<int>(event.xkey.keycode) == keycode_) {
      held_ = false;
    }
  }
  return presses;
}

}  // namespace brimble::x11
