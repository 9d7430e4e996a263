#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "tests/Support/Images.h"

namespace brimble::testing {

/// One display of 1280x800 whose picture changes on each of its first `changingGrabs` grabs.
class FakeScreen final : public ScreenSource {
 public:
  std::vector<ScreenDisplay> displays() override {
    if (!capturable) {
      return {};
    }
    return {ScreenDisplay{1, "screen", {0, 0, 1280, 800}, 1, true}};
  }
  std::optional<ScreenWindow> window(std::uint32_t) override { return std::nullopt; }
  std::unique_ptr<ScreenStream> openStream(const CaptureTarget& target, bool) override {
    opened.push_back(target);
    struct Stream final : ScreenStream {
      explicit Stream(FakeScreen& owner) : screen(owner) {}
      std::optional<Image> grab() override {
        const int n = screen.grabs++;
        const auto shade = static_cast<std::uint8_t>(n < screen.changingGrabs ? n : 255);
        return solidImage(8, 8, {shade, shade, shade});
      }
      FakeScreen& screen;
    };
    return std::make_unique<Stream>(*this);
  }
  std::optional<std::pair<int, int>> pointerPosition() override { return std::nullopt; }
  bool userPicksWindows() const override { return picksWindows; }

  bool capturable = true;
  int changingGrabs = 0;
  /// Like a Wayland desktop: watching the screen asks the user.
  bool picksWindows = false;
  int grabs = 0;
  /// What each stream was opened on, in order.
  std::vector<CaptureTarget> opened;
};

}  // namespace brimble::testing
