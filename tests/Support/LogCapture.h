#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "BrimbleCore/Support/Log.h"

namespace brimble::testing {

/// Collects what the core library logs while it is alive, then restores the previous sink.
class LogCapture {
 public:
  LogCapture() {
    previous_ = setLogSink([this](std::string_view line) {
      std::scoped_lock lock(mutex_);
      lines_.emplace_back(line);
    });
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() { setLogSink(std::move(previous_)); }

  std::vector<std::string> lines() const {
    std::scoped_lock lock(mutex_);
    return lines_;
  }

 private:
  LogSink previous_;
  mutable std::mutex mutex_;  // guards lines_
  std::vector<std::string> lines_;
};

}  // namespace brimble::testing
