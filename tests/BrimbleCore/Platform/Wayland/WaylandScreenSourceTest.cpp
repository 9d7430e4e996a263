#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Support/Clock.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/Images.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/WaylandSession.h"

namespace brimble::wayland {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::Pixel;
using testing::pixelAt;

const ScreenRect kMonitor{0, 0, 1280, 800};
// gtk3-widget-factory's window background (Adwaita) and where its first page shows entries and
// combo boxes, which stay still (its spinners, further down, never do).
constexpr Pixel kWindowBackground{0xf6, 0xf5, 0xf4};
const ScreenRect kStillPartOfTheWindow{0, 80, 380, 260};

bool within(std::chrono::milliseconds timeout, const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(50ms);
  }
  return true;
}

bool same(const Pixel& a, const Pixel& b) {
  return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a;
}

/// "rrggbbaa", so that failures show the colour.
std::string colourAt(const Image& image, int x, int y) {
  const Pixel p = pixelAt(image, x, y);
  char text[9];
  std::snprintf(text, sizeof text, "%02x%02x%02x%02x", p.r, p.g, p.b, p.a);
  return text;
}

int countPixels(const Image& image, const std::function<bool(const Pixel&)>& matches) {
  int count = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      count += matches(pixelAt(image, x, y)) ? 1 : 0;
    }
  }
  return count;
}

/// The mean difference per colour channel between `image` and `area` of `whole`, both the same
/// size as `area`.
double meanDifference(const Image& image, const Image& whole, const ScreenRect& area) {
  double total = 0;
  for (int y = 0; y < area.height; ++y) {
    for (int x = 0; x < area.width; ++x) {
      const Pixel a = pixelAt(image, x, y);
      const Pixel b = pixelAt(whole, area.x + x, area.y + y);
      total += std::abs(a.r - b.r) + std::abs(a.g - b.g) + std::abs(a.b - b.b);
    }
  }
  return total / (3.0 * area.width * area.height);
}

bool showsTheWindow(const Image& screen) {
  return countPixels(screen, [](const Pixel& p) { return same(p, kWindowBackground); }) > 200000;
}

Image grabOnce(ScreenSource& source, const ScreenRect& area, bool showCursor = false) {
  const auto frame = source.openStream(CaptureTarget::screenAreaOf(area), showCursor)->grab();
  return frame ? *frame : Image();
}

/// Tells one file from another that replaced it under the same name.
ino_t inodeOf(const fs::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

mode_t permissionBitsOf(const fs::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::string contentsOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class WaylandScreenSourceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    session_ = testing::WaylandSession::start();
    if (!session_) {
      GTEST_SKIP() << "no mutter on this machine";
    }
  }

  /// A source whose token lives in this test's temporary folder.
  std::unique_ptr<WaylandScreenSource> makeSource() {
    return std::make_unique<WaylandScreenSource>(
        std::make_shared<DesktopPortal>(),
        WaylandScreenSource::Options{.tokenFile = tokenFile(), .dialogTimeout = 30s});
  }

  /// The displays of `source`, the user sharing the monitor in the dialog.
  std::vector<ScreenDisplay> approvedDisplays(ScreenSource& source) {
    session_->approveScreenCastAfter(1500ms);
    std::vector<ScreenDisplay> displays = source.displays();
    EXPECT_TRUE(session_->waitForDialogHelper()) << "the dialog was shown and pressed";
    return displays;
  }

  /// Starts gtk3-widget-factory and waits until `source` shows its window. The dialog is pressed
  /// first: the window would cover it.
  void startWindow(ScreenSource& source) {
    session_->startApplication({"gtk3-widget-factory"});
    waitForWindow(source);
  }

  void waitForWindow(ScreenSource& source) {
    ASSERT_TRUE(within(20s, [&] { return showsTheWindow(grabOnce(source, kMonitor)); }))
        << "gtk3-widget-factory never showed";
  }

  fs::path tokenFile() const { return temporary_ / "state" / "brimble" / "screencast-token"; }

  std::unique_ptr<testing::WaylandSession> session_;
  testing::TempDirectory temporary_;
};

