#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Diagnostics/UsageStatistics.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"
#include "tests/Support/AppEnvironment.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Clipboard.h"
#include "tests/Support/X11Helpers.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::IsSupersetOf;

/// The desktop app in an embedded display, with its settings, library and captures in a
/// private folder, driven by XTest input as a user would drive it.
class App : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder_ / "config" / "brimble");
    std::ofstream(folder_ / "config" / "brimble" / "brimble.conf")
        << "[General]\nshowCursor=false\nframeRate=24\ndefaultSaveLocation="
        << folder_.path().string() << "\n"
        << settings();
    app_.emplace(std::vector<std::string>{BRIMBLE_APP_BINARY},
                 testing::privateAppEnvironment(folder_.path()));
    ASSERT_TRUE(windowTitled("Brimble")) << app_->errorOutput();
  }

  /// More settings lines for a test.
  virtual std::string settings() const {
    return "countdownDelay=3\nshowPreviewAfterCapture=true\n";
  }

  void TearDown() override {
    if (app_) {
      app_->signal(SIGTERM);
      app_->wait(5s);
    }
  }

  /// The window whose title is `title` (or starts with it, with `prefix`), once it is there.
  std::optional<WindowInfo> windowTitled(const std::string& title, bool prefix = false) {
    std::optional<WindowInfo> found;
    testing::eventually([&] {
      for (const WindowInfo& window : windows_.windows()) {
        if (prefix ? window.title.starts_with(title) : window.title == title) {
          found = window;
          return true;
        }
      }
      return false;
    });
    return found;
  }

  /// Waits for `text` in what the app logged after the last line found this way.
  bool logged(const std::string& text, std::chrono::seconds timeout = 20s) {
    const bool found = app_->waitForError(text, timeout);
    log_ = app_->errorOutput();  // for the failure's message
    return found;
  }

  /// Keeps a screenshot of the whole screen as a test artefact.
  void screenshot(const std::string& name) {
    const auto stream = screens_.openStream(CaptureTarget::screenAreaOf({0, 0, 1920, 1080}), false);
    const auto image = stream->grab();
    ASSERT_TRUE(image);
    testing::keepArtifact(*image, "app", name + ".png");
  }

  void drag(int fromX, int fromY, int toX, int toY) {
    backend_.moveTo({fromX, fromY});
    std::this_thread::sleep_for(50ms);
    backend_.buttonDown(1);
    for (int step = 1; step <= 10; ++step) {
      backend_.moveTo({fromX + (toX - fromX) * step / 10, fromY + (toY - fromY) * step / 10});
      std::this_thread::sleep_for(15ms);
    }
    backend_.buttonUp(1);
    std::this_thread::sleep_for(100ms);
  }

  void press(const std::string& key, ModifierFlags modifiers = {}) {
    input_.pressKey(key, modifiers);
  }

  /// Clicks the `index`-th of the main window's row of `count` buttons.
  void clickMainButton(int index, int count = 6) {
    const auto main = windowTitled("Brimble");
    ASSERT_TRUE(main);
    const ScreenRect& content = main->contentFrame;
    const int margin = 11;
    const int each = (content.width - 2 * margin) / count;
    input_.click(content.x + margin + each * index + each / 2, content.y + margin + 12,
                 MouseButton::left);
  }

  std::unique_ptr<x11::HeadlessDisplay> display_ = x11::HeadlessDisplay::start();
  testing::TempDirectory folder_;
  x11::X11WindowSystem windows_{display_->displayName()};
  x11::X11ScreenSource screens_{display_->displayName()};
  x11::X11InputBackend backend_{display_->displayName()};
  InputSimulator input_{backend_, steadyClock()};
  std::optional<testing::ChildProcess> app_;
  std::string log_;
};

