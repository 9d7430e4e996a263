#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "BrimbleCore/Automation/WindowSystem.h"

struct _AtspiAccessible;  // libatspi's AtspiAccessible, declared here so the header needs no atspi

namespace brimble::atspi {

/// Windows as the accessibility bus shows them, for desktops that give clients no window list
/// (Wayland): each application's top-level frames and dialogs that are showing, with the
/// application's name and process. A window's id is a hash of its process and its object path on
/// the bus, so it is the same in every call and every process while the window lives. The bus
/// keeps no stacking order: the active window (the ACTIVE state) comes first, then the bus's
/// order. Frames are the toolkit's extents of the window, which may include a client-side
/// shadow; a Wayland client does not know where its window is (GTK says 0,0), so a frame counts as
/// placed (`WindowInfo::positionKnown`) only where the platform says toolkits know, or where a
/// window reports a place other than the origin (an XWayland client). Activation asks the
/// toolkit to focus the window (GTK presents it; mutter grants that only to a request carrying
/// the user's activation, so from here it merely marks the window as wanting attention: measured
/// on GNOME 43); closing presses the window's own close button where its title bar is drawn by
/// the application (GTK). Moving and sizing, and closing any other window, are the compositor's
/// alone: they throw WindowManagerError::requestRefused. Applications appear on the bus only when
/// asked (GTK by default; Qt with QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1). Connects to the bus on
/// first use. One thread at a time.
class ATSPIWindowSystem final : public WindowSystem {
 public:
  struct Options {
    /// Whether the toolkits of this desktop know where their windows are (X11: yes; Wayland:
    /// no).
    bool toolkitsKnowPositions = false;
  };

  ATSPIWindowSystem() : ATSPIWindowSystem(Options{}) {}
  explicit ATSPIWindowSystem(Options options) : options_(options) {}

  /// Throws WindowManagerError::windowListUnavailable without an accessibility bus.
  std::vector<WindowInfo> windows() override;
  /// None without an accessibility bus.
  std::optional<std::uint32_t> activeWindow() override;
  /// Throws WindowManagerError::windowListUnavailable without an accessibility bus.
  bool activate(std::uint32_t id) override;
  /// Throws WindowManagerError::requestRefused for a window that exists.
  bool moveResize(std::uint32_t id, const ScreenRect& frame) override;
  /// Throws WindowManagerError::requestRefused for a window that shows no close button.
  bool close(std::uint32_t id) override;

 private:
  struct Release {
    void operator()(_AtspiAccessible* element) const noexcept;
  };
  using ElementPtr = std::unique_ptr<_AtspiAccessible, Release>;

  /// The window with `id` and its description; null when there is none.
  ElementPtr window(std::uint32_t id, WindowInfo* info = nullptr);
  WindowInfo describe(_AtspiAccessible* application, _AtspiAccessible* window) const;

  Options options_;
};

}  // namespace brimble::atspi
