#include "BrimbleCore/Platform/X11/X11ScreenSource.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "BrimbleCore/Capture/ScreenSegmentRecorder.h"
#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11ScreenStream.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::x11 {
namespace {

using testing::eventually;
using testing::TestWindow;

const std::string kRed = "ff0000ff";
const std::string kBlue = "0000ffff";

/// "rrggbbaa", so that failures show the colour.
std::string colorAt(const Image& image, int x, int y) {
  const testing::Pixel p = testing::pixelAt(image, x, y);
  char text[9];
  std::snprintf(text, sizeof text, "%02x%02x%02x%02x", p.r, p.g, p.b, p.a);
  return text;
}

/// Pixels of `image` that are not `color`, and how many of them lie more than `radius` from
/// (`x`, `y`).
std::pair<int, int> pixelsOtherThan(const Image& image, const std::string& color, int x = 0,
                                    int y = 0, int radius = 1 << 20) {
  int count = 0;
  int far = 0;
  for (int row = 0; row < image.height(); ++row) {
    for (int column = 0; column < image.width(); ++column) {
      if (colorAt(image, column, row) != color) {
        ++count;
        far += std::abs(column - x) > radius || std::abs(row - y) > radius ? 1 : 0;
      }
    }
  }
  return {count, far};
}

Image grabOnce(ScreenSource& source, const CaptureTarget& target, bool cursor = false) {
  const auto frame = source.openStream(target, cursor)->grab();
  return frame ? *frame : Image();
}

TEST(X11ScreenSource, CapturesADisplayARegionAndACoveredWindowPixelForPixel) {
  const auto display = HeadlessDisplay::start();
  const TestWindow red({"--color", "ff0000", "--size", "400x300", "--position", "100,100"});
  const TestWindow blue({"--color", "0000ff", "--size", "400x300", "--position", "300,150"});
  X11ScreenSource source(display->displayName());
  const auto displays = source.displays();
  ASSERT_EQ(displays.size(), 1u);
  EXPECT_NE(displays[0].displayID, 0u) << "the RandR output id";
  EXPECT_EQ(displays[0].frame, (ScreenRect{0, 0, 1920, 1080}));
  const ScreenRect redFrame = source.window(red.id())->frame;
  ASSERT_EQ(redFrame.width, 400);
  const ScreenRect overlap = redFrame.intersection(source.window(blue.id())->frame);
  ASSERT_FALSE(overlap.empty()) << "the blue window must cover part of the red one";
  // Settled: the blue window is up, and the window manager has finished redrawing frames
  // (focus changes repaint title bars), so both ways of grabbing see the same screen.
  Image previous;
  int unchanged = 0;
  ASSERT_TRUE(eventually([&] {
    const Image now = grabOnce(source, CaptureTarget::screenAreaOf(displays[0].frame));
    unchanged = now.hasSamePixels(previous) ? unchanged + 1 : 0;
    previous = now;
    return colorAt(now, overlap.x, overlap.y) == kBlue && unchanged >= 5;
  }));

  std::vector<Image> shared;
  for (const bool sharedMemory : {true, false}) {
    SCOPED_TRACE(sharedMemory ? "MIT-SHM" : "XGetImage");
    X11ScreenSource grabber(display->displayName(), {.sharedMemory = sharedMemory});
    X11ScreenStream stream(display->displayName(), CaptureTarget::screenAreaOf(displays[0].frame),
                           false, sharedMemory);
    const Image screen = *stream.grab();
    EXPECT_EQ(stream.usesSharedMemory(), sharedMemory);
    ASSERT_EQ(screen.width(), 1920);
    EXPECT_EQ(colorAt(screen, redFrame.x + 5, redFrame.y + redFrame.height - 5), kRed);
    // The blue window shows where it covers the red one; the red one's far corner stays red.
    const Image region = grabOnce(grabber, CaptureTarget::screenAreaOf(redFrame));
    ASSERT_EQ(region.width(), 400);
    ASSERT_EQ(region.height(), 300);
    EXPECT_EQ(pixelsOtherThan(grabOnce(grabber, CaptureTarget::screenAreaOf(overlap)), kBlue).first,
              0);
    EXPECT_EQ(colorAt(region, overlap.x - redFrame.x, overlap.y - redFrame.y), kBlue);
    EXPECT_EQ(colorAt(region, 0, redFrame.height - 1), kRed);
    // The window alone, the covered part included.
    const Image window = grabOnce(grabber, CaptureTarget::windowOf(red.id()));
    ASSERT_EQ(window.width(), 400);
    ASSERT_EQ(window.height(), 300);
    EXPECT_EQ(pixelsOtherThan(window, kRed).first, 0);

    const std::vector<Image> images = {screen, region, window};
    for (std::size_t i = 0; i < images.size() && !sharedMemory; ++i) {
      EXPECT_TRUE(images[i].hasSamePixels(shared[i])) << "image " << i;
    }
    shared = images;
  }
}

TEST(X11ScreenSource, AWindowStreamFollowsResizesAndEndsWhenTheWindowCloses) {
  const auto display = HeadlessDisplay::start();
  TestWindow red({"--color", "ff0000", "--size", "400x300"});
  X11ScreenSource source(display->displayName());
  const auto stream = source.openStream(CaptureTarget::windowOf(red.id()), false);
  ASSERT_EQ(stream->grab()->width(), 400);
  red.resize(240, 120);
  EXPECT_TRUE(eventually([&] {
    const auto frame = stream->grab();
    return frame && frame->width() == 240 && frame->height() == 120 &&
           pixelsOtherThan(*frame, kRed).first == 0;
  }));
  red.close();
  std::string closed;
  eventually([&] {
    closed = testing::errorText<ScreenCaptureError>([&] { stream->grab(); });
    return closed != "(no error)";
  });
  EXPECT_EQ(closed, ScreenCaptureError::windowClosed(red.id()).what());
  EXPECT_FALSE(source.window(red.id()));
  EXPECT_EQ(testing::errorText<ScreenCaptureError>(
                [&] { source.openStream(CaptureTarget::windowOf(red.id()), false); }),
            ScreenCaptureError::windowNotFound(red.id()).what());
}

TEST(X11ScreenSource, ThePointerIsDrawnWhereItIsOnlyWhenAsked) {
  const auto display = HeadlessDisplay::start();
  TestWindow red({"--color", "ff0000", "--size", "400x300", "--position", "200,200"});
  X11ScreenSource source(display->displayName());
  const ScreenRect frame = source.window(red.id())->frame;
  red.warpPointer(frame.x + 150, frame.y + 100);
  ASSERT_TRUE(eventually([&] {
    return source.pointerPosition() == std::pair{frame.x + 150, frame.y + 100};
  }));
  for (const auto& target :
       {CaptureTarget::screenAreaOf(frame), CaptureTarget::windowOf(red.id())}) {
    ASSERT_TRUE(
        eventually([&] { return pixelsOtherThan(grabOnce(source, target), kRed).first == 0; }));
    const Image withCursor = grabOnce(source, target, true);
    const auto [changed, farAway] = pixelsOtherThan(withCursor, kRed, 150, 100, 32);
    EXPECT_GE(changed, 20) << "no pointer drawn";
    EXPECT_EQ(farAway, 0) << "pointer drawn away from its position";
    EXPECT_EQ(testing::pixelAt(withCursor, 0, 0).a, 255);
    // A stream without the pointer still tells where it is and what it looks like.
    const auto pointer = source.openStream(target, false)->pointer();
    ASSERT_TRUE(pointer);
    EXPECT_EQ(pointer->x, frame.x + 150);
    EXPECT_EQ(pointer->y, frame.y + 100);
    EXPECT_FALSE(pointer->cursor.image.empty());
  }
}

TEST(X11ScreenSource, SegmentsAreRecordedWithoutThePointerAndWithItsTrackBeside) {
  const auto display = HeadlessDisplay::start();
  TestWindow red({"--color", "ff0000", "--size", "320x240", "--position", "100,100"});
  X11ScreenSource source(display->displayName());
  const ScreenRect frame = source.window(red.id())->frame;
  red.warpPointer(frame.x + 40, frame.y + 40);
  ASSERT_TRUE(eventually([&] {
    return source.pointerPosition() == std::pair{frame.x + 40, frame.y + 40};
  }));
  ScreenSegmentRecorder recorder(source, steadyClock());
  recorder.start({CaptureTarget::windowOf(red.id()), 20, true, std::nullopt});
  ASSERT_TRUE(eventually([&] { return recorder.frameCount() >= 3; }));
  red.warpPointer(frame.x + 200, frame.y + 150);
  ASSERT_TRUE(eventually([&] { return recorder.frameCount() >= 8; }));
  RecordedSegment segment = recorder.stop();

  EXPECT_FALSE(segment.framesShowCursor);
  ASSERT_TRUE(segment.frames);
  // The window manager's frame is recorded around the window, its extents beside it.
  const FrameExtents extents = segment.frameExtents;
  EXPECT_GT(extents.top, 0);
  EXPECT_EQ(segment.windowFrame.width, 320 + extents.left + extents.right);
  EXPECT_EQ(segment.windowFrame.height, 240 + extents.top + extents.bottom);
  const auto last = decodeImage(segment.frames->data(segment.frames->count() - 1));
  ASSERT_TRUE(last);
  // JPEG keeps red red, and no dark pointer pixels anywhere in the window.
  const auto darkPixels = [](const Image& image, int left, int top, int width, int height) {
    int dark = 0;
    for (int y = top; y < top + height; ++y) {
      for (int x = left; x < left + width; ++x) {
        dark += testing::pixelAt(image, x, y).r < 128 ? 1 : 0;
      }
    }
    return dark;
  };
  EXPECT_EQ(darkPixels(*last, extents.left, extents.top, 320, 240), 0);

  // Rendered without the title bar, exactly the window is left: all of it red but the pointer,
  // which the render draws where the track says.
  std::vector<RenderSegment> segments;
  segments.push_back(RenderSegment{std::move(segment)});
  RenderSettings settings;
  settings.fps = 20;
  settings.includeTitleBar = false;
  settings.showCursor = false;
  const FrameCompositor cropped(segments, settings);
  EXPECT_EQ(cropped.canvasSize(), (ImageSize{320, 240}));
  EXPECT_EQ(darkPixels(*cropped.frame(0), 0, 0, 320, 240), 0);
  settings.includeTitleBar = true;
  const FrameCompositor kept(segments, settings);
  const Image decorated = *kept.frame(0);
  EXPECT_GT(darkPixels(decorated, extents.left, 0, 320, extents.top), 320 * extents.top / 4)
      << "the title bar";
  const RecordedSegment& recorded = segments[0];
  ASSERT_GE(recorded.pointerTrack.size(), 8u);
  EXPECT_EQ(recorded.pointerTrack.front().position, (ScreenPoint{frame.x + 40, frame.y + 40}));
  EXPECT_EQ(recorded.pointerTrack.back().position, (ScreenPoint{frame.x + 200, frame.y + 150}));
  for (std::size_t i = 1; i < recorded.pointerTrack.size(); ++i) {
    EXPECT_GE(recorded.pointerTrack[i].time, recorded.pointerTrack[i - 1].time);
  }
  ASSERT_FALSE(recorded.cursorImages.empty());
  EXPECT_EQ(recorded.pointerTrack.back().cursor,
            static_cast<int>(recorded.cursorImages.size()) - 1);
}

/// Whether each System V segment this process created is marked for removal (SHM_DEST).
std::vector<bool> ourSegmentsMarkedForRemoval() {
  std::ifstream list("/proc/sysvipc/shm");
  std::string line;
  std::getline(list, line);  // header
  std::vector<bool> marked;
  while (std::getline(list, line)) {
    std::istringstream fields(line);
    long key = 0;
    long id = 0;
    std::string mode;
    long size = 0;
    long creator = 0;
    fields >> key >> id >> mode >> size >> creator;
    if (creator == ::getpid()) {
      marked.push_back((std::stol(mode, nullptr, 8) & 01000) != 0);
    }
  }
  return marked;
}

TEST(X11ScreenSource, SharedMemoryIsMarkedForRemovalWhileInUseAndGoneAfter) {
  const auto display = HeadlessDisplay::start({.sessionBus = false, .windowManager = false});
  {
    X11ScreenStream stream(display->displayName(), CaptureTarget::screenAreaOf({0, 0, 64, 64}),
                           false, true);
    ASSERT_TRUE(stream.grab());
    ASSERT_TRUE(stream.usesSharedMemory());
    EXPECT_EQ(ourSegmentsMarkedForRemoval(), std::vector<bool>{true});
  }
  EXPECT_EQ(ourSegmentsMarkedForRemoval(), std::vector<bool>{});
}

}  // namespace
}  // namespace brimble::x11