std::string percentDecoded(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      out.push_back(static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

/// Whether `pixel` (bgra8) is near `rgb`.
bool near(const Image& image, int x, int y, unsigned rgb) {
  if (x < 0 || y < 0 || x >= image.width() || y >= image.height()) {
    ADD_FAILURE() << x << "," << y << " lies outside the " << image.width() << "x" << image.height()
                  << " frame";
    return false;
  }
  const auto p = image.row(y).subspan(static_cast<std::size_t>(x) * 4, 4);
  const int r = static_cast<int>(rgb >> 16) & 255;
  const int g = static_cast<int>(rgb >> 8) & 255;
  const int b = static_cast<int>(rgb) & 255;
  return std::abs(p[2] - r) < 40 && std::abs(p[1] - g) < 40 && std::abs(p[0] - b) < 40;
}

TEST_F(App, HotkeyRegionCountdownRecordReturnPutsTheGIFOnTheClipboardAndInTheLibrary) {
  testing::TestWindow client(
      {"--position", "200,200", "--size", "400x300", "--color", "ff0000", "--title", "changing"});
  const auto clientWindow = windowTitled("changing");
  ASSERT_TRUE(clientWindow);
  // The window with its frame, and its content, in the coordinates of the region drawn below.
  const ScreenRect clientFrame{clientWindow->frame.x - 150, clientWindow->frame.y - 150,
                               clientWindow->frame.width, clientWindow->frame.height};
  const int centreX = clientWindow->contentFrame.x - 150 + clientWindow->contentFrame.width / 2;
  const int centreY = clientWindow->contentFrame.y - 150 + clientWindow->contentFrame.height / 2;
  std::this_thread::sleep_for(300ms);
  screenshot("01-main-window");

  press("g", {Modifier::control, Modifier::shift});
  const auto overlay = windowTitled("Select a region — Brimble");
  ASSERT_TRUE(overlay) << app_->errorOutput();
  std::this_thread::sleep_for(200ms);
  screenshot("02-overlay");
  drag(150, 150, 650, 550);
  ASSERT_TRUE(windowTitled("Recording controls — Brimble"));
  std::this_thread::sleep_for(200ms);
  screenshot("03-overlay-ready-with-panel");

  press("space");
  std::this_thread::sleep_for(400ms);
  screenshot("04-panel-countdown");
  ASSERT_TRUE(logged("Brimble: recording started (region)", 10s)) << log_;
  std::this_thread::sleep_for(800ms);
  client.setColor(0x00ff00);
  std::this_thread::sleep_for(800ms);
  screenshot("05-panel-recording");
  client.setColor(0x0000ff);
  std::this_thread::sleep_for(800ms);

  press("return");
  ASSERT_TRUE(logged("Brimble: GIF copied to clipboard (")) << log_;
  screenshot("06-after-copy");

  EXPECT_THAT(testing::clipboardTargets(display_->displayName()),
              IsSupersetOf({"image/gif", "text/uri-list", "x-special/gnome-copied-files"}));
  const auto bytes = testing::readClipboard(display_->displayName(), "image/gif");
  ASSERT_TRUE(bytes);
  const auto gif = testing::decodeGIF(*bytes);
  ASSERT_TRUE(gif);
  EXPECT_EQ(gif->width, 500);
  EXPECT_EQ(gif->height, 400);
  ASSERT_GE(gif->frames.size(), 3u);
  // The client shows red, then green, then blue. Outside it the desktop is black: no pixel of
  // the overlay or of the panel is anywhere in any frame.
  EXPECT_TRUE(near(gif->frames.front(), centreX, centreY, 0xff0000));
  bool sawGreen = false;
  for (const Image& frame : gif->frames) {
    sawGreen = sawGreen || near(frame, centreX, centreY, 0x00ff00);
    for (int y = 0; y < frame.height(); y += 7) {
      for (int x = 0; x < frame.width(); x += 7) {
        const bool inClient = x >= clientFrame.x && x < clientFrame.x + clientFrame.width &&
                              y >= clientFrame.y && y < clientFrame.y + clientFrame.height;
        if (!inClient) {
          ASSERT_TRUE(near(frame, x, y, 0x000000)) << "at " << x << "," << y;
        }
      }
    }
  }
  EXPECT_TRUE(sawGreen);
  EXPECT_TRUE(near(gif->frames.back(), centreX, centreY, 0x0000ff));

  const auto uris = testing::readClipboard(display_->displayName(), "text/uri-list");
  ASSERT_TRUE(uris);
  const std::string uri(uris->begin(), uris->end());
  ASSERT_TRUE(uri.starts_with("file://")) << uri;
  const fs::path file = percentDecoded(uri.substr(7, uri.find('\r') - 7));
  std::ifstream history(folder_ / "data" / "brimble" / "history.json");
  const auto index = nlohmann::json::parse(history);
  ASSERT_EQ(index["entries"].size(), 1u);
  EXPECT_EQ(index["entries"][0]["fileSize"], bytes->size());
  EXPECT_EQ(fs::file_size(file), bytes->size());
  EXPECT_EQ(index["entries"][0]["path"], file.string());
  const UsageCounts counts = UsageStatistics(folder_ / "state" / "brimble").counts();
  EXPECT_EQ(counts.recordings, 1u);
  EXPECT_EQ(counts.formats, (std::map<std::string, std::uint64_t>{{"gif", 1}}));
  const auto gnome =
      testing::readClipboard(display_->displayName(), "x-special/gnome-copied-files");
  ASSERT_TRUE(gnome);
  EXPECT_EQ(std::string(gnome->begin(), gnome->end()), "copy\n" + uri.substr(0, uri.find('\r')));

  // The preview opens after the copy; its editor trims, crops and speeds up a copy, driven by
  // the keyboard through its fields in order: start, end, x, y, width, height, speed, Save.
  ASSERT_TRUE(windowTitled("Preview of " + file.filename().string(), true));
  std::this_thread::sleep_for(400ms);
  screenshot("07-editor");
  const double length =
      std::accumulate(gif->delaysCentiseconds.begin(), gif->delaysCentiseconds.end(), 0) / 100.0;
  for (const std::string& value :
       {std::string("0.5"), fmt::format("{:.2f}", length - 0.5), std::string("100"),
        std::string("100"), std::string("200"), std::string("150")}) {
    press("a", {Modifier::control});
    input_.typeText(value, 0, false);
    press("tab");
  }
  press("down");  // speed: 1x to 1.5x
  press("tab");
  press("space");  // Save Edited Copy
  const fs::path edited = file.parent_path() / (file.stem().string() + " edited.gif");
  ASSERT_TRUE(testing::eventually([&] { return fs::exists(edited); })) << app_->errorOutput();
  screenshot("08-editor-saved");
  const auto cut = testing::decodeGIFFile(edited);
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->width, 200);
  EXPECT_EQ(cut->height, 150);
  const double cutLength =
      std::accumulate(cut->delaysCentiseconds.begin(), cut->delaysCentiseconds.end(), 0) / 100.0;
  EXPECT_NEAR(cutLength, (length - 1.0) / 1.5, 0.1);
  // The crop starts at (100,100) of the recorded region.
  EXPECT_TRUE(near(cut->frames.back(), centreX - 100, centreY - 100, 0x0000ff));
  std::ifstream again(folder_ / "data" / "brimble" / "history.json");
  EXPECT_EQ(nlohmann::json::parse(again)["entries"][0]["path"], edited.string());

  // Record More: a new selection whose recording joins the end of the clip in the editor.
  press("tab");  // from Save Edited Copy to Record More
  press("space");
  ASSERT_TRUE(windowTitled("Select a region — Brimble"));
  std::this_thread::sleep_for(200ms);
  drag(150, 150, 650, 550);
  press("space");
  ASSERT_TRUE(logged("Brimble: recording started (region)", 10s));
  client.setColor(0xffff00);
  std::this_thread::sleep_for(1000ms);
  screenshot("09-recording-more");
  press("return");
  const bool recordedMore = logged("Brimble: recorded ");
  if (!recordedMore) {
    screenshot("09-failed");
  }
  ASSERT_TRUE(recordedMore) << log_.substr(log_.size() - std::min<std::size_t>(log_.size(), 600));
  ASSERT_TRUE(windowTitled("Preview of " + file.filename().string(), true));
  std::this_thread::sleep_for(300ms);
  screenshot("09-editor-with-more");
  // The segment is kept in the library (so closing the editor unsaved loses nothing), and it is
  // what was recorded after the clip: the yellow window.
  std::ifstream afterMore(folder_ / "data" / "brimble" / "history.json");
  const fs::path segment =
      nlohmann::json::parse(afterMore)["entries"][0]["path"].get<std::string>();
  EXPECT_NE(segment, edited);
  const auto more = testing::decodeGIFFile(segment);
  ASSERT_TRUE(more);
  EXPECT_EQ(more->width, 500);
  EXPECT_TRUE(near(more->frames.back(), centreX, centreY, 0xffff00));
}

class AppWithoutCountdown : public App {
 protected:
  std::string settings() const override { return "countdownDelay=0\n"; }

  /// In drawing mode, a stroke across the middle of `window` (a 400x300 client); then Return,
  /// and the GIF the clipboard holds.
  std::optional<testing::DecodedGIF> strokeAndCopy(const WindowInfo& window,
                                                   const std::string& screenshotName = {}) {
    std::this_thread::sleep_for(700ms);
    press("a");
    std::this_thread::sleep_for(300ms);
    const int y = window.contentFrame.y + 150;
    drag(window.contentFrame.x + 50, y, window.contentFrame.x + 350, y);
    press("a");
    std::this_thread::sleep_for(300ms);
    if (!screenshotName.empty()) {
      screenshot(screenshotName);
    }
    std::this_thread::sleep_for(500ms);
    press("return");
    EXPECT_TRUE(logged("Brimble: GIF copied to clipboard (")) << log_;
    const auto bytes = testing::readClipboard(display_->displayName(), "image/gif");
    if (!bytes) {
      ADD_FAILURE() << "no GIF on the clipboard";
      return std::nullopt;
    }
    return testing::decodeGIF(*bytes);
  }
};

TEST_F(AppWithoutCountdown, MarksDrawnDuringARegionRecordingAppearInItFromWhenTheyWereDrawn) {
  testing::TestWindow client(
      {"--position", "200,200", "--size", "400x300", "--color", "3366cc", "--title", "annotated"});
  const auto window = windowTitled("annotated");
  ASSERT_TRUE(window);
  press("g", {Modifier::control, Modifier::shift});
  ASSERT_TRUE(windowTitled("Select a region — Brimble"));
  std::this_thread::sleep_for(200ms);
  drag(150, 150, 650, 550);
  press("space");
  ASSERT_TRUE(logged("Brimble: recording started (region)"));
  const auto gif = strokeAndCopy(*window, "15-annotation");
  ASSERT_TRUE(gif);
  const int y = window->contentFrame.y + 150;
  const int x = window->contentFrame.x + 200 - 150;
  EXPECT_TRUE(near(gif->frames.front(), x, y - 150, 0x3366cc));
  EXPECT_TRUE(near(gif->frames.back(), x, y - 150, 0xeb2828));
  // Off the stroke the window is untouched.
  EXPECT_TRUE(near(gif->frames.back(), x, y - 150 + 40, 0x3366cc));
}

TEST_F(AppWithoutCountdown, MarksDrawnDuringAWindowRecordingAreDrawnIntoItsFrames) {
  testing::TestWindow client(
      {"--position", "250,220", "--size", "400x300", "--color", "3366cc", "--title", "annotated"});
  const auto window = windowTitled("annotated");
  ASSERT_TRUE(window);
  clickMainButton(1);  // Window
  ASSERT_TRUE(windowTitled("Click a window — Brimble")) << app_->errorOutput();
  backend_.moveTo({window->contentFrame.x + 100, window->contentFrame.y + 100});
  std::this_thread::sleep_for(300ms);
  input_.click(window->contentFrame.x + 100, window->contentFrame.y + 100, MouseButton::left);
  ASSERT_TRUE(logged("Brimble: recording started (window)")) << log_;
  // The window's own pixels never show the layer: the stroke must be drawn into the frames.
  const auto gif = strokeAndCopy(*window);
  ASSERT_TRUE(gif);
  ASSERT_EQ(gif->width, window->contentFrame.width);
  testing::keepArtifact(gif->frames.back(), "app", "16-window-annotation.png");
  EXPECT_TRUE(near(gif->frames.front(), 200, 150, 0x3366cc));
  EXPECT_TRUE(near(gif->frames.back(), 200, 150, 0xeb2828));
  EXPECT_TRUE(near(gif->frames.back(), 200, 190, 0x3366cc));
}

TEST_F(AppWithoutCountdown, WindowPickPauseSaveLibraryAndFullScreen) {
  testing::TestWindow client(
      {"--position", "300,300", "--size", "320x240", "--color", "ff0000", "--title", "picked"});
  const auto picked = windowTitled("picked");
  ASSERT_TRUE(picked);

  clickMainButton(1);  // Window
  ASSERT_TRUE(windowTitled("Click a window — Brimble")) << app_->errorOutput();
  backend_.moveTo({picked->contentFrame.x + 100, picked->contentFrame.y + 100});
  std::this_thread::sleep_for(300ms);
  screenshot("10-window-picker");
  input_.click(picked->contentFrame.x + 100, picked->contentFrame.y + 100, MouseButton::left);
  ASSERT_TRUE(logged("Brimble: recording started (window)")) << log_;
  std::this_thread::sleep_for(700ms);
  client.setColor(0x00ff00);
  std::this_thread::sleep_for(700ms);
  ASSERT_TRUE(windowTitled("Recording controls — Brimble"));
  press("space");  // pause: what the window shows now must never reach the file
  std::this_thread::sleep_for(200ms);
  client.setColor(0xffff00);
  std::this_thread::sleep_for(1500ms);
  screenshot("11-panel-paused");
  client.setColor(0x0000ff);
  std::this_thread::sleep_for(300ms);
  press("space");
  std::this_thread::sleep_for(700ms);
  press("s");
  ASSERT_TRUE(windowTitled("Save Recording — Brimble")) << app_->errorOutput();
  std::this_thread::sleep_for(300ms);
  screenshot("12-save-dialog");
  const fs::path saved = folder_ / "picked-window.gif";
  press("a", {Modifier::control});
  input_.typeText(saved.string(), 0, true);
  ASSERT_TRUE(logged("Brimble: told the user: GIF saved. ")) << log_;

  const auto gif = testing::decodeGIFFile(saved);
  ASSERT_TRUE(gif);
  // A window recording is the window's own content, wherever the panel or the picker were.
  EXPECT_EQ(gif->width, picked->contentFrame.width);
  EXPECT_EQ(gif->height, picked->contentFrame.height);
  bool sawYellow = false;
  int centiseconds = 0;
  for (std::size_t i = 0; i < gif->frames.size(); ++i) {
    sawYellow = sawYellow || near(gif->frames[i], 160, 120, 0xffff00);
    centiseconds += gif->delaysCentiseconds[i];
  }
  EXPECT_FALSE(sawYellow) << "a frame of the pause was recorded";
  EXPECT_TRUE(near(gif->frames.front(), 160, 120, 0xff0000));
  EXPECT_TRUE(near(gif->frames.back(), 160, 120, 0x0000ff));
  // About 2.3 s were recorded around a pause of 1.8 s; the clip plays the recorded time only.
  EXPECT_GT(centiseconds, 150);
  EXPECT_LT(centiseconds, 330);

  std::ifstream history(folder_ / "data" / "brimble" / "history.json");
  const auto index = nlohmann::json::parse(history);
  ASSERT_EQ(index["entries"].size(), 1u);
  EXPECT_EQ(index["entries"][0]["path"], saved.string());

  clickMainButton(3);  // Library
  ASSERT_TRUE(windowTitled("Library — Brimble"));
  std::this_thread::sleep_for(400ms);
  screenshot("13-library");
  clickMainButton(4);  // Settings
  ASSERT_TRUE(windowTitled("Settings — Brimble"));
  std::this_thread::sleep_for(400ms);
  screenshot("14-settings");
  press("escape");

  clickMainButton(2);  // Full Screen
  ASSERT_TRUE(logged("Brimble: recording started (fullScreen)")) << log_;
  std::this_thread::sleep_for(1000ms);
  // The panel would be in the picture: it is not on screen, and the shortcut stops the recording.
  for (const WindowInfo& window : windows_.windows()) {
    EXPECT_NE(window.title, "Recording controls — Brimble");
  }
  press("g", {Modifier::control, Modifier::shift});
  ASSERT_TRUE(logged("Brimble: GIF copied to clipboard (")) << log_;
  const auto bytes = testing::readClipboard(display_->displayName(), "image/gif");
  ASSERT_TRUE(bytes);
  const auto screen = testing::decodeGIF(*bytes);
  ASSERT_TRUE(screen);
  EXPECT_EQ(screen->width, 1920);
  EXPECT_EQ(screen->height, 1080);
  // The picked window shows blue all through the recording.
  for (const Image& frame : screen->frames) {
    EXPECT_TRUE(near(frame, picked->contentFrame.x + 160, picked->contentFrame.y + 120, 0x0000ff));
  }
}

/// Frame files in the app's temporary folder and hidden temporaries beside its clips: what an
/// app that ended mid-recording or mid-encode could leave behind.
std::vector<std::string> leftoversIn(const fs::path& temporary, const fs::path& captures) {
  std::vector<std::string> found;
  for (const fs::path& folder : {temporary, captures}) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with("brimble-frames-") || name.find(".brimble-") != std::string::npos) {
        found.push_back(entry.path().string());
      }
    }
  }
  return found;
}

