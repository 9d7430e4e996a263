#pragma once

#include <filesystem>
#include <string_view>
#include <system_error>

namespace brimble {

/// An OS failure as an exception: "<action> <path>: <strerror>", with the errno kept as the code.
std::system_error systemError(int errorNumber, std::string_view action,
                              const std::filesystem::path& path);

}  // namespace brimble
