#pragma once

#include <filesystem>
#include <string>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble::testing {

/// The picture in a PNG or JPEG file; an empty image when it cannot be read or decoded.
Image readPNG(const std::filesystem::path& file);

/// build/test-artifacts/FOLDER/NAME, with its folder made: where a test leaves what a person
/// should look at.
std::filesystem::path artifactPath(const std::string& folder, const std::string& name);

/// Keeps `image` as a PNG at artifactPath(folder, name).
void keepArtifact(const Image& image, const std::string& folder, const std::string& name);

}  // namespace brimble::testing
