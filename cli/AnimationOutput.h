#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "cli/ProgressBar.h"

namespace brimble::cli {

/// --crf and --preset on `command`, read into `video`.
void addVideoOptions(CLI::App& command, VideoOptions& video);

/// Progress of an encode drawn on `bar`.
EncodeProgress progressOn(ProgressBar& bar);

/// The one-line summary on standard output: path, bytes, frames, dimensions, the seconds the
/// file plays and, labelled, the seconds the encode took since `started`.
void printSummary(const std::filesystem::path& output, const EncodeSummary& summary,
                  std::chrono::steady_clock::time_point started);
/// The same, with the encode's seconds given.
void printSummary(const std::filesystem::path& output, const EncodeSummary& summary,
                  double encodeSeconds);

}  // namespace brimble::cli
