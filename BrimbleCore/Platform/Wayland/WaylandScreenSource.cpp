#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"

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
constexpr std::uint32_t kVirtualSource = 4;
constexpr std::size_t kLongestToken = 512;

/// The token kept in `file`; empty when there is none or it is not one. The portal's tokens are
/// short printable ASCII (UUIDs); anything else is a damaged file, and sending it would only fail.
std::string readToken(const fs::path& file) {
  std::ifstream stream(file);
  std::string token;
  if (!stream || !std::getline(stream, token)) {
    return {};
  }
  while (!token.empty() && (token.back() == '\r' || token.back() == ' ')) {
    token.pop_back();
  }
  if (token.size() > kLongestToken) {
    return {};
  }
  for (const char c : token) {
    if (c <= ' ' || c > '~') {
      return {};
    }
  }
  return token;
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

/// Keeps `token` in `file` for the next session, replacing the one used up. A failure costs only
/// a dialog next time, so it is logged, not thrown.
void writeToken(const fs::path& file, const std::string& token) {
  if (token.empty()) {
    return;
  }
  try {
    createPrivateFolder(file.parent_path());
    writeFileAtomically(file, token + "\n", 0600);
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

WaylandScreenSource::WaylandScreenSource(std::shared_ptr<DesktopPortal> portal, Options options)
    : portal_(std::move(portal)), options_([&] {
        if (options.tokenFile.empty()) {
          options.tokenFile = defaultTokenFile();
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
