#include "BrimbleCore/Platform/Wayland/WaylandScreenStream.h"

#include <cmath>
#include <cstring>

#include "BrimbleCore/Capture/CursorImage.h"

namespace brimble::wayland {

WaylandScreenStream::WaylandScreenStream(std::shared_ptr<ScreenCastShare> share,
                                         const ScreenDisplay& display, const ScreenRect& area,
                                         bool showCursor,
                                         std::chrono::milliseconds firstFrameTimeout)
    : share_(std::move(share)),
      nodeID_(display.displayID),
      display_(display),
      area_{area.x - display.frame.x, area.y - display.frame.y, area.width, area.height},
      showCursor_(showCursor),
      stream_(share_->connect(display.displayID)) {
  // Waited for here rather than in the first grab: a recorder opens its stream before its first
  // tick, so its frames then come evenly from the start. A stream whose first picture is late
  // still opens; its grabs have nothing until the picture comes.
  stream_->waitForPicture(firstFrameTimeout);
  checkStillStreaming();
}

WaylandScreenStream::WaylandScreenStream(std::shared_ptr<ScreenCastShare> share,
                                         std::uint32_t nodeID, std::uint32_t windowID,
                                         bool showCursor,
                                         std::chrono::milliseconds firstFrameTimeout)
    : share_(std::move(share)),
      nodeID_(nodeID),
      windowID_(windowID),
      showCursor_(showCursor),
      stream_(share_->connect(nodeID)) {
  stream_->waitForPicture(firstFrameTimeout);
  checkStillStreaming();
}

WaylandScreenStream::~WaylandScreenStream() {
  share_->keepCursor(nodeID_, stream_->cursor());
}

void WaylandScreenStream::checkStillStreaming() {
  if (const auto reason = stream_->endReason()) {
    share_->ended = true;
    // The compositor ends a window's stream when the window goes.
    if (!display_) {
      throw ScreenCaptureError::windowClosed(windowID_);
    }
    throw ScreenCaptureError::displayLost(
        "the screen \"" + display_->name + "\" shared by the desktop portal", *reason);
  }
}

PointerState WaylandScreenStream::onScreen(const PipeWireStream::Pointer& pointer) {
  if (!display_) {
    return PointerState{pointer.x, pointer.y, pointer.cursor, pointer.serial};
  }
  // The picture's pixels onto the display's logical coordinates: the same unless the compositor
  // scales the monitor.
  const ScreenRect& frame = display_->frame;
  const ImageSize picture = frame_ ? frame_->pictureSize : ImageSize{frame.width, frame.height};
  const double scaleX = picture.width > 0 ? static_cast<double>(frame.width) / picture.width : 1;
  const double scaleY = picture.height > 0 ? static_cast<double>(frame.height) / picture.height : 1;
  const int x = frame.x + static_cast<int>(std::lround(pointer.x * scaleX));
  const int y = frame.y + static_cast<int>(std::lround(pointer.y * scaleY));
  {
    std::scoped_lock lock(share_->pointerMutex);
    share_->lastPointer = std::pair{x, y};
  }
  return PointerState{x, y, pointer.cursor, pointer.serial};
}

std::optional<Image> WaylandScreenStream::grab() {
  checkStillStreaming();
  const std::uint64_t shown = frame_ ? frame_->sequence : 0;
  // A window's picture is taken whole, at whatever size the window has now.
  const ImageSize whole = display_ ? ImageSize{display_->frame.width, display_->frame.height}
                                   : stream_->pictureSize().value_or(ImageSize{});
  const ScreenRect area = display_ ? area_ : ScreenRect{0, 0, whole.width, whole.height};
  if (auto fresh = stream_->frameAfter(shown, area, whole)) {
    frame_ = std::move(fresh);
  }
  if (!frame_) {
    return std::nullopt;
  }
  const std::optional<PipeWireStream::Pointer> pointer = stream_->pointer();
  if (pointer) {
    onScreen(*pointer);
  }
  if (!showCursor_ || !pointer || pointer->cursor.image.empty()) {
    return frame_->image;
  }
  // In the copied part's pixels, where the cursor's bitmap is drawn at the picture's scale.
  const std::pair at{pointer->x - frame_->pixelArea.x, pointer->y - frame_->pixelArea.y};
  if (composed_.empty() || composedSequence_ != frame_->sequence ||
      composedSerial_ != pointer->serial || composedAt_ != at) {
    const Image& image = frame_->image;
    const std::span<const std::uint8_t> bytes = image.bytes();
    PixelBuffer pixels(bytes.size());
    std::memcpy(pixels.data(), bytes.data(), bytes.size());
    blendCursor(pixels, image.bytesPerRow(), image.width(), image.height(), pointer->cursor,
                at.first, at.second);
    composed_ = Image::bgra8(image.width(), image.height(), std::move(pixels), image.bytesPerRow());
    composedSequence_ = frame_->sequence;
    composedSerial_ = pointer->serial;
    composedAt_ = at;
  }
  return composed_;
}

std::optional<PointerState> WaylandScreenStream::pointer() {
  const std::optional<PipeWireStream::Pointer> pointer = stream_->pointer();
  if (!pointer) {
    return std::nullopt;
  }
  return onScreen(*pointer);
}

}  // namespace brimble::wayland
