#include "BrimbleCore/Capture/ScreenSource.h"

#include <climits>
#include <vector>

#include <gtest/gtest.h>

namespace brimble {
namespace {

ScreenDisplay display(std::uint32_t id, ScreenRect frame) {
  ScreenDisplay result;
  result.displayID = id;
  result.frame = frame;
  return result;
}

std::optional<std::uint32_t> holder(const ScreenRect& area,
                                    const std::vector<ScreenDisplay>& displays) {
  const auto found = displayHolding(area, displays);
  return found ? std::optional(found->displayID) : std::nullopt;
}

TEST(DisplayHolding, TheDisplayWithMostOfTheAreaRecordsIt) {
  // Two 1920x1080 monitors side by side, a third below the first.
  const std::vector<ScreenDisplay> displays = {display(1, {0, 0, 1920, 1080}),
                                               display(2, {1920, 0, 1920, 1080}),
                                               display(3, {0, 1080, 1920, 1080})};
  // Mostly on the right-hand monitor, though its top-left corner is on the left one.
  EXPECT_EQ(holder({1800, 100, 400, 300}, displays), 2u);
  // Its centre is on the left monitor, but most of it is on the one below.
  EXPECT_EQ(holder({100, 500, 200, 1200}, displays), 3u);
  // A single point: the display under it.
  EXPECT_EQ(holder({1920, 0, 1, 1}, displays), 2u);
  // An exact tie goes to the first display listed.
  EXPECT_EQ(holder({1820, 100, 200, 100}, displays), 1u);
  // Off every screen, and empty areas, are held by none.
  EXPECT_EQ(holder({-500, -500, 100, 100}, displays), std::nullopt);
  EXPECT_EQ(holder({100, 100, 0, 50}, displays), std::nullopt);
  EXPECT_EQ(holder({100, 100, 50, 50}, {}), std::nullopt);
}

TEST(DisplayHolding, HugeAreasAreComparedWithoutOverflow) {
  // Overlaps of about 2^31 and 2^32 pixels: in int arithmetic the larger one would wrap
  // negative and lose.
  const std::vector<ScreenDisplay> displays = {display(1, {0, 0, 46341, 46341}),
                                               display(2, {46341, 0, 65536, 65536})};
  EXPECT_EQ(holder({0, 0, INT_MAX, INT_MAX}, displays), 2u);
  EXPECT_EQ((ScreenRect{0, 0, 65536, 65536}.area()), std::int64_t{1} << 32);
}

TEST(CaptureTarget, AWindowCropIsCountedFromTheContentAndCutToIt) {
  const ScreenRect content{100, 200, 640, 480};
  const CaptureTarget inside = CaptureTarget::windowCropOf(content, {10, 20, 300, 100});
  EXPECT_EQ(inside.kind, CaptureTarget::Kind::screenArea);
  EXPECT_EQ(inside.area, (ScreenRect{110, 220, 300, 100}));
  // Past the right and bottom edges: only the part over the window is recorded.
  EXPECT_EQ(CaptureTarget::windowCropOf(content, {600, 400, 200, 200}).area,
            (ScreenRect{700, 600, 40, 80}));
  // A negative offset reaches left of the window: cut at its edge too.
  EXPECT_EQ(CaptureTarget::windowCropOf(content, {-50, 0, 100, 10}).area,
            (ScreenRect{100, 200, 50, 10}));
  EXPECT_TRUE(CaptureTarget::windowCropOf(content, {700, 0, 50, 50}).area.empty());
}

}  // namespace
}  // namespace brimble
