#pragma once

#include <QRect>

#include "BrimbleCore/Capture/ScreenRect.h"

namespace brimble {

inline QRect toQRect(const ScreenRect& rect) {
  return {rect.x, rect.y, rect.width, rect.height};
}

inline ScreenRect toScreenRect(const QRect& rect) {
  return {rect.x(), rect.y(), rect.width(), rect.height()};
}

}  // namespace brimble
