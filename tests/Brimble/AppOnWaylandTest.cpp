#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/WaylandSession.h"

extern char** environ;

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// The pixel at (`x`, `y`) of a bgra8 image, as 0xRRGGBB.
unsigned rgbAt(const Image& image, int x, int y) {
  const auto p = image.row(y).subspan(static_cast<std::size_t>(x) * 4, 4);
  return (static_cast<unsigned>(p[2]) << 16) | (static_cast<unsigned>(p[1]) << 8) | p[0];
}

int red(unsigned rgb) {
  return static_cast<int>(rgb >> 16) & 255;
}
int green(unsigned rgb) {
  return static_cast<int>(rgb >> 8) & 255;
}
int blue(unsigned rgb) {
  return static_cast<int>(rgb) & 255;
}

/// Where pixels that `matches` lie in `image`, as their bounding box; empty when none do.
ScreenRect boxOf(const Image& image, const std::function<bool(unsigned)>& matches) {
  int left = image.width();
  int top = image.height();
  int right = -1;
  int bottom = -1;
  for (int y = 0; y < image.height(); y += 2) {
    for (int x = 0; x < image.width(); x += 2) {
      if (matches(rgbAt(image, x, y))) {
        left = std::min(left, x);
        top = std::min(top, y);
        right = std::max(right, x);
        bottom = std::max(bottom, y);
      }
    }
  }
  return right < 0 ? ScreenRect{} : ScreenRect{left, top, right - left + 2, bottom - top + 2};
}

/// How many of every fourth pixel of `image` match.
int countOf(const Image& image, const std::function<bool(unsigned)>& matches) {
  int count = 0;
  for (int y = 0; y < image.height(); y += 2) {
    for (int x = 0; x < image.width(); x += 2) {
      count += matches(rgbAt(image, x, y)) ? 1 : 0;
    }
  }
  return count;
}

/// The control panel's dark grey, which nothing else on this desktop shows in a large patch
/// (the desktop's own dark is blue; the main window is light, with thin dark text).
bool panelGrey(unsigned rgb) {
  return red(rgb) < 60 && std::abs(red(rgb) - green(rgb)) < 8 &&
         std::abs(green(rgb) - blue(rgb)) < 8;
}

/// The desktop app in the headless GNOME session, with its settings, library and permission in
/// a private folder, driven through mutter's remote-desktop API as a user's mouse and keyboard.
class AppOnWayland : public ::testing::Test {
 protected:
  /// GNOME Shell where the portal's window chooser must list windows; bare mutter lists none.
  virtual testing::WaylandSession::Options sessionOptions() const { return {}; }

  void SetUp() override {
    session_ = testing::WaylandSession::start(sessionOptions());
    if (!session_) {
      GTEST_SKIP() << "mutter (or GNOME Shell) is not installed";
    }
    fs::create_directories(folder_ / "config" / "brimble");
    std::ofstream(folder_ / "config" / "brimble" / "brimble.conf")
        << "[General]\nshowCursor=false\nframeRate=24\ncountdownDelay=0\n"
           "showPreviewAfterCapture=false\ndesktopShortcutOffered=true\n";
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string line = *entry;
      if (!line.starts_with("XDG_CONFIG_HOME=") && !line.starts_with("XDG_DATA_HOME=") &&
          !line.starts_with("XDG_STATE_HOME=") && !line.starts_with("QT_QPA_PLATFORM=")) {
        environment_.push_back(line);
      }
    }
    environment_.push_back("XDG_CONFIG_HOME=" + (folder_ / "config").string());
    environment_.push_back("XDG_DATA_HOME=" + (folder_ / "data").string());
    environment_.push_back("XDG_STATE_HOME=" + (folder_ / "state").string());
    // Its buttons on the accessibility bus, pressed there as a screen reader's user would.
    environment_.push_back("QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1");
  }

  /// The GIF on the clipboard, read back by another client.
  std::optional<testing::DecodedGIF> clipboardGIF() {
    const auto bytes = session_->withKeyboard({"wl-paste", "--type", "image/gif"});
    if (!bytes) {
      return std::nullopt;
    }
    return testing::decodeGIF(std::vector<std::uint8_t>(bytes->begin(), bytes->end()));
  }

  void TearDown() override {
    if (app_) {
      app_->signal(SIGTERM);
      app_->wait(5s);
    }
  }

  /// Waits for `text` in what the app logged after the last line found this way.
  bool logged(const std::string& text, std::chrono::seconds timeout = 20s) {
    const bool found = app_->waitForError(text, timeout);
    log_ = app_->errorOutput();  // for the failure's message
    return found;
  }

  /// The screen now, seen with the permission the app was given (its restore token).
  Image still() {
    if (!screen_) {
      screen_ = std::make_unique<wayland::WaylandScreenSource>(
          std::make_shared<wayland::DesktopPortal>(),
          wayland::WaylandScreenSource::Options{.tokenFile = folder_ / "state" / "brimble" /
                                                             "screencast-token"});
      stream_ = screen_->openStream(CaptureTarget::screenAreaOf({0, 0, 1280, 800}), false);
    }
    std::optional<Image> image = stream_->grab();
    if (!image) {
      ADD_FAILURE() << "no still of the screen";
      return {};
    }
    return std::move(*image);
  }

  std::unique_ptr<testing::WaylandSession> session_;
  testing::TempDirectory folder_;
  std::vector<std::string> environment_;
  std::optional<testing::ChildProcess> app_;
  std::unique_ptr<wayland::WaylandScreenSource> screen_;
  std::unique_ptr<ScreenStream> stream_;
  std::string log_;
};

