#pragma once

#include <memory>

#include <QImage>
#include <QRect>

#include "BrimbleCore/Capture/ScreenSource.h"

namespace brimble {

/// Stills of the screen, grabbed through the screen source. Overlays paint them as their
/// background: X without a compositor cannot show translucent windows, so an overlay dims a
/// still of the screen instead of the live screen. The stream stays open between stills, since
/// opening one (a connection and shared memory) costs more than the grab. Main thread only.
class ScreenSnapshot {
 public:
  /// `source` must outlive the snapshot.
  explicit ScreenSnapshot(ScreenSource& source) : source_(source) {}

  /// `area` of the screen as it looks now; a null image when the grab fails.
  QImage grab(const QRect& area);

 private:
  ScreenSource& source_;
  QRect streamArea_;
  std::unique_ptr<ScreenStream> stream_;
};

}  // namespace brimble
