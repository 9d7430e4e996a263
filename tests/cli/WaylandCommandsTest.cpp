// The commands that act on the user's screen, run as a user of a Wayland desktop runs them: a
// headless GNOME session with only $WAYLAND_DISPLAY set (no X display anywhere), a GTK window
// on screen, and the portal's dialogs pressed as the user would.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/GtkTestForm.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/Images.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/WaylandSession.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using testing::brimbleCommand;
using testing::runCommand;
using testing::shellQuote;
namespace fs = std::filesystem;

// GTK's window background (Adwaita), which the maximized form shows between its widgets.
constexpr testing::Pixel kFormBackground{0xf6, 0xf5, 0xf4, 0xff};

/// Whether most of a 1280x800 picture of the screen is the form's window.
bool showsTheForm(const Image& screen) {
  return testing::shareNear(screen, kFormBackground, 6) > 1.0 / 3;
}

class BrimbleOnWayland : public ::testing::Test {
 protected:
  void SetUp() override {
    session_ = testing::WaylandSession::start();
    if (!session_) {
      GTEST_SKIP() << "no mutter on this machine";
    }
  }

  /// `arguments` run as the session's user, whose remembered choices live in the test's folder;
  /// killed after `timeoutSeconds` when given (a dialog nobody answers waits for minutes).
  testing::CommandResult brimble(const std::string& arguments, int timeoutSeconds = 0) {
    const std::string bound =
        timeoutSeconds > 0 ? "timeout " + std::to_string(timeoutSeconds) + " " : "";
    return runCommand(bound + "env XDG_STATE_HOME=" + shellQuote((home_ / "state").string()) +
                      " HOME=" + shellQuote(home_.path().string()) + " " +
                      brimbleCommand(arguments) + " 2>&1");
  }

  fs::path tokenFile() const { return home_ / "state" / "brimble" / "screencast-token"; }

  std::unique_ptr<testing::WaylandSession> session_;
  testing::TempDirectory home_;
};

TEST_F(BrimbleOnWayland, StillRecordAndWindowsShowTheUsersScreenAndOnlyTheFirstCaptureAsks) {
  testing::GtkTestForm form("Brimble on Wayland");
  ASSERT_TRUE(form.shown());

  // The first capture asks which screen to share.
  const fs::path still = home_ / "screen.png";
  session_->approveScreenCastAfter(1500ms);
  auto result = brimble("still --display -o " + shellQuote(still.string()));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_TRUE(session_->waitForDialogHelper());
  const Image screen = testing::readPNG(still);
  testing::keepArtifact(screen, "wayland", "cli-still.png");
  EXPECT_EQ(screen.width(), 1280);
  EXPECT_EQ(screen.height(), 800);
  EXPECT_TRUE(showsTheForm(screen)) << "the GTK window on screen, not an empty display";
  EXPECT_TRUE(fs::exists(tokenFile()));

  // Later captures ask nothing: no one presses a dialog now, and the recording starts at once.
  const fs::path gif = home_ / "screen.gif";
  const auto started = std::chrono::steady_clock::now();
  result = brimble("record --display --duration 2 --fps 10 -o " + shellQuote(gif.string()));
  const auto took = std::chrono::steady_clock::now() - started;
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto decoded = testing::decodeGIFFile(gif);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width, 1280);
  ASSERT_FALSE(decoded->frames.empty());
  testing::keepArtifact(decoded->frames.front(), "wayland", "cli-record-first-frame.png");
  EXPECT_TRUE(showsTheForm(decoded->frames.front()));
  int centiseconds = 0;
  for (const int delay : decoded->delaysCentiseconds) {
    centiseconds += delay;
  }
  EXPECT_NEAR(centiseconds, 200, 30) << "two seconds, even where the screen stood still";
  // Two seconds of recording and the encode; a dialog left open would time out far later.
  EXPECT_LT(took, 2s + 8s);

  // The window list comes from the accessibility bus; where a window is, Wayland does not say.
  result = brimble("windows");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, ::testing::HasSubstr("Brimble on Wayland"));
  EXPECT_THAT(result.output, ::testing::HasSubstr(std::to_string(form.pid())));
  EXPECT_THAT(result.output, ::testing::HasSubstr("?,?"));

  // A window that is not on the accessibility bus is not asked for.
  result =
      brimble("record --window 0x10 --duration 1 -o " + shellQuote((home_ / "w.gif").string()));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, ::testing::HasSubstr("Couldn't find the window 16 to record."));
  EXPECT_FALSE(fs::exists(home_ / "w.gif"));
}

TEST_F(BrimbleOnWayland, ACancelledDialogWritesNothingAndTypedTextArrivesExactly) {
  testing::GtkTestForm form("Brimble typing");
  ASSERT_TRUE(form.shown());

  const fs::path still = home_ / "cancelled.png";
  session_->cancelDialogAfter(1500ms);
  auto result = brimble("still --display -o " + shellQuote(still.string()));
  EXPECT_TRUE(session_->waitForDialogHelper());
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_THAT(result.output, ::testing::HasSubstr("Screen sharing was cancelled"));
  EXPECT_FALSE(fs::exists(still));
  EXPECT_FALSE(fs::exists(tokenFile()));

  // The user clicks into the field, then types, characters no key of the compositor's keyboard
  // map has among them. Each command is a remote-desktop session of its own, and this portal
  // asks for every one.
  session_->approveRemoteDesktopAfter(1500ms);
  result = brimble("input click 640 53");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_TRUE(session_->waitForDialogHelper());
  session_->approveRemoteDesktopAfter(1500ms);
  result = brimble("input type 'héllo ✓ Ω, plain ASCII too'");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_TRUE(session_->waitForDialogHelper());
  EXPECT_EQ(form.entryWhen("héllo ✓ Ω, plain ASCII too"), "héllo ✓ Ω, plain ASCII too")
      << result.output;
}