TEST_F(AppOnWayland, ToggleSelectRecordAndReturnPutTheGIFOfTheRegionOnTheClipboard) {
  ASSERT_TRUE(session_->startColourWindow("colours", "Green", 300, 200, "#00c000"));
  app_.emplace(std::vector<std::string>{BRIMBLE_APP_BINARY}, environment_);
  // Up once it holds its name on the session bus: a second start hands over to it from then on.
  ASSERT_TRUE(logged("Brimble: ready")) << app_->errorOutput();

  // The shortcut's command reaches the running app, which explains the share dialog first.
  session_->approveScreenCastAfter(1500ms);
  testing::ChildProcess toggle({BRIMBLE_APP_BINARY, "--toggle"}, environment_);
  EXPECT_EQ(toggle.wait(10s), 0) << toggle.errorOutput();
  EXPECT_TRUE(logged("told the user: Your desktop will ask once to share the screen")) << log_;
  ASSERT_TRUE(session_->waitForDialogHelper());

  // The overlay dims a still of the screen: the window's green darkens under it.
  ScreenRect window;
  Image overlay;
  const auto deadline = std::chrono::steady_clock::now() + 15s;
  while (std::chrono::steady_clock::now() < deadline) {
    overlay = still();
    window = boxOf(overlay, [](unsigned rgb) {
      return green(rgb) > 60 && green(rgb) < 140 && red(rgb) < 30 && blue(rgb) < 30;
    });
    if (!window.empty()) {
      break;
    }
    std::this_thread::sleep_for(100ms);
  }
  ASSERT_FALSE(window.empty()) << "the overlay never dimmed the green window";
  testing::keepArtifact(overlay, "app-wayland", "01-overlay.png");
  EXPECT_NEAR(window.width, 300, 6);
  EXPECT_NEAR(window.height, 200, 6);

  // A region around the window, with room to spare on every side.
  const ScreenRect region{std::max(0, window.x - 40), std::max(0, window.y - 40), 0, 0};
  const int right = std::min(1280, window.x + window.width + 40);
  const int bottom = std::min(800, window.y + window.height + 40);
  ASSERT_TRUE(session_->input(
      {fmt::format("drag:{},{},{},{}", region.x, region.y, right, bottom), "sleep:0.3"}));
  testing::keepArtifact(still(), "app-wayland", "02-region-ready.png");
  ASSERT_TRUE(session_->input({"key:space"}));
  ASSERT_TRUE(logged("Brimble: recording started (region)")) << log_;
  std::this_thread::sleep_for(1500ms);
  const Image recording = still();
  testing::keepArtifact(recording, "app-wayland", "03-recording.png");
  // About 500x60 of it, a quarter of them counted.
  EXPECT_GT(countOf(recording, panelGrey), 4000) << "the control panel is not on screen";

  // A drawn across the top of the region, over a still while drawing; A again gives the screen
  // back, and the mark stays in the frames from then on.
  const int markY = region.y + 15;
  ASSERT_TRUE(session_->input(
      {"key:a", "sleep:0.8",
       fmt::format("drag:{},{},{},{}", region.x + 20, markY, right - 20, markY), "sleep:0.5"}));
  testing::keepArtifact(still(), "app-wayland", "04-drawing.png");
  ASSERT_TRUE(session_->input({"key:a", "sleep:1"}));

  // The headless seat has a keyboard only while input is sent, and a Wayland clipboard is taken
  // by the client with the keyboard's focus: the keyboard stays while the clip is encoded, as a
  // user's would.
  ASSERT_TRUE(session_->input({"key:Return", "sleep:4"}));
  ASSERT_TRUE(logged("Brimble: GIF copied to clipboard (")) << log_;
  const auto types = session_->withKeyboard({"wl-paste", "--list-types"});
  ASSERT_TRUE(types);
  EXPECT_NE(types->find("image/gif"), std::string::npos) << *types;
  EXPECT_NE(types->find("text/uri-list"), std::string::npos) << *types;
  const auto gif = clipboardGIF();
  ASSERT_TRUE(gif);
  EXPECT_EQ(gif->width, right - region.x);
  EXPECT_EQ(gif->height, bottom - region.y);
  ASSERT_GE(gif->frames.size(), 1u);
  // The window as it was on screen, and never the panel, which took the keyboard beside it.
  const int centreX = window.x - region.x + window.width / 2;
  const int centreY = window.y - region.y + window.height / 2;
  const auto markRed = [](unsigned rgb) {
    return red(rgb) > 180 && green(rgb) < 100 && blue(rgb) < 100;
  };
  const Image& last = gif->frames.back();
  int marked = 0;
  for (int x = 0; x < last.width(); ++x) {
    marked += markRed(rgbAt(last, x, markY - region.y)) ? 1 : 0;
  }
  EXPECT_GT(marked, (right - region.x) / 2) << "the mark is not in the last frame";
  for (std::size_t i = 0; i < gif->frames.size(); ++i) {
    const Image& frame = gif->frames[i];
    const unsigned centre = rgbAt(frame, centreX, centreY);
    EXPECT_TRUE(green(centre) > 150 && red(centre) < 60 && blue(centre) < 60)
        << "frame " << i << " shows " << std::hex << centre << " at the window's centre";
    EXPECT_LT(countOf(frame, panelGrey), 1000) << "frame " << i << " shows the panel";
  }
}

