#pragma once

#include <QGuiApplication>
#include <QWidget>

namespace brimble {

/// Whether the app's windows are Wayland surfaces. The compositor places those, and nothing can
/// stay above the others, so a window meant to cover the screen is made full screen instead of
/// being placed over the desktop.
inline bool onWayland() {
  return QGuiApplication::platformName() == QLatin1String("wayland");
}

/// Shows `window` over the whole screen it is on: a Wayland compositor would place a plain
/// window of the desktop's size wherever it likes.
inline void showCovering(QWidget& window) {
  if (onWayland()) {
    window.showFullScreen();
  } else {
    window.show();
  }
}

}  // namespace brimble
