#pragma once

#include <filesystem>
#include <string>

namespace brimble::testing {

/// The bytes of `file`; empty when it cannot be read.
std::string readFile(const std::filesystem::path& file);

/// Writes `bytes` to `file`, creating its folder first. The mode is that of a new file.
void writeFile(const std::filesystem::path& file, const std::string& bytes);

}  // namespace brimble::testing
