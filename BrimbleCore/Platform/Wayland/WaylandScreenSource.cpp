#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"

#include <string>

namespace brimble::wayland {
namespace {

constexpr std::uint32_t kMonitorSource = 1;
constexpr std::uint32_t kVirtualSource = 4;

}  // namespace

WaylandScreenSource::WaylandScreenSource(std::shared_ptr<DesktopPortal> portal, Options options)
    : portal_(std::move(portal)),
      options_(std::move(options)),
      tokenFile_(options_.tokenFile, "the screen-sharing permission") {}

std::shared_ptr<ScreenCastShare> WaylandScreenSource::currentShare() {
  std::scoped_lock starting(startMutex_);
  {
    std::scoped_lock lock(shareMutex_);
    if (share_ && !share_->ended) {
      return share_;
    }
    // An ended session closes once its last stream lets go of it.
    share_.reset();
  }
  auto share = std::make_shared<ScreenCastShare>(
      portal_, ScreenCastSession::Options{.sources = ScreenCastSession::Sources::monitor,
                                          .cursor = ScreenCastSession::CursorMode::metadata,
                                          .restoreToken = tokenFile_.read(),
                                          .dialogTimeout = options_.dialogTimeout,
                                          .stop = options_.stop});
  tokenFile_.store(share->session.restoreToken());
  std::scoped_lock lock(shareMutex_);
  cursorMetadata_ = share->session.cursorMode() == ScreenCastSession::CursorMode::metadata;
  share_ = share;
  return share;
}

std::vector<ScreenDisplay> WaylandScreenSource::displaysOf(const ScreenCastShare& share) {
  std::vector<ScreenDisplay> displays;
  for (const ScreenCastStream& stream : share.session.streams()) {
    // A window stream has no place on the screen.
    if ((stream.sourceType != kMonitorSource && stream.sourceType != kVirtualSource) ||
        stream.frame.empty()) {
      continue;
    }
    displays.push_back({.displayID = stream.nodeID,
                        .name = "monitor " + std::to_string(displays.size() + 1),
                        .frame = stream.frame,
                        .scaleFactor = 1,
                        .primary = displays.empty()});
  }
  return displays;
}

std::vector<ScreenDisplay> WaylandScreenSource::displays() {
  return displaysOf(*currentShare());
}

namespace {

const char* const kWindowAdvice =
    "Wayland tells no program where another's window is; record the display or a region instead";

}  // namespace

std::optional<ScreenWindow> WaylandScreenSource::window(std::uint32_t) {
  throw ScreenCaptureError::windowCaptureUnavailable(kWindowAdvice);
}

std::unique_ptr<ScreenStream> WaylandScreenSource::openStream(const CaptureTarget& target,
                                                              bool showCursor) {
  if (target.kind == CaptureTarget::Kind::window) {
    throw ScreenCaptureError::windowCaptureUnavailable(kWindowAdvice);
  }
  std::shared_ptr<ScreenCastShare> share = currentShare();
  const std::optional<ScreenDisplay> display = displayHolding(target.area, displaysOf(*share));
  if (!display) {
    throw ScreenCaptureError::displayUnreachable("the shared monitor");
  }
  const ScreenRect area = target.area.intersection(display->frame);
  return std::make_unique<WaylandScreenStream>(std::move(share), *display, area, showCursor,
                                               options_.firstFrameTimeout);
}

std::optional<std::pair<int, int>> WaylandScreenSource::pointerPosition() {
  std::shared_ptr<ScreenCastShare> share;
  {
    std::scoped_lock lock(shareMutex_);
    share = share_;
  }
  if (!share) {
    return std::nullopt;
  }
  std::scoped_lock lock(share->pointerMutex);
  return share->lastPointer;
}

bool WaylandScreenSource::followsPointer() const {
  std::scoped_lock lock(shareMutex_);
  if (!cursorMetadata_) {
    cursorMetadata_ =
        ScreenCastSession::offersCursorMode(*portal_, ScreenCastSession::CursorMode::metadata);
  }
  return *cursorMetadata_;
}

}  // namespace brimble::wayland
