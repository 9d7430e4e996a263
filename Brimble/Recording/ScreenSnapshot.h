#pragma once

#include <QImage>
#include <QRect>

namespace brimble {

class ScreenSource;

/// The whole screen as it looks now, grabbed through the screen source. Overlays paint it as
/// their background: X without a compositor cannot show translucent windows, so the overlay
/// dims a still of the screen instead of the live screen. A null image when the grab fails.
QImage snapshotScreen(ScreenSource& source, const QRect& area);

}  // namespace brimble