TEST_F(WaylandScreenSourceTest, StillsOfTheDisplayAndOfARegionShowTheWindowOnScreen) {
  const auto source = makeSource();
  const std::vector<ScreenDisplay> displays = approvedDisplays(*source);
  ASSERT_EQ(displays.size(), 1u);
  EXPECT_EQ(displays[0].frame, kMonitor);
  EXPECT_TRUE(displays[0].primary);
  EXPECT_NE(displays[0].displayID, 0u);
  EXPECT_EQ(source->displays()[0].displayID, displays[0].displayID) << "stable, and no new dialog";

  const Image desktop = grabOnce(*source, kMonitor);
  ASSERT_EQ(desktop.width(), 1280);
  ASSERT_EQ(desktop.height(), 800);
  EXPECT_EQ(countPixels(desktop, [](const Pixel& p) { return p.a != 255; }), 0) << "opaque";
  EXPECT_FALSE(showsTheWindow(desktop));

  startWindow(*source);
  const Image still = grabOnce(*source, kMonitor);
  testing::keepArtifact(still, "wayland", "still-display.png");
  EXPECT_TRUE(showsTheWindow(still));
  EXPECT_EQ(countPixels(still, [](const Pixel& p) { return p.a != 255; }), 0) << "opaque";
  // The window covers the top of the monitor; the desktop shows below it, as it did before.
  EXPECT_EQ(colourAt(still, 640, 790), colourAt(desktop, 640, 790));
  EXPECT_EQ(colourAt(still, 200, 550), "f6f5f4ff") << "between its widgets";

  // A region is the same pixels as that part of the display.
  const Image region = grabOnce(*source, kStillPartOfTheWindow);
  testing::keepArtifact(region, "wayland", "still-region.png");
  ASSERT_EQ(region.width(), kStillPartOfTheWindow.width);
  ASSERT_EQ(region.height(), kStillPartOfTheWindow.height);
  EXPECT_EQ(meanDifference(region, still, kStillPartOfTheWindow), 0);
  ScreenRect shifted = kStillPartOfTheWindow;
  shifted.x += 8;
  EXPECT_GT(meanDifference(region, still, shifted), 1) << "a misplaced crop would show";
  // Part of an area off the monitor is cut away.
  const Image corner = grabOnce(*source, {1180, 700, 200, 200});
  EXPECT_EQ(corner.width(), 100);
  EXPECT_EQ(corner.height(), 100);
}

TEST_F(WaylandScreenSourceTest, OnlyTheFirstCaptureAsksAndTheNextStartsQuickly) {
  {
    // The user says no: nothing is remembered.
    const auto source = makeSource();
    session_->cancelDialogAfter(1500ms);
    try {
      source->displays();
      FAIL() << "shared without the user";
    } catch (const PortalError& error) {
      EXPECT_EQ(error.code(), PortalError::Code::cancelled);
      EXPECT_STREQ(error.what(), "Screen sharing was cancelled");
    }
    EXPECT_TRUE(session_->waitForDialogHelper());
    EXPECT_FALSE(fs::exists(tokenFile()));
  }
  std::string firstToken;
  ino_t firstFile = 0;
  {
    const auto source = makeSource();
    ASSERT_EQ(approvedDisplays(*source).size(), 1u);
    firstToken = contentsOf(tokenFile());
    firstFile = inodeOf(tokenFile());
    EXPECT_FALSE(firstToken.empty());
    EXPECT_EQ(permissionBitsOf(tokenFile()), 0600u);
    EXPECT_EQ(permissionBitsOf(tokenFile().parent_path()), 0700u);
    EXPECT_EQ(permissionBitsOf(tokenFile().parent_path().parent_path()), 0700u);
  }
  {
    // Another run: no dialog (nobody presses one), and a frame within 2 s.
    const auto source = makeSource();
    const auto started = std::chrono::steady_clock::now();
    const auto frame = source->openStream(CaptureTarget::screenAreaOf(kMonitor), false)->grab();
    const auto took = std::chrono::steady_clock::now() - started;
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width(), 1280);
    EXPECT_LT(took, 2s);
    const std::string nextToken = contentsOf(tokenFile());
    EXPECT_FALSE(nextToken.empty());
    // Portals may hand out a new token or the same one again: either way the file is written
    // anew after the start.
    EXPECT_NE(inodeOf(tokenFile()), firstFile) << "the token file was replaced";
    EXPECT_EQ(permissionBitsOf(tokenFile()), 0600u);
  }
  {
    // A damaged file only means asking again.
    std::ofstream(tokenFile(), std::ios::binary | std::ios::trunc) << "\x01\xff\xfe token\n";
    const auto source = makeSource();
    EXPECT_EQ(approvedDisplays(*source).size(), 1u);
    const std::string repaired = contentsOf(tokenFile());
    EXPECT_EQ(repaired.find('\x01'), std::string::npos);
    EXPECT_FALSE(repaired.empty());
  }
}

