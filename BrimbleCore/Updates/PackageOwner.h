#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace brimble {

/// The Debian package that installed `program`, so that an update is asked of the package
/// manager rather than downloaded: "brimble" when `dpkgInfo`/brimble.list names it, else the
/// package `dpkg -S` names (bounded by a few seconds). No value when no package owns it, or
/// dpkg is not there. Never throws.
std::optional<std::string> packageOwning(
    const std::filesystem::path& program,
    const std::filesystem::path& dpkgInfo = "/var/lib/dpkg/info");

}  // namespace brimble
