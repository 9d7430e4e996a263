#pragma once

namespace brimble {

/// The mouse buttons a click can use.
enum class MouseButton { left, right };

/// The wheel directions, in this order.
enum class ScrollDirection { up, down, left, right };

}  // namespace brimble
