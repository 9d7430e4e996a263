#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"

#include <algorithm>
#include <string>

namespace brimble::wayland {
namespace {

constexpr std::uint32_t kMonitorSource = 1;
constexpr std::uint32_t kWindowSource = 2;
constexpr std::uint32_t kVirtualSource = 4;

}  // namespace

WaylandScreenSource::WaylandScreenSource(std::shared_ptr<DesktopPortal> portal, Options options)
    : portal_(std::move(portal)),
      options_(std::move(options)),
      tokenFile_(options_.tokenFile, "the screen-sharing permission"),
      windowTokenFile_(options_.windowTokenFile, "the window-sharing permission") {}

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

bool WaylandScreenSource::asksBeforeSharing() const {
  {
    std::scoped_lock lock(shareMutex_);
    if (share_ && !share_->ended) {
      return false;
    }
  }
  return tokenFile_.read().empty();
}

std::vector<ScreenDisplay> WaylandScreenSource::displays() {
  return displaysOf(*currentShare());
}

WaylandScreenSource::SharedWindow WaylandScreenSource::sharedWindow(std::uint32_t windowID) {
  std::scoped_lock starting(startMutex_);
  {
    std::scoped_lock lock(shareMutex_);
    const auto found = std::find_if(windows_.begin(), windows_.end(),
                                    [&](const SharedWindow& w) { return w.windowID == windowID; });
    if (found != windows_.end()) {
      if (!found->share->ended && !found->stream->endReason()) {
        return *found;
      }
      // The window went, or the user stopped sharing it: the next use asks again.
      windows_.erase(found);
    }
  }
  SharedWindow shared{.windowID = windowID, .share = nullptr, .nodeID = 0, .stream = nullptr};
  shared.share = std::make_shared<ScreenCastShare>(
      portal_,
      ScreenCastSession::Options{.sources = ScreenCastSession::Sources::window,
                                 .cursor = ScreenCastSession::CursorMode::metadata,
                                 .restoreToken = windowTokenFile_.read(std::to_string(windowID)),
                                 .dialogTimeout = options_.dialogTimeout,
                                 .stop = options_.stop});
  windowTokenFile_.store(shared.share->session.restoreToken(), std::to_string(windowID));
  const std::vector<ScreenCastStream>& streams = shared.share->session.streams();
  const auto stream = std::find_if(streams.begin(), streams.end(), [](const ScreenCastStream& s) {
    return s.sourceType == kWindowSource;
  });
  // A portal that names no source type shares what it was asked for.
  shared.nodeID = stream != streams.end() ? stream->nodeID : streams.front().nodeID;
  shared.stream = shared.share->connect(shared.nodeID);
  shared.stream->waitForPicture(options_.firstFrameTimeout);
  if (shared.stream->endReason()) {
    shared.share->ended = true;
    throw ScreenCaptureError::windowClosed(windowID);
  }
  std::scoped_lock lock(shareMutex_);
  windows_.push_back(shared);
  return shared;
}

std::optional<ScreenWindow> WaylandScreenSource::window(std::uint32_t windowID) {
  const SharedWindow shared = sharedWindow(windowID);
  const std::optional<ImageSize> size = shared.stream->pictureSize();
  if (!size) {
    return std::nullopt;
  }
  return ScreenWindow{
      .windowID = windowID, .frame = {0, 0, size->width, size->height}, .positionKnown = false};
}

std::unique_ptr<ScreenStream> WaylandScreenSource::openStream(const CaptureTarget& target,
                                                              bool showCursor) {
  if (target.kind == CaptureTarget::Kind::window) {
    const SharedWindow shared = sharedWindow(target.windowID);
    return std::make_unique<WaylandScreenStream>(shared.share, shared.nodeID, target.windowID,
                                                 showCursor, options_.firstFrameTimeout);
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