/// Frame `index` of `store`, decoded.
Image frameOf(const CompressedFrameStore& store, int index) {
  const auto image = decodeImage(store.data(index));
  return image ? *image : Image();
}

TEST_F(WaylandScreenSourceTest, RecordingsKeepTheirRateWhileTheScreenIsStillAndCropRegions) {
  const auto source = makeSource();
  const std::vector<ScreenDisplay> displays = approvedDisplays(*source);
  ASSERT_EQ(displays.size(), 1u);
  constexpr int kRate = 15;
  constexpr double kLength = 2.0;

  // A still desktop for the first second (the compositor sends nothing), then a window opens.
  ScreenRecorder display(*source, steadyClock());
  display.start(displays[0], kRate, false);
  std::this_thread::sleep_for(1s);
  session_->startApplication({"gtk3-widget-factory"});
  std::this_thread::sleep_for(std::chrono::duration<double>(kLength - 1));
  const auto displayFrames = display.stopAndCollectFrameStore();
  ASSERT_TRUE(displayFrames);
  const std::vector<double> times = display.frameTimes();
  ASSERT_EQ(static_cast<int>(times.size()), displayFrames->count());
  EXPECT_GE(displayFrames->count(), static_cast<int>(kRate * kLength * 0.85));
  EXPECT_LE(displayFrames->count(), static_cast<int>(kRate * kLength) + 1);
  // While nothing changed, frames kept coming at the rate. (Once the window opens, every frame
  // is new and an instrumented build may fall behind; the count above covers that part.)
  for (std::size_t i = 1; i < times.size() && times[i] < 0.9; ++i) {
    EXPECT_LT(times[i] - times[i - 1], 3.0 / kRate)
        << "no gap while the screen was still, at " << times[i];
  }
  EXPECT_EQ(display.outputSize(), (ImageSize{1280, 800}));
  EXPECT_FALSE(display.hasStreamEnded());
  const Image first = frameOf(*displayFrames, 0);
  EXPECT_EQ(first.width(), 1280);
  EXPECT_FALSE(showsTheWindow(first));

  // The window that opened during the recording, settled (a second one would open on top).
  waitForWindow(*source);
  std::this_thread::sleep_for(1s);
  const Image still = grabOnce(*source, kMonitor);
  // A region of the window, on a second stream of the same session.
  ScreenRecorder region(*source, steadyClock());
  region.start(kStillPartOfTheWindow, displays[0], kRate, false);
  std::this_thread::sleep_for(std::chrono::duration<double>(kLength));
  const auto regionFrames = region.stopAndCollectFrameStore();
  ASSERT_TRUE(regionFrames);
  EXPECT_GE(regionFrames->count(), static_cast<int>(kRate * kLength * 0.85));
  EXPECT_LE(regionFrames->count(), static_cast<int>(kRate * kLength) + 1);
  const Image last = frameOf(*regionFrames, regionFrames->count() - 1);
  testing::keepArtifact(last, "wayland", "recorded-region.png");
  ASSERT_EQ(last.width(), kStillPartOfTheWindow.width);
  ASSERT_EQ(last.height(), kStillPartOfTheWindow.height);
  // JPEG changes pixels a little; a crop a few pixels off changes them a lot more.
  const double sameArea = meanDifference(last, still, kStillPartOfTheWindow);
  ScreenRect shifted = kStillPartOfTheWindow;
  shifted.y += 6;
  EXPECT_LT(sameArea, 2.5);
  EXPECT_GT(meanDifference(last, still, shifted), 3 * sameArea);
}

