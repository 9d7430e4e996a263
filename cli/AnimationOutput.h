#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "BrimbleCore/Encoding/GIFEncoder.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "cli/ProgressBar.h"

namespace brimble::cli {

/// The output format from `--format` when given, else from the output file's extension, else
/// GIF. No value (and a message on standard error) for an unknown or unwritable format.
std::optional<OutputFormat> resolveOutputFormat(const std::string& command,
                                                const std::string& formatOption,
                                                const std::filesystem::path& output);

/// Progress of an encode drawn on `bar`.
EncodeProgress progressOn(ProgressBar& bar);

/// The one-line summary on standard output: path, bytes, frames, dimensions, seconds.
void printSummary(const std::filesystem::path& output, const EncodeSummary& summary,
                  std::chrono::steady_clock::time_point started);

}  // namespace brimble::cli