class AppEndedBySignal : public AppWithoutCountdown {
 protected:
  void recordFullScreen(std::chrono::milliseconds length) {
    clickMainButton(2);  // Full Screen
    ASSERT_TRUE(logged("Brimble: recording started (fullScreen)")) << log_;
    std::this_thread::sleep_for(length);
  }

  /// The clips the library lists, each checked to be a whole GIF of the screen.
  std::size_t wholeClipsInTheLibrary() {
    std::ifstream stream(folder_ / "data" / "brimble" / "history.json");
    if (!stream) {
      return 0;
    }
    const auto index = nlohmann::json::parse(stream);
    for (const auto& entry : index["entries"]) {
      const auto gif = testing::decodeGIFFile(entry["path"].get<std::string>());
      EXPECT_TRUE(gif) << entry;
      if (gif) {
        EXPECT_EQ(gif->width, 1920);
        // A still screen may encode as one long frame: the clip's playing time says whether the
        // whole recording (1.5 s or more) made it in.
        int centiseconds = 0;
        for (const int delay : gif->delaysCentiseconds) {
          centiseconds += delay;
        }
        EXPECT_GE(centiseconds, 100) << entry;
      }
    }
    return index["entries"].size();
  }

  std::vector<std::string> leftovers() const {
    return leftoversIn(folder_ / "tmp", folder_ / "data" / "brimble" / "captures");
  }

