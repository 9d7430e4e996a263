#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BrimbleCore/Automation/WindowManagerError.h"
#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble::testing {

/// A window system whose windows a test lists (frontmost first) and which records requests as
/// lines ("activate 2", "move-resize 2 0,0 800x600", "close 2"), carrying them out at once.
/// Windows can be scheduled to appear once the clock reaches a time.
class FakeWindowSystem final : public WindowSystem {
 public:
  explicit FakeWindowSystem(const Clock& clock) : clock_(clock) {}

  std::vector<WindowInfo> windows() override {
    if (failListing_) {
      throw WindowManagerError::windowListUnavailable("no window manager");
    }
    for (auto it = scheduled_.begin(); it != scheduled_.end();) {
      if (clock_.now() >= it->first) {
        windows_.insert(windows_.begin(), it->second);
        it = scheduled_.erase(it);
      } else {
        ++it;
      }
    }
    return windows_;
  }
  std::optional<std::uint32_t> activeWindow() override { return active_; }
  bool activate(std::uint32_t id) override {
    lines_.push_back("activate " + std::to_string(id));
    if (!exists(id)) {
      return false;
    }
    if (!refusesFocus_) {
      active_ = id;
    }
    return true;
  }
  bool moveResize(std::uint32_t id, const ScreenRect& frame) override {
    lines_.push_back("move-resize " + std::to_string(id) + " " + std::to_string(frame.x) + "," +
                     std::to_string(frame.y) + " " + std::to_string(frame.width) + "x" +
                     std::to_string(frame.height));
    for (WindowInfo& window : windows_) {
      if (window.id == id) {
        window.contentFrame = frame;
        window.frame = frame;
        return true;
      }
    }
    return false;
  }
  bool close(std::uint32_t id) override {
    lines_.push_back("close " + std::to_string(id));
    if (refusesClose_ == id) {
      throw WindowManagerError::requestRefused("close window " + std::to_string(id),
                                               "it has no close button");
    }
    return std::erase_if(windows_, [&](const WindowInfo& window) { return window.id == id; }) > 0;
  }

  std::optional<WindowSizeSteps> sizeSteps(std::uint32_t id) override {
    const auto found = sizeSteps_.find(id);
    return found != sizeSteps_.end() ? std::optional(found->second) : std::nullopt;
  }

  void add(WindowInfo window) { windows_.push_back(std::move(window)); }
  /// Window `id` asks to be sized in `steps` from now on.
  void setSizeSteps(std::uint32_t id, WindowSizeSteps steps) { sizeSteps_[id] = steps; }
  void addAt(Clock::TimePoint when, WindowInfo window) {
    scheduled_.emplace_back(when, std::move(window));
  }
  void setFailListing(bool fail) { failListing_ = fail; }
  void setRefusesFocus(bool refuses) { refusesFocus_ = refuses; }
  /// `close` of that window throws, as a platform that cannot close it does.
  void setRefusesClose(std::uint32_t id) { refusesClose_ = id; }
  const std::vector<std::string>& lines() const { return lines_; }

 private:
  bool exists(std::uint32_t id) const {
    return std::any_of(windows_.begin(), windows_.end(),
                       [&](const WindowInfo& window) { return window.id == id; });
  }

  const Clock& clock_;
  std::vector<WindowInfo> windows_;
  std::vector<std::pair<Clock::TimePoint, WindowInfo>> scheduled_;
  std::optional<std::uint32_t> active_;
  bool failListing_ = false;
  bool refusesFocus_ = false;
  std::optional<std::uint32_t> refusesClose_;
  std::vector<std::string> lines_;
  std::map<std::uint32_t, WindowSizeSteps> sizeSteps_;
};

}  // namespace brimble::testing
