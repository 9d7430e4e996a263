// The look of the terminals a script opens in the embedded display, seen on a real xterm, and
// the window bar and margin a script puts around a recording. Each picture is kept under
// test-artifacts/terminal-look for a person to look at.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "tests/Support/GifReader.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/Images.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::Pixel;

std::tuple<int, int, int> colourKey(Pixel p) {
  return {p.r, p.g, p.b};
}

// The colour most pixels of `image` have: a terminal's background.
Pixel commonestColour(const Image& image) {
  std::map<std::tuple<int, int, int>, int> counts;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      ++counts[colourKey(testing::pixelAt(image, x, y))];
    }
  }
  const auto most =
      std::max_element(counts.begin(), counts.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  const auto [r, g, b] = most->first;
  return {static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(g), static_cast<std::uint8_t>(b)};
}

struct Box {
  int left = 1 << 30;
  int top = 1 << 30;
  int right = -1;  // exclusive
  int bottom = -1;
  int width() const { return right - left; }
  int height() const { return bottom - top; }
};

// The smallest box holding the pixels `matches` picks.
template <typename Matches>
Box boxOf(const Image& image, Matches matches) {
  Box box;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      if (matches(testing::pixelAt(image, x, y))) {
        box.left = std::min(box.left, x);
        box.top = std::min(box.top, y);
        box.right = std::max(box.right, x + 1);
        box.bottom = std::max(box.bottom, y + 1);
      }
    }
  }
  return box;
}

bool close(Pixel p, Pixel q, int tolerance) {
  return std::abs(p.r - q.r) <= tolerance && std::abs(p.g - q.g) <= tolerance &&
         std::abs(p.b - q.b) <= tolerance;
}