// One window of a GNOME Shell session (whose portal lists the windows to share), recorded as its
// user would: the desktop's chooser asks which window the first time, then remembers it.
class BrimbleWindowOnWayland : public BrimbleOnWayland {
 protected:
  void SetUp() override {
    session_ = testing::WaylandSession::start({.shell = true});
    if (!session_) {
      GTEST_SKIP() << "no GNOME Shell on this machine";
    }
  }

  fs::path windowTokenFile() const {
    return home_ / "state" / "brimble" / "screencast-window-token";
  }
};

constexpr testing::Pixel kMagenta{0xc8, 0x10, 0x6e, 0xff};

/// The share of `image`'s pixels that are magenta.
double magentaShare(const Image& image) {
  return testing::shareNear(image, kMagenta, 12);
}

TEST_F(BrimbleWindowOnWayland, AnAppsWindowIsRecordedAloneAndOnlyTheFirstCaptureAsks) {
  const auto window =
      session_->startColourWindow("brimble-magenta", "Brimble magenta", 400, 300, "#c8106e");
  ASSERT_TRUE(window) << "the window never reached the accessibility bus";
  // Another window the chooser lists too, and the cancelled request asks for.
  const auto other =
      session_->startColourWindow("brimble-teal", "Brimble teal", 320, 240, "#108080");
  ASSERT_TRUE(other);

  // The first recording asks which window, and says which to pick.
  const fs::path gif = home_ / "window.gif";
  session_->approveWindowAfter(500ms, "Brimble magenta");
  auto result =
      brimble("record --app brimble-magenta --duration 2 --fps 10 -o " + shellQuote(gif.string()));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_TRUE(session_->waitForDialogHelper());
  EXPECT_THAT(result.output,
              ::testing::HasSubstr("brimble record: if the desktop asks which window to share, "
                                   "pick \"Brimble magenta\" (brimble-magenta)\n"));
  const auto decoded = testing::decodeGIFFile(gif);
  ASSERT_TRUE(decoded && !decoded->frames.empty());
  EXPECT_EQ(decoded->width, 400);
  EXPECT_EQ(decoded->height, 300);
  testing::keepArtifact(decoded->frames.front(), "wayland", "cli-record-window-first-frame.png");
  for (const Image& frame : decoded->frames) {
    EXPECT_GT(magentaShare(frame), 0.97) << "the window's pixels, and nothing of the desktop";
  }
  int centiseconds = 0;
  for (const int delay : decoded->delaysCentiseconds) {
    centiseconds += delay;
  }
  EXPECT_NEAR(centiseconds, 200, 30) << "two seconds, although the window never changed";
  EXPECT_TRUE(fs::exists(windowTokenFile()));
  EXPECT_EQ(fs::status(windowTokenFile().parent_path()).permissions() & fs::perms::all,
            fs::perms::owner_all);

  // The same window again, by its id this time: nothing is asked, and nobody answers.
  const fs::path still = home_ / "window.png";
  const auto started = std::chrono::steady_clock::now();
  result = brimble(
      "still --window " + std::to_string(*window) + " -o " + shellQuote(still.string()), 20);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 10s);
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const Image picture = testing::readPNG(still);
  testing::keepArtifact(picture, "wayland", "cli-still-window.png");
  EXPECT_EQ(picture.width(), 400);
  EXPECT_EQ(picture.height(), 300);
  EXPECT_GT(magentaShare(picture), 0.99);

  // Another window asks again; the user cancels, and is told so once.
  const fs::path cancelled = home_ / "cancelled.png";
  session_->cancelDialogAfter(2s);
  result = brimble("still --app brimble-teal -o " + shellQuote(cancelled.string()));
  EXPECT_TRUE(session_->waitForDialogHelper());
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_THAT(result.output, ::testing::EndsWith("brimble still: Screen sharing was cancelled\n"));
  EXPECT_FALSE(fs::exists(cancelled));

  // A token the portal no longer knows, kept for this very window, only brings the chooser back.
  testing::writeFile(windowTokenFile(),
                     "00000000-0000-0000-0000-000000000000\n" + std::to_string(*window) + "\n");
  session_->approveWindowAfter(500ms, "Brimble magenta");
  result = brimble("still --app brimble-magenta -o " + shellQuote(still.string()), 60);
  EXPECT_TRUE(session_->waitForDialogHelper());
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_GT(magentaShare(testing::readPNG(still)), 0.99);
  EXPECT_FALSE(testing::readFile(windowTokenFile()).starts_with("00000000-"));
}

}  // namespace
}  // namespace brimble
