#pragma once

#include <filesystem>
#include <string>

namespace brimble::testing {

/// The bytes of `file`; empty when it cannot be read.
std::string readFile(const std::filesystem::path& file);

/// How many entries `directory` holds (0 when it cannot be listed).
long entriesIn(const std::filesystem::path& directory);

/// Writes `bytes` to `file`, creating its folder first. The mode is that of a new file.
void writeFile(const std::filesystem::path& file, const std::string& bytes);

}  // namespace brimble::testing