std::string fileText(const fs::path& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(TerminalLook, ATerminalTakesTheScriptsThemeFontSizeSizePaddingLineHeightAndTitle) {
  testing::TempDirectory directory;
  const auto still = [&](const std::string& variable, const std::string& name) {
    return "run \"" +
           testing::brimbleCommand("still --window $" + variable + " -o " +
                                   testing::shellQuote((directory / name).string())) +
           "\"\n";
  };
  const fs::path out = directory / "looks.gif";
  const fs::path script = directory / "looks.brim";
  std::ofstream(script) << "set max-width 1600\n"
                           "set terminal-theme \"Dracula\"\n"
                           "set terminal-font-size 16\n"
                           "set terminal-columns 50\n"
                           "set terminal-rows 8\n"
                           "set terminal-padding 30\n"
                           "set window-title \"Looks demo\"\n"
                           "open \"Terminal\"\n"
                           "capture-window app \"Terminal\" as $first\n"
                           "run \"xprop -id $first WM_NAME > " +
                               (directory / "title.txt").string() +
                               "\"\n"
                               "type \"printf '\\\\033[31mREDREDRED\\\\033[0m\\\\n'\" enter\n"
                               "wait 1\n" +
                               still("first", "dracula.png") +
                               "set terminal-theme \"{\\\"background\\\": \\\"#f0f0f0\\\", "
                               "\\\"foreground\\\": \\\"#202020\\\"}\"\n"
                               "set terminal-padding 4\n"
                               "set terminal-columns 70\n"
                               "set terminal-rows 6\n"
                               "set line-height 1.4\n"
                               "set window-title \"Second\"\n"
                               "open \"Terminal\"\n"
                               "capture-window app \"Terminal\" as $second\n"
                               "wait 0.5\n" +
                               still("second", "light.png") +
                               "set terminal-width 640\n"
                               "set terminal-height 320\n"
                               "open \"Terminal\"\n"
                               "capture-window app \"Terminal\" as $third\n"
                               "wait 0.5\n" +
                               still("third", "pixels.png") +
                               "set window-bar colorful\n"
                               "set window-bar-size 36\n"
                               "set margin 24\n"
                               "set margin-fill \"#674eff\"\n"
                               "set border-radius 12\n"
                               "record $third duration 0.6\n";
  const auto result = testing::runCommand(
      testing::brimbleWithStderr("run --headless -q -o " + testing::shellQuote(out.string()) + " " +
                                 testing::shellQuote(script.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;

  // The title asked for, kept however the shell would retitle it.
  EXPECT_NE(fileText(directory / "title.txt").find("\"Looks demo\""), std::string::npos)
      << fileText(directory / "title.txt");

  const Image dracula = testing::readPNG(directory / "dracula.png");
  ASSERT_GT(dracula.width(), 0) << result.output;
  testing::keepArtifact(dracula, "terminal-look", "dracula.png");
  const Pixel background{0x28, 0x2a, 0x36};
  EXPECT_TRUE(close(commonestColour(dracula), background, 1));
  // Dracula's red, as printed.
  const Box red = boxOf(dracula, [](Pixel p) { return close(p, {0xff, 0x55, 0x55}, 40); });
  ASSERT_GT(red.width(), 0);
  // The terminal is its cells and its padding: 50 x 8 cells of one size, 30 pixels each side.
  const Box area = boxOf(dracula, [&](Pixel p) { return close(p, background, 1); });
  const int cellWidth = (area.width() - 60) / 50;
  const int cellHeight = (area.height() - 60) / 8;
  EXPECT_EQ((area.width() - 60) % 50, 0) << area.width();
  EXPECT_EQ((area.height() - 60) % 8, 0) << area.height();
  // 16 points at 96 dpi: DejaVu Sans Mono's advance is 0.6 em, some 13 pixels (13 points, the
  // display's own size, gives 10 or 11).
  EXPECT_GE(cellWidth, 12);
  EXPECT_LE(cellWidth, 14);
  // The text starts at the padding: the prompt's first letter, then the red word a line on.
  EXPECT_GE(red.left - area.left, 30);
  EXPECT_LE(red.left - area.left, 30 + cellWidth);

  const Image light = testing::readPNG(directory / "light.png");
  ASSERT_GT(light.width(), 0) << result.output;
  testing::keepArtifact(light, "terminal-look", "light.png");
  const Pixel paper{0xf0, 0xf0, 0xf0};
  EXPECT_TRUE(close(commonestColour(light), paper, 1));
  const Box lightArea = boxOf(light, [&](Pixel p) { return close(p, paper, 1); });
  // The same font (a setting holds until it is set again), 70 cells, padding 4; lines 1.4 times
  // as tall.
  EXPECT_EQ(lightArea.width() - 8, 70 * cellWidth) << lightArea.width();
  EXPECT_EQ((lightArea.height() - 8) % 6, 0) << lightArea.height();
  const int tallCell = (lightArea.height() - 8) / 6;
  EXPECT_GE(tallCell, cellHeight * 1.3) << cellHeight;
  EXPECT_LE(tallCell, cellHeight * 1.5) << cellHeight;

  // A size in pixels is kept exactly, though the text takes whole cells.
  const Image pixels = testing::readPNG(directory / "pixels.png");
  ASSERT_GT(pixels.width(), 0) << result.output;
  testing::keepArtifact(pixels, "terminal-look", "pixels.png");
  const Box pixelArea = boxOf(pixels, [&](Pixel p) { return close(p, paper, 1); });
  EXPECT_EQ(pixelArea.width(), 640);
  EXPECT_EQ(pixelArea.height(), 320);

  // The recording: a colourful bar in the window's colour over it, rounded, on the margin.
  const auto gif = testing::decodeGIFFile(out);
  ASSERT_TRUE(gif) << result.output;
  const Image& frame = gif->frames.front();
  testing::keepArtifact(frame, "terminal-look", "recorded.png");
  // (An odd size gets one more row or column: the canvas is even.)
  EXPECT_NEAR(frame.width(), pixelArea.width() + 48, 1);
  EXPECT_NEAR(frame.height(), pixelArea.height() + 36 + 48, 1);
  EXPECT_TRUE(close(testing::pixelAt(frame, 2, 2), {0x67, 0x4e, 0xff}, 8));
  EXPECT_TRUE(close(testing::pixelAt(frame, frame.width() / 2, 24 + 2), paper, 8));
  const Box buttons = boxOf(frame, [](Pixel p) { return close(p, {0xff, 0x5f, 0x57}, 30); });
  EXPECT_GT(buttons.top, 24);
  EXPECT_LT(buttons.bottom, 24 + 36);
  EXPECT_LT(buttons.left, 24 + 40);
}

TEST(TerminalLook, ABadThemeOrFillStopsTheScriptBeforeAnythingOpens) {
  testing::TempDirectory directory;
  const std::pair<std::string, std::string> cases[] = {
      {"set terminal-theme \"Drakula\"",
       "Invalid value 'Drakula' for setting 'terminal-theme' (expected a theme name (Brimble, "
       "Dracula,"},
      {"set terminal-theme \"{\\\"red\\\": \\\"crimson\\\"}\"",
       "Invalid value '{\"red\": \"crimson\"}' for setting 'terminal-theme'"},
      {"set margin-fill \"#12\"",
       "Invalid value '#12' for setting 'margin-fill' (expected a colour such as #674eff, or an "
       "image file)"},
      {"set window-bar colourful",
       "Invalid value 'colourful' for setting 'window-bar' (expected: none, title, colorful, "
       "colorful-right, rings, rings-right); did you mean 'colorful'?"},
  };
  for (const auto& [line, message] : cases) {
    const fs::path script = directory / "bad.brim";
    std::ofstream(script) << line << "\nopen \"Terminal\"\nrecord region 0 0 99 99 duration 1\n";
    const auto result = testing::runCommand(
        testing::brimbleWithStderr("validate " + testing::shellQuote(script.string())));
    EXPECT_EQ(result.exitCode, 1) << line << "\n" << result.output;
    EXPECT_NE(result.output.find(message), std::string::npos) << line << "\n" << result.output;
  }
}

}  // namespace
}  // namespace brimble
