#include "BrimbleCore/Scripting/TextRecognizer.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/TitleCardPainter.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

// A clean picture of two lines of text, as a window might show them.
Image twoLines() {
  const TitleCard card{"Deploy finished", "All 42 checks passed", std::nullopt};
  const TitleCardPainter painter(card, *EffectColor::parse("#1a1a2e"),
                                 *EffectColor::parse("#f4f4f8"), {640, 240}, false);
  return painter.frameAt(1.0);
}

TEST(TextRecognizer, ReadsAPicturesLinesTopToBottom) {
  if (!findProgram("tesseract")) {
    GTEST_SKIP() << "tesseract is not installed";
  }
  const auto lines = TextRecognizer::readLines(twoLines(), [] { return false; });
  ASSERT_TRUE(lines);
  EXPECT_EQ(*lines, (std::vector<std::string>{"Deploy finished", "All 42 checks passed"}));
  // Asked to stop, it stops, with nothing read.
  EXPECT_EQ(TextRecognizer::readLines(twoLines(), [] { return true; }), std::nullopt);
}

TEST(TextRecognizer, WithoutTesseractOneLineSaysWhatToInstall) {
  const testing::TempDirectory nothing;
  const std::string path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
  ::setenv("PATH", nothing.path().c_str(), 1);
  std::optional<TextRecognitionError> refused;
  try {
    TextRecognizer::readLines(twoLines(), [] { return false; });
  } catch (const TextRecognitionError& error) {
    refused = error;
  }
  ::setenv("PATH", path.c_str(), 1);
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->code(), TextRecognitionError::Code::notInstalled);
  EXPECT_STREQ(refused->what(),
               "reading text off a window needs tesseract, which is not installed (Debian: "
               "apt-get install tesseract-ocr tesseract-ocr-eng)");
}

}  // namespace
}  // namespace brimble
