#pragma once

namespace brimble {

/// This build's version ("0.1.0"), defined once by the project in CMakeLists.txt: what
/// `--version`, the MCP server's serverInfo and brimble_status, the app's settings, the crash
/// reports, the update check and the packages all say.
extern const char* const kVersion;

}  // namespace brimble
