#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace brimble {

/// Receives one diagnostic line, without its trailing newline. Called from any thread.
using LogSink = std::function<void(std::string_view line)>;

/// Writes one diagnostic line to the current sink (standard error by default), and hands it,
/// stamped with the time and the pid, to the recorder and the recent lines. Thread-safe: lines
/// from different threads never interleave.
void logLine(std::string_view line);

/// A line that helps diagnose a problem but would clutter a normal run (which session was
/// chosen, each request, each instruction): always recorded, and shown on the sink only while
/// verbose logging is on. It never holds typed text or a file's contents.
void logVerbose(std::string_view line);

/// Turns showing the verbose lines on the sink on or off (off at start).
void setVerboseLogging(bool verbose) noexcept;
bool verboseLogging() noexcept;

/// Replaces the sink and returns the previous one; an empty sink restores standard error.
/// Tests use this to capture what the core library logs.
LogSink setLogSink(LogSink sink);

/// Receives every line, verbose ones included, as "<UTC time> [<pid>] <line>": the program's log
/// file. Called with the log's lock held, so it must not log itself. Returns the previous one.
LogSink setLogRecorder(LogSink recorder);

/// Copies the last lines logged (stamped, oldest first, each ending in a newline, long ones cut)
/// into `buffer`, at most `capacity` bytes, and returns how many were written. Takes no lock
/// and allocates nothing, so a signal handler may call it; a line being written meanwhile may
/// come out mixed.
std::size_t copyRecentLogLines(char* buffer, std::size_t capacity) noexcept;

}  // namespace brimble
