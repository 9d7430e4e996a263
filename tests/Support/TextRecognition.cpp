#include "tests/Support/TextRecognition.h"

#include <cctype>
#include <vector>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble::testing {

bool textRecognitionAvailable() {
  return runCommand("command -v tesseract >/dev/null 2>&1").exitCode == 0;
}

std::string recognizedText(const Image& image) {
  const TempDirectory directory;
  const Image larger = ImageScaler::resize(image, {image.width() * 3, image.height() * 3});
  const std::vector<std::uint8_t> png = encodePNG(larger);
  writeFile(directory / "frame.png", std::string(png.begin(), png.end()));
  const CommandResult result = runCommand(
      "tesseract " + shellQuote((directory / "frame.png").string()) + " stdout 2>/dev/null");
  std::string folded;
  for (const char c : result.output) {
    if (std::isspace(static_cast<unsigned char>(c)) != 0) {
      if (!folded.empty() && folded.back() != ' ') {
        folded += ' ';
      }
    } else {
      folded += c;
    }
  }
  while (!folded.empty() && folded.back() == ' ') {
    folded.pop_back();
  }
  return folded;
}

}  // namespace brimble::testing
