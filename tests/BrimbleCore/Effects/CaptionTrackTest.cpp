#include "BrimbleCore/Effects/CaptionTrack.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Effects/KeystrokeBadges.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/Images.h"
#include "tests/Support/RenderSegments.h"
#include "tests/Support/TextRecognition.h"

namespace brimble {
namespace {

using testing::Pixel;

Caption captionAt(double time, std::string text,
                  Caption::Position position = Caption::Position::bottom,
                  std::optional<double> duration = std::nullopt) {
  Caption caption;
  caption.time = time;
  caption.text = std::move(text);
  caption.position = position;
  caption.duration = duration;
  return caption;
}

// The bounding box of the pixels of `image` that differ from `background` by more than 40.
struct Box {
  int left = 0;
  int top = 0;
  int right = -1;
  int bottom = -1;
  int width() const { return right - left + 1; }
  int height() const { return bottom - top + 1; }
};

Box changedBox(const Image& image, Pixel background) {
  Box box{image.width(), image.height(), -1, -1};
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const Pixel p = testing::pixelAt(image, x, y);
      if (std::abs(p.r - background.r) + std::abs(p.g - background.g) +
              std::abs(p.b - background.b) >
          40) {
        box.left = std::min(box.left, x);
        box.top = std::min(box.top, y);
        box.right = std::max(box.right, x);
        box.bottom = std::max(box.bottom, y);
      }
    }
  }
  return box;
}

// The text on a plate at `box`: its rounded edges, which OCR reads as marks, left off.
// On a dark picture the plate does not show and `box` holds the text alone: `inset` false.
Image plateText(const Image& image, const Box& box, bool inset = true) {
  const int kInsetX = inset ? 7 : 0;
  const int kInsetY = inset ? 3 : 0;
  return testing::imageOf(box.width() - 2 * kInsetX, box.height() - 2 * kInsetY, [&](int x, int y) {
    return testing::pixelAt(image, box.left + kInsetX + x, box.top + kInsetY + y);
  });
}

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

TEST(CaptionTrack, ACaptionHoldsForItsDurationOrUntilTheNextInItsPlace) {
  const std::vector<Caption> captions = {
      captionAt(0, "first"),
      captionAt(1, "above", Caption::Position::top, 5.0),
      captionAt(2, "second", Caption::Position::bottom, 10.0),
      captionAt(3, "", Caption::Position::top),  // only ends the one above
      captionAt(9, "too late"),
  };
  const CaptionTrack track(captions, 8);
  ASSERT_EQ(track.shown().size(), 3u);
  const auto expect = [&](std::size_t i, double start, double end, const std::string& text,
                          Caption::Position position) {
    EXPECT_DOUBLE_EQ(track.shown()[i].start, start) << text;
    EXPECT_DOUBLE_EQ(track.shown()[i].end, end) << text;
    EXPECT_EQ(track.shown()[i].text, text);
    EXPECT_EQ(track.shown()[i].position, position) << text;
  };
  expect(0, 0, 2, "first", Caption::Position::bottom);
  expect(1, 1, 3, "above", Caption::Position::top);
  expect(2, 2, 8, "second", Caption::Position::bottom);  // the segment ends first
  EXPECT_TRUE(track.changesBetween(0.9, 1.05)) << "the top caption fades in";
  EXPECT_FALSE(track.changesBetween(1.3, 1.8));
  EXPECT_TRUE(track.changesBetween(1.95, 2.0)) << "the bottom one changes";
}

TEST(CaptionTrack, CaptionsReadOnLightAndDarkPicturesAndWrapWithinTheFrame) {
  if (!testing::textRecognitionAvailable()) {
    GTEST_SKIP() << "tesseract is not installed";
  }
  constexpr Pixel kWhite{255, 255, 255};
  constexpr Pixel kBlack{0, 0, 0};
  for (const auto& [background, name] :
       {std::pair<Pixel, const char*>{kWhite, "white"}, {kBlack, "black"}}) {
    std::vector<RenderSegment> segments;
    segments.push_back(testing::stillSegment(testing::solidImage(480, 270, background), 30));
    segments[0].captions = {captionAt(0.5, "Deploy finished in three seconds")};
    const FrameCompositor compositor(segments, testing::tenFPSNoFade());
    EXPECT_EQ(changedBox(*compositor.frame(2), background).right, -1)
        << name << ": nothing before the caption";
    const Image frame = *compositor.frame(15);
    testing::keepArtifact(frame, "captions", std::string("on-") + name + ".png");
    const Box box = changedBox(frame, background);
    ASSERT_GE(box.right, 0) << name;
    // Centred at the bottom, on a plate that sets it apart from the picture.
    EXPECT_NEAR((box.left + box.right) / 2.0, 240, 3) << name;
    EXPECT_GT(box.top, 270 * 0.7) << name;
    EXPECT_EQ(lowered(testing::recognizedText(plateText(frame, box, background.r > 128))),
              "deploy finished in three seconds")
        << name;
  }

  // A long caption on a narrow frame wraps to lines that stay inside it; at the top it sits
  // at the top.
  const std::string text =
      "Brimble records the terminal, trims the pauses and writes a small GIF for the README";
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(320, 240, kWhite), 20));
  segments[0].captions = {captionAt(0, text, Caption::Position::top)};
  const FrameCompositor compositor(segments, testing::tenFPSNoFade());
  const Image frame = *compositor.frame(10);
  testing::keepArtifact(frame, "captions", "wrapped-top.png");
  const Box box = changedBox(frame, kWhite);
  EXPECT_GT(box.left, 0);
  EXPECT_LT(box.right, 319);
  EXPECT_LT(box.top, 30);
  EXPECT_GT(box.height(), 3 * 19) << "three lines or more";
  EXPECT_EQ(lowered(testing::recognizedText(plateText(frame, box))), lowered(text));
}

