#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>
#include <system_error>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble::wayland {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kMonitorSource = 1;
constexpr std::uint32_t kWindowSource = 2;
constexpr std::uint32_t kVirtualSource = 4;
constexpr std::size_t kLongestToken = 512;

/// The first `count` lines of `file`, each without trailing blanks; fewer when it has fewer.
/// Each line is short printable ASCII (the portal's tokens are UUIDs); the reading stops at
/// anything else, a damaged file, which sending would only make fail.
std::vector<std::string> readTokenLines(const fs::path& file, std::size_t count) {
  std::vector<std::string> lines;
  std::ifstream stream(file);
  std::string line;
  while (lines.size() < count && stream && std::getline(stream, line)) {
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
      line.pop_back();
    }
    if (line.size() > kLongestToken ||
        std::any_of(line.begin(), line.end(), [](char c) { return c <= ' ' || c > '~'; })) {
      break;
    }
    lines.push_back(line);
  }
  return lines;
}

/// The token kept in `file`; empty when there is none or it is not one.
std::string readToken(const fs::path& file) {
  const std::vector<std::string> lines = readTokenLines(file, 1);
  return lines.empty() ? std::string() : lines.front();
}

/// The token kept in `file` for window `windowID`; empty when there is none, or it was given
/// for another window: the portal would share that one without asking.
std::string readWindowToken(const fs::path& file, std::uint32_t windowID) {
  const std::vector<std::string> lines = readTokenLines(file, 2);
  if (lines.size() < 2 || lines[1] != std::to_string(windowID)) {
    return {};
  }
  return lines[0];
}

/// Creates `folder` and its missing parents, each readable by the user alone: the token in it
/// lets whoever reads it watch the screen without asking.
void createPrivateFolder(const fs::path& folder) {
  if (folder.empty() || fs::is_directory(folder)) {
    return;
  }
  createPrivateFolder(folder.parent_path());
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category(), "cannot create " + folder.string());
  }
}

/// Keeps `token` in `file` for the next session, replacing the one used up, with `lines` after
/// it. A failure costs only a dialog next time, so it is logged, not thrown.
void writeToken(const fs::path& file, const std::string& token, const std::string& lines = {}) {
  if (token.empty()) {
    return;
  }
  try {
    createPrivateFolder(file.parent_path());
    writeFileAtomically(file, token + "\n" + lines, 0600);
  } catch (const std::exception& error) {
    logLine(std::string("BrimbleCore: could not keep the screen-sharing permission for next "
                        "time (") +
            error.what() + ")");
  }
}

std::string homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') {
    return home;
  }
  const passwd* entry = ::getpwuid(::getuid());
  return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "";
}

}  // namespace

fs::path WaylandScreenSource::defaultTokenFile() {
  if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/') {
    return fs::path(state) / "brimble" / "screencast-token";
  }
  return fs::path(homeDirectory()) / ".local/state/brimble/screencast-token";
}

fs::path WaylandScreenSource::defaultWindowTokenFile() {
  return defaultTokenFile().parent_path() / "screencast-window-token";
}

WaylandScreenSource::WaylandScreenSource(std::shared_ptr<DesktopPortal> portal, Options options)
    : portal_(std::move(portal)), options_([&] {
        if (options.tokenFile.empty()) {
          options.tokenFile = defaultTokenFile();
        }
        if (options.windowTokenFile.empty()) {
          options.windowTokenFile = defaultWindowTokenFile();
        }
        return options;
      }()) {}

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
                                          .restoreToken = readToken(options_.tokenFile),
                                          .dialogTimeout = options_.dialogTimeout,
                                          .stop = options_.stop});
  writeToken(options_.tokenFile, share->session.restoreToken());
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
      portal_, ScreenCastSession::Options{
                   .sources = ScreenCastSession::Sources::window,
                   .cursor = ScreenCastSession::CursorMode::metadata,
                   .restoreToken = readWindowToken(options_.windowTokenFile, windowID),
                   .dialogTimeout = options_.dialogTimeout,
                   .stop = options_.stop});
  writeToken(options_.windowTokenFile, shared.share->session.restoreToken(),
             std::to_string(windowID) + "\n");
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