TEST_F(WaylandScreenSourceTest, ThePointerComesAsMetadataAndIsDrawnOnlyWhenAsked) {
  const auto source = makeSource();
  ASSERT_EQ(approvedDisplays(*source).size(), 1u);
  EXPECT_TRUE(source->followsPointer());
  startWindow(*source);
  const auto plain = source->openStream(CaptureTarget::screenAreaOf(kMonitor), false);
  const auto drawn = source->openStream(CaptureTarget::screenAreaOf(kMonitor), true);

  // Over the desktop below the window: the arrow.
  ASSERT_TRUE(session_->movePointer(640, 770));
  std::optional<PointerState> arrow;
  ASSERT_TRUE(within(5s, [&] {
    arrow = drawn->pointer();
    return arrow && arrow->x == 640 && arrow->y == 770;
  }));
  ASSERT_FALSE(arrow->cursor.image.empty());
  EXPECT_EQ(source->pointerPosition(), (std::pair{640, 770}));
  const auto plainPointer = plain->pointer();
  ASSERT_TRUE(plainPointer) << "a stream without the cursor drawn still tells where it is";
  EXPECT_EQ(plainPointer->x, 640);

  // The frames differ only where the arrow is drawn.
  const Image without = *plain->grab();
  const Image with = *drawn->grab();
  testing::keepArtifact(with, "wayland", "pointer-drawn.png");
  const int left = 640 - arrow->cursor.hotX;
  const int top = 770 - arrow->cursor.hotY;
  // Around the arrow only: the two grabs may be a frame apart, and the window above animates.
  constexpr int kMargin = 32;
  int inside = 0;
  int outside = 0;
  for (int y = std::max(0, top - kMargin);
       y < std::min(with.height(), top + arrow->cursor.image.height() + kMargin); ++y) {
    for (int x = std::max(0, left - kMargin);
         x < std::min(with.width(), left + arrow->cursor.image.width() + kMargin); ++x) {
      if (same(pixelAt(with, x, y), pixelAt(without, x, y))) {
        continue;
      }
      const bool inBox = x >= left && x < left + arrow->cursor.image.width() && y >= top &&
                         y < top + arrow->cursor.image.height();
      (inBox ? inside : outside) += 1;
    }
  }
  EXPECT_GT(inside, 20);
  EXPECT_EQ(outside, 0);

  // Over a text entry: the I-beam, a new picture with a new serial.
  ASSERT_TRUE(session_->movePointer(150, 160));
  std::optional<PointerState> beam;
  ASSERT_TRUE(within(5s, [&] {
    beam = drawn->pointer();
    return beam && beam->x == 150 && beam->y == 160 && beam->serial != arrow->serial;
  }));
  EXPECT_FALSE(beam->cursor.image.hasSamePixels(arrow->cursor.image));
  // Back over the desktop: the arrow again.
  ASSERT_TRUE(session_->movePointer(640, 770));
  ASSERT_TRUE(within(5s, [&] {
    const auto now = drawn->pointer();
    return now && now->y == 770 && now->cursor.image.hasSamePixels(arrow->cursor.image);
  }));
}

TEST_F(WaylandScreenSourceTest, KillingTheCompositorEndsTheRecordingAndKeepsItsFrames) {
  const auto source = makeSource();
  const std::vector<ScreenDisplay> displays = approvedDisplays(*source);
  ASSERT_EQ(displays.size(), 1u);
  const auto stream = source->openStream(CaptureTarget::screenAreaOf(kMonitor), false);
  ASSERT_TRUE(stream->grab());

  ScreenRecorder recorder(*source, steadyClock());
  recorder.start(displays[0], 10, true);
  std::this_thread::sleep_for(1s);
  session_->killCompositor();
  EXPECT_TRUE(within(5s, [&] { return recorder.hasStreamEnded(); }));
  const auto frames = recorder.stopAndCollectFrameStore();
  ASSERT_TRUE(frames);
  EXPECT_GE(frames->count(), 7);
  EXPECT_EQ(frameOf(*frames, 0).width(), 1280);

  // A stream opened before ends too, with the error that ends a recording.
  std::optional<ScreenCaptureError::Code> ended;
  EXPECT_TRUE(within(5s, [&] {
    try {
      stream->grab();
    } catch (const ScreenCaptureError& error) {
      ended = error.code();
    }
    return ended.has_value();
  }));
  EXPECT_EQ(ended, ScreenCaptureError::Code::displayLost);
}

}  // namespace
}  // namespace brimble::wayland
