#include "BrimbleCore/Capture/CursorImage.h"

#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/Images.h"

namespace brimble {
namespace {

using testing::Pixel;

/// A 6x4 frame of one colour as raw bytes.
PixelBuffer frameOf(Pixel color) {
  const Image image = testing::solidImage(6, 4, color);
  return PixelBuffer(image.bytes().begin(), image.bytes().end());
}

Pixel at(const PixelBuffer& frame, int x, int y) {
  const std::uint8_t* p = frame.data() + (y * 6 + x) * 4;
  return {p[2], p[1], p[0], p[3]};
}

TEST(CursorImage, BlendsPremultipliedPixelsAtTheHotSpotAndClipsAtTheEdges) {
  // 2x2 cursor, hot spot at its bottom right: opaque red, half-transparent white (premultiplied
  // 128,128,128,128), fully transparent, opaque black.
  const Image picture = testing::imageOf(2, 2, [](int x, int y) -> Pixel {
    const Pixel pixels[4] = {{255, 0, 0, 255}, {128, 128, 128, 128}, {0, 0, 0, 0}, {0, 0, 0, 255}};
    return pixels[y * 2 + x];
  });
  const CursorImage cursor{picture, 1, 1};
  PixelBuffer frame = frameOf({0, 0, 200});
  blendCursor(frame, 24, 6, 4, cursor, 2, 2);
  EXPECT_EQ(at(frame, 1, 1).r, 255);
  // 128 + 200 * 127 / 255 = 128 + 99.6 -> 228 blue over the white half; red and green 128.
  const Pixel half = at(frame, 2, 1);
  EXPECT_EQ((std::vector<int>{half.r, half.g, half.b, half.a}),
            (std::vector<int>{128, 128, 228, 255}));
  EXPECT_EQ(at(frame, 1, 2).b, 200) << "transparent cursor pixels leave the frame alone";
  EXPECT_EQ(at(frame, 2, 2).b, 0);
  EXPECT_EQ(at(frame, 3, 3).b, 200);

  // Hot spot on the frame's top-left corner: only the cursor's bottom-right pixel lands.
  PixelBuffer corner = frameOf({0, 0, 200});
  blendCursor(corner, 24, 6, 4, cursor, 0, 0);
  EXPECT_EQ(at(corner, 0, 0).b, 0);
  EXPECT_EQ(at(corner, 1, 0).b, 200);
  EXPECT_EQ(at(corner, 0, 1).b, 200);
  // Entirely outside: nothing changes (and nothing outside the buffer is touched).
  PixelBuffer outside = frameOf({0, 0, 200});
  blendCursor(outside, 24, 6, 4, cursor, 20, -5);
  EXPECT_EQ(outside, frameOf({0, 0, 200}));
}

}  // namespace
}  // namespace brimble