TEST(CaptionTrack, CaptionsInAnyScriptFindAFont) {
  const std::vector<Caption> captions = {captionAt(0, "Grüße · Привет · 漢字テスト · 한국어"),
                                         captionAt(1, "مرحبا · Γειά σου")};
  const CaptionTrack track(captions, 2);
  EXPECT_EQ(track.missingGlyphs(), 0);
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(480, 270, {40, 90, 160}), 20));
  segments[0].captions = captions;
  const FrameCompositor compositor(segments, testing::tenFPSNoFade());
  testing::keepArtifact(*compositor.frame(5), "captions", "scripts.png");
  testing::keepArtifact(*compositor.frame(15), "captions", "scripts-rtl.png");
  // A character no font has is counted, so that the render can say so.
  const std::vector<Caption> unknown = {captionAt(0, "\U000FFFFD")};
  EXPECT_GT(CaptionTrack(unknown, 1).missingGlyphs(), 0);
}

InputEvent pressAt(double time, const std::string& key) {
  return testing::inputEvent(InputEvent::Kind::keyDown, time, key);
}

TEST(KeystrokeBadges, TypedTextBecomesACaptionOfItsBurstWhenAskedFor) {
  const std::vector<InputEvent> events = {
      pressAt(0.2, "l"),     pressAt(0.3, "s"),        pressAt(0.4, "space"),
      pressAt(0.5, "minus"), pressAt(0.6, "x"),        pressAt(0.7, "BackSpace"),
      pressAt(0.8, "l"),     pressAt(0.9, "a"),        pressAt(1.5, "Return"),
      pressAt(4.0, "e"),     pressAt(4.1, "c"),        pressAt(4.2, "h"),
      pressAt(4.3, "o"),     pressAt(4.4, "space"),    pressAt(4.5, "quotedbl"),
      pressAt(4.6, "bar"),   pressAt(4.7, "quotedbl"),
  };
  EXPECT_TRUE(KeystrokeBadges(events).badges().size() == 1) << "without it only Enter shows";
  const KeystrokeBadges badges(events, true);
  ASSERT_EQ(badges.badges().size(), 3u);
  EXPECT_EQ(KeystrokeBadges::label(badges.badges()[0]), "ls -la");
  EXPECT_TRUE(badges.badges()[0].typed);
  EXPECT_DOUBLE_EQ(badges.badges()[0].time, 0.2);
  EXPECT_DOUBLE_EQ(badges.badges()[0].end, 1.5) << "Enter takes over";
  EXPECT_EQ(KeystrokeBadges::label(badges.badges()[1]), "Enter");
  EXPECT_EQ(KeystrokeBadges::label(badges.badges()[2]), "echo \"|\"");
  EXPECT_TRUE(badges.changesBetween(0.55, 0.65)) << "the text grows";

  if (!testing::textRecognitionAvailable()) {
    GTEST_SKIP() << "tesseract is not installed";
  }
  constexpr Pixel kLight{235, 235, 235};
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(480, 270, kLight), 60));
  segments[0].events = events;
  RenderSettings settings = testing::tenFPSNoFade();
  settings.keystrokeText = true;
  const FrameCompositor compositor(segments, settings);
  // The text grows as it is typed, and Backspace takes a character back.
  for (const auto& [frame, text] : {std::pair<int, const char*>{6, "ls -x"}, {10, "ls -la"}}) {
    const Image typed = *compositor.frame(frame);
    testing::keepArtifact(typed, "captions", "typed-text-" + std::to_string(frame) + ".png");
    const Box box = changedBox(typed, kLight);
    ASSERT_GE(box.right, 0) << frame;
    EXPECT_GT(box.top, 270 * 0.6) << frame;
    EXPECT_EQ(testing::recognizedText(plateText(typed, box)), text) << frame;
  }
}

TEST(KeystrokeBadges, ABadgeStandsAboveACaptionAtTheBottom) {
  constexpr Pixel kLight{235, 235, 235};
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(480, 270, kLight), 30));
  segments[0].events = {pressAt(1.0, "Return")};
  segments[0].captions = {captionAt(0, "Press Enter to run it")};
  RenderSettings settings = testing::tenFPSNoFade();
  settings.keystrokeBadges = true;
  const FrameCompositor compositor(segments, settings);
  const Image alone = *compositor.frame(5);
  testing::keepArtifact(alone, "captions", "caption-alone.png");
  const Box captionOnly = changedBox(alone, kLight);
  const Image both = *compositor.frame(13);
  testing::keepArtifact(both, "captions", "badge-over-caption.png");
  const Box together = changedBox(both, kLight);
  // The caption stays where it was; the badge adds itself above it, not over it.
  EXPECT_EQ(together.bottom, captionOnly.bottom);
  EXPECT_LT(together.top, captionOnly.top - 30);
  int plateRows = 0;
  for (int y = captionOnly.top; y <= captionOnly.bottom; ++y) {
    const Pixel p = testing::pixelAt(both, 240, y);
    plateRows += p.r < 60 ? 1 : 0;
  }
  EXPECT_GT(plateRows, (captionOnly.height()) / 2) << "the caption's plate is not covered";
}

}  // namespace
}  // namespace brimble
