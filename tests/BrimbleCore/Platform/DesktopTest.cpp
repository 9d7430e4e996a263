#include "BrimbleCore/Platform/Desktop.h"

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/ErrorText.h"
#include "tests/Support/FakeAppLauncher.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeInputBackend.h"
#include "tests/Support/FakeScreen.h"
#include "tests/Support/FakeWindowSystem.h"

namespace brimble {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// A screen that notes when it goes; otherwise FakeScreen's one display.
class NotedScreen final : public ScreenSource {
 public:
  explicit NotedScreen(std::vector<std::string>& log) : log_(log) {}
  ~NotedScreen() override { log_.push_back("screen gone"); }
  std::vector<ScreenDisplay> displays() override { return screen_.displays(); }
  std::optional<ScreenWindow> window(std::uint32_t id) override { return screen_.window(id); }
  std::unique_ptr<ScreenStream> openStream(const CaptureTarget& target, bool cursor) override {
    return screen_.openStream(target, cursor);
  }
  std::optional<std::pair<int, int>> pointerPosition() override { return std::nullopt; }

 private:
  std::vector<std::string>& log_;
  testing::FakeScreen screen_;
};

class NotedDisplay final : public EmbeddedDisplay {
 public:
  explicit NotedDisplay(std::vector<std::string>& log) : log_(log) {}
  ~NotedDisplay() override { log_.push_back("display gone"); }
  std::string name() const override { return ":123"; }
  std::vector<std::string> environment() const override { return {"DISPLAY=:123"}; }
  std::vector<pid_t> processes() const override { return {}; }

 private:
  std::vector<std::string>& log_;
};

class NotedEvents final : public EventCapture {
 public:
  explicit NotedEvents(std::vector<std::string>& log) : log_(log) {}
  bool start() override {
    log_.push_back("listening");
    return true;
  }
  std::vector<InputEvent> stopAndCollectEvents() override {
    log_.push_back("listened");
    return {};
  }

 private:
  std::vector<std::string>& log_;
};

struct DesktopRig {
  Desktop::Backends backends() {
    Desktop::Backends made;
    made.screen = [this] {
      log.push_back("make screen");
      return std::make_unique<NotedScreen>(log);
    };
    made.input = [this] {
      log.push_back("make input");
      return std::make_unique<testing::FakeInputBackend>(clock);
    };
    made.windows = [this] {
      log.push_back("make windows");
      return std::make_unique<testing::FakeWindowSystem>(clock);
    };
    made.launcher = [this] {
      log.push_back("make launcher");
      return std::make_unique<testing::FakeAppLauncher>(std::set<std::string>{"xterm"});
    };
    made.eventCapture = [this](const Clock& given) {
      log.push_back(&given == &clock ? "make events on the desktop's clock" : "make events");
      return std::make_unique<NotedEvents>(log);
    };
    return made;
  }

  std::vector<std::string> log;
  testing::FakeClock clock;
};

TEST(Desktop, EachPartIsMadeWhenFirstUsedOnceAndGoesBeforeTheDisplayItTalksTo) {
  DesktopRig rig;
  {
    Desktop desktop({":123", true, "for the test"}, {}, {"DISPLAY=:123"}, rig.backends(),
                    std::make_unique<NotedDisplay>(rig.log), rig.clock);
    // A command that only lists windows connects to nothing else.
    EXPECT_THAT(rig.log, IsEmpty());
    desktop.windows();
    desktop.windows();
    const auto scriptWindows = desktop.makeWindowManager();
    EXPECT_THAT(rig.log, UnorderedElementsAre("make windows", "make launcher"));
    // No accessibility service or browser on this platform: asked, not made.
    EXPECT_EQ(desktop.accessibility(), nullptr);
    EXPECT_EQ(desktop.browsers(), nullptr);
    EXPECT_EQ(
        testing::errorText<GlobalHotkeyError>([&] { desktop.makeGlobalHotkey("Ctrl+Shift+G"); }),
        "This desktop takes no global shortcuts.");

    rig.log.clear();
    desktop.screen();
    desktop.input().available();
    desktop.input().available();
    // A segment records the desktop's screen, and listens to its input on its clock.
    const auto recorder = desktop.makeSegmentRecorder();
    recorder->start({CaptureTarget::screenAreaOf({0, 0, 64, 64}), 30, true, std::nullopt});
    recorder->stop();
    EXPECT_THAT(rig.log,
                ElementsAre("make screen", "make input", "make events on the desktop's clock",
                            "listening", "listened"));
    rig.log.clear();
  }
  EXPECT_THAT(rig.log, ElementsAre("screen gone", "display gone"));
}

}  // namespace
}  // namespace brimble
