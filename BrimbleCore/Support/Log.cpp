#include "BrimbleCore/Support/Log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <utility>

#include <unistd.h>

namespace brimble {
namespace {

std::mutex& sinkMutex() {
  static std::mutex mutex;
  return mutex;
}

// Guarded by sinkMutex(); empty means standard error.
LogSink& currentSink() {
  static LogSink sink;
  return sink;
}

// Guarded by sinkMutex().
LogSink& currentRecorder() {
  static LogSink recorder;
  return recorder;
}

std::atomic<bool> verbose{false};

// What a crash report quotes of the log: fixed slots written under sinkMutex() and read without
// it by a signal handler, so nothing here may allocate or be freed.
constexpr std::size_t kRecentLineCount = 40;
constexpr std::size_t kRecentLineBytes = 256;
struct RecentLines {
  std::array<std::array<char, kRecentLineBytes>, kRecentLineCount> text{};
  std::array<std::atomic<std::uint32_t>, kRecentLineCount> length{};
  std::atomic<std::uint64_t> written{0};
};
RecentLines recentLines;

void remember(std::string_view line) noexcept {
  const std::uint64_t index = recentLines.written.load(std::memory_order_relaxed);
  const std::size_t slot = index % kRecentLineCount;
  const std::size_t length = std::min(line.size(), kRecentLineBytes);
  recentLines.length[slot].store(0, std::memory_order_relaxed);
  std::copy_n(line.data(), length, recentLines.text[slot].data());
  recentLines.length[slot].store(static_cast<std::uint32_t>(length), std::memory_order_release);
  recentLines.written.store(index + 1, std::memory_order_release);
}

// "2026-11-26T17:55:01.123Z [4321] ": UTC, so lines of processes in different time zones (a
// host started with a bare environment) still sort.
std::string stamped(std::string_view line) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  std::array<char, 64> prefix{};
  const int length =
      std::snprintf(prefix.data(), prefix.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ [%d] ",
                    utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                    utc.tm_sec, static_cast<int>(milliseconds), static_cast<int>(::getpid()));
  std::string text(prefix.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  text.append(line);
  // One line stays one line in the file, whatever the message holds.
  for (std::size_t i = text.size() - line.size(); i < text.size(); ++i) {
    if (text[i] == '\n' || text[i] == '\r') {
      text[i] = ' ';
    }
  }
  return text;
}

void record(std::string_view line, bool show) {
  const std::string entry = stamped(line);
  std::scoped_lock lock(sinkMutex());
  remember(entry);
  if (currentRecorder()) {
    currentRecorder()(entry);
  }
  if (!show) {
    return;
  }
  if (currentSink()) {
    currentSink()(line);
    return;
  }
  std::string text(line);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

void logLine(std::string_view line) {
  record(line, true);
}

void logVerbose(std::string_view line) {
  record(line, verbose.load(std::memory_order_relaxed));
}

void setVerboseLogging(bool on) noexcept {
  verbose.store(on, std::memory_order_relaxed);
}

bool verboseLogging() noexcept {
  return verbose.load(std::memory_order_relaxed);
}

LogSink setLogSink(LogSink sink) {
  std::scoped_lock lock(sinkMutex());
  return std::exchange(currentSink(), std::move(sink));
}

LogSink setLogRecorder(LogSink recorder) {
  std::scoped_lock lock(sinkMutex());
  return std::exchange(currentRecorder(), std::move(recorder));
}

std::size_t copyRecentLogLines(char* buffer, std::size_t capacity) noexcept {
  const std::uint64_t written = recentLines.written.load(std::memory_order_acquire);
  const std::uint64_t first = written > kRecentLineCount ? written - kRecentLineCount : 0;
  std::size_t used = 0;
  for (std::uint64_t index = first; index < written; ++index) {
    const std::size_t slot = index % kRecentLineCount;
    const std::size_t length = std::min<std::size_t>(
        recentLines.length[slot].load(std::memory_order_acquire), kRecentLineBytes);
    if (used + length + 1 > capacity) {
      break;
    }
    for (std::size_t i = 0; i < length; ++i) {
      buffer[used++] = recentLines.text[slot][i];
    }
    buffer[used++] = '\n';
  }
  return used;
}

}  // namespace brimble
