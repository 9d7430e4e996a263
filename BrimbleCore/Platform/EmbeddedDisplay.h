#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace brimble {

/// A display Brimble runs for itself where the user has none (a server, CI): up while this
/// object lives. Its programs die with the thread that started it. Start and destroy it on the
/// main thread.
class EmbeddedDisplay {
 public:
  EmbeddedDisplay() = default;
  EmbeddedDisplay(const EmbeddedDisplay&) = delete;
  EmbeddedDisplay& operator=(const EmbeddedDisplay&) = delete;
  EmbeddedDisplay(EmbeddedDisplay&&) = delete;
  EmbeddedDisplay& operator=(EmbeddedDisplay&&) = delete;
  virtual ~EmbeddedDisplay() = default;

  /// The name clients connect to (":99").
  virtual std::string name() const = 0;
  /// What programs started in it get in their environment ("NAME=value"): the display, its
  /// session bus, and private folders for their configuration, caches and temporary files.
  virtual std::vector<std::string> environment() const = 0;
  /// The processes that make it up.
  virtual std::vector<pid_t> processes() const = 0;
};

}  // namespace brimble
