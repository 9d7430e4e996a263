#include "tests/Support/ImageFiles.h"

#include <cstdint>
#include <vector>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Files.h"

namespace brimble::testing {

Image readPNG(const std::filesystem::path& file) {
  const auto image = decodeImage(readFileBytes(file));
  return image ? *image : Image();
}

std::filesystem::path artifactPath(const std::string& folder, const std::string& name) {
  const std::filesystem::path directory = std::filesystem::path(BRIMBLE_ARTIFACT_DIR) / folder;
  std::filesystem::create_directories(directory);
  return directory / name;
}

void keepArtifact(const Image& image, const std::string& folder, const std::string& name) {
  const std::vector<std::uint8_t> png = encodePNG(image);
  writeFile(artifactPath(folder, name), std::string(png.begin(), png.end()));
}

}  // namespace brimble::testing
