#include "BrimbleCore/Support/Log.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

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

}  // namespace

void logLine(std::string_view line) {
  std::scoped_lock lock(sinkMutex());
  if (currentSink()) {
    currentSink()(line);
    return;
  }
  std::string text(line);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
}

LogSink setLogSink(LogSink sink) {
  std::scoped_lock lock(sinkMutex());
  return std::exchange(currentSink(), std::move(sink));
}

}  // namespace brimble
