#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "BrimbleCore/Diagnostics/UsageStatistics.h"

namespace brimble {
class JSONValue;
}

namespace brimble::cli {

/// Notes one output the running command encoded, to be counted when the command ends.
/// Thread-safe.
void noteEncodedOutput(const std::filesystem::path& output);

/// Counts what `command` did, with the outputs noted while it ran, in the user's usage
/// statistics, and returns `exitCode` (the status it ended with) unchanged.
int countedCommand(std::string_view command, int exitCode);

/// What one MCP tool call did: `result` is its structured result, null when it failed.
UsageEvent toolCallUsage(const std::string& tool, const JSONValue& result, bool failed);

/// The name a usage count gives the format of `output`: "gif", "webp", "apng", "mp4", "frames"
/// for a folder of PNG frames, "other" for anything else.
std::string usageFormatOf(const std::filesystem::path& output);

}  // namespace brimble::cli
