#pragma once

#include <functional>
#include <string_view>

namespace brimble {

/// Receives one diagnostic line, without its trailing newline. Called from any thread.
using LogSink = std::function<void(std::string_view line)>;

/// Writes one diagnostic line to the current sink (standard error by default). Thread-safe:
/// lines from different threads never interleave.
void logLine(std::string_view line);

/// Replaces the sink and returns the previous one; an empty sink restores standard error.
/// Tests use this to capture what the core library logs.
LogSink setLogSink(LogSink sink);

}  // namespace brimble