  /// Waits for the app to quit on its own, cleanly, and counts the whole clips it left.
  std::size_t clipsAfterItQuits(std::chrono::seconds timeout) {
    const auto exit = app_->wait(timeout);
    EXPECT_TRUE(exit) << "still running " << timeout.count() << " s after the signal";
    EXPECT_EQ(exit.value_or(-1), 0) << app_->errorOutput();
    EXPECT_THAT(leftovers(), ::testing::IsEmpty());
    const std::size_t clips = wholeClipsInTheLibrary();
    app_.reset();
    return clips;
  }
};

TEST_F(AppEndedBySignal, SigtermWhileRecordingEncodesTheRecordingIntoTheLibraryThenQuits) {
  recordFullScreen(1500ms);
  app_->signal(SIGTERM);
  EXPECT_EQ(clipsAfterItQuits(60s), 1u);
}

TEST_F(AppEndedBySignal, SigtermDuringAnEncodeLetsItFinishThenQuits) {
  recordFullScreen(2000ms);
  press("g", {Modifier::control, Modifier::shift});  // stop: the encode starts
  std::this_thread::sleep_for(50ms);
  app_->signal(SIGTERM);
  EXPECT_EQ(clipsAfterItQuits(60s), 1u);
}

TEST_F(AppEndedBySignal, ASecondSigtermDuringAnEncodeCancelsItAndLeavesNoPartialFile) {
  recordFullScreen(2000ms);
  press("g", {Modifier::control, Modifier::shift});
  std::this_thread::sleep_for(50ms);
  app_->signal(SIGTERM);
  std::this_thread::sleep_for(50ms);
  app_->signal(SIGTERM);
  // Cancelled, or finished just before the second signal: never half a clip.
  EXPECT_LE(clipsAfterItQuits(30s), 1u);
}

}  // namespace
}  // namespace brimble