TEST_F(AppOnWayland, ANewUserIsWelcomedWithWhatThisDesktopAllows) {
  fs::remove(folder_ / "config" / "brimble" / "brimble.conf");
  app_.emplace(std::vector<std::string>{BRIMBLE_APP_BINARY}, environment_);
  ASSERT_TRUE(logged("Brimble: ready")) << app_->errorOutput();
  testing::ChildProcess welcome({BRIMBLE_SOURCE_DIR "/tests/Support/atspi-window.py",
                                 std::to_string(app_->pid()), "Welcome to Brimble"});
  EXPECT_EQ(welcome.wait(30s), 0) << welcome.errorOutput();
  // Seen as the user sees it, with a share of the screen of the test's own.
  session_->approveScreenCastAfter(1500ms);
  const Image screen = still();
  ASSERT_TRUE(session_->waitForDialogHelper());
  testing::keepArtifact(screen, "app-wayland", "00-welcome.png");
}

class AppOnWaylandShell : public AppOnWayland {
 protected:
  testing::WaylandSession::Options sessionOptions() const override { return {.shell = true}; }
};

TEST_F(AppOnWaylandShell, AWindowIsPickedInTheDesktopsChooserAndRecordedAlone) {
  ASSERT_TRUE(session_->startColourWindow("colours", "Blue", 320, 240, "#0000c0"));
  app_.emplace(std::vector<std::string>{BRIMBLE_APP_BINARY}, environment_);
  ASSERT_TRUE(logged("Brimble: ready")) << app_->errorOutput();

  // No window list of its own: the desktop's chooser asks, and the user picks Blue there.
  session_->approveWindowAfter(500ms, "Blue");
  testing::ChildProcess press(
      {BRIMBLE_SOURCE_DIR "/tests/Support/atspi-press.py", std::to_string(app_->pid()), "Window"});
  ASSERT_EQ(press.wait(30s), 0) << press.errorOutput();
  ASSERT_TRUE(session_->waitForDialogHelper());
  ASSERT_TRUE(logged("Brimble: recording started (window)")) << log_;
  std::this_thread::sleep_for(1500ms);

  // The shortcut's command stops it; a keyboard is there while the clip is encoded.
  testing::ChildProcess keyboard(
      {BRIMBLE_SOURCE_DIR "/tests/Support/wayland-input.py", "key:Shift_L", "sleep:6"});
  // Up before the stop: a clip ready before the seat has a keyboard could not be offered.
  ASSERT_EQ(keyboard.readLine(10s), "key:Shift_L");
  testing::ChildProcess toggle({BRIMBLE_APP_BINARY, "--toggle"}, environment_);
  EXPECT_EQ(toggle.wait(10s), 0) << toggle.errorOutput();
  ASSERT_TRUE(logged("Brimble: GIF copied to clipboard (")) << log_;
  keyboard.wait(10s);
  const auto gif = clipboardGIF();
  ASSERT_TRUE(gif);
  EXPECT_EQ(gif->width, 320);
  EXPECT_EQ(gif->height, 240);
  ASSERT_GE(gif->frames.size(), 1u);
  // Only the window, whatever covered it or lay around it.
  for (const Image& frame : gif->frames) {
    EXPECT_EQ(countOf(frame, [](unsigned rgb) { return blue(rgb) < 150 || red(rgb) > 60; }), 0);
  }
}

}  // namespace
}  // namespace brimble
