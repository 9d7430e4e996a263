#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace brimble::testing {

/// The environment brimble-app is started with in tests: this process's (the embedded display
/// and its session bus), with the settings, library, runtime and temporary folders moved into
/// `folder`, so nothing of the user's is read or written, and Qt on X11.
std::vector<std::string> privateAppEnvironment(const std::filesystem::path& folder);

}  // namespace brimble::testing
