#pragma once

#include <memory>
#include <string>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"

namespace brimble::cli {

/// The X display a command works on: the user's ($DISPLAY) when there is one and `headless` is
/// not asked for, else Brimble's embedded display, started now and stopped when this ends.
/// Create it on the main thread before the command starts other threads.
class DisplaySession {
 public:
  /// Throws x11::HeadlessDisplayError when the embedded display cannot start.
  explicit DisplaySession(bool headless);

  /// The display name commands connect to (":0", ":99").
  std::string name() const;
  bool embedded() const noexcept { return embedded_ != nullptr; }

 private:
  std::unique_ptr<x11::HeadlessDisplay> embedded_;
};

}  // namespace brimble::cli
