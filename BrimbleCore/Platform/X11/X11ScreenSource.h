#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BrimbleCore/Capture/ScreenSource.h"

namespace brimble::x11 {

/// The screen of one X display as a ScreenSource. Displays are XRandR monitors, identified by
/// their first RandR output id; a server without RandR monitors is one display of id 0. Every
/// query opens a connection of its own and closes it, and every stream holds its own, so the
/// source is thread-safe and one connection is never shared between threads.
class X11ScreenSource final : public ScreenSource {
 public:
  struct Options {
    /// Grab through MIT-SHM where the server allows it; false always uses XGetImage.
    bool sharedMemory = true;
  };

  /// The display `displayName` (":99"). Nothing connects until used.
  explicit X11ScreenSource(std::string displayName) : X11ScreenSource(std::move(displayName), {}) {}
  X11ScreenSource(std::string displayName, Options options)
      : displayName_(std::move(displayName)), options_(options) {}

  std::vector<ScreenDisplay> displays() override;
  std::optional<ScreenWindow> window(std::uint32_t windowID) override;
  std::unique_ptr<ScreenStream> openStream(const CaptureTarget& target, bool showCursor) override;
  bool followsPointer() const override { return true; }
  /// The top-level ancestor the window manager reparented the window into, with the extents
  /// it announces in _NET_FRAME_EXTENTS.
  std::optional<DecoratedWindow> decoratedWindow(std::uint32_t windowID) override;
  std::optional<std::pair<int, int>> pointerPosition() override;

 private:
  const std::string displayName_;
  const Options options_;
};

}  // namespace brimble::x11
