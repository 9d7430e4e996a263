// Targets driven through whole scripts (browser pages, element clicks and fills) are checked in
// ScriptEngineTest.cpp.

#include "BrimbleCore/Scripting/ScriptTargets.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/FakeAppLauncher.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeInputBackend.h"
#include "tests/Support/FakeProcessRunner.h"
#include "tests/Support/FakeScreen.h"
#include "tests/Support/FakeWindowSystem.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// An application's elements: each driver made for a process knows one element, named after it.
class FakeAccessibility final : public AccessibilityBackend {
 public:
  bool available(std::string&) override { return true; }
  std::string requirement() const override { return "the fake bus"; }
  std::unique_ptr<ElementDriver> driverFor(int pid) override {
    struct Driver final : ElementDriver {
      explicit Driver(int owner) : pid(owner) {}
      std::optional<ScreenRect> find(const std::string& target) override {
        return target == "text:" + std::to_string(pid) ? std::optional(ScreenRect{pid, 0, 10, 10})
                                                       : std::nullopt;
      }
      void press(const std::string&) override {}
      void setValue(const std::string&, const std::string&) override {}
      void focus(const std::string&) override {}
      std::vector<DiscoveredElement> listElements(int) override { return {}; }
      int pid;
    };
    driversMade.push_back(pid);
    return std::make_unique<Driver>(pid);
  }
  DialogOutcome clickButtonInDialog(int, const std::string&) override {
    return DialogOutcome::noDialog;
  }
  DialogOutcome dismissDialog(int) override { return DialogOutcome::noDialog; }

  std::vector<int> driversMade;
};

/// ScriptTargets over a fake desktop with two windows: a mail reader (7) and an editor (9).
struct Desk {
  explicit Desk(AccessibilityBackend* accessibility = nullptr)
      : windows(system, launcher, clock, accessibility) {
    system.add({7, "Inbox - Mail", "thunderbird", 70, {0, 0, 820, 640}, {0, 40, 800, 600}});
    system.add({9, "notes.txt", "gedit", 90, {0, 0, 520, 440}, {0, 30, 500, 400}});
    options.print = [this](std::string_view line) { printed.emplace_back(line); };
  }

  // The lines of `source`, each through `targets`' own handler.
  void run(const std::string& source) {
    for (const LocatedInstruction& located : ScriptParser::parse(source)) {
      const ScriptInstruction& instruction = located.instruction;
      if (const auto* capture = std::get_if<CaptureWindowInstruction>(&instruction)) {
        targets.captureWindow(*capture, located.line);
      } else if (const auto* target = std::get_if<TargetInstruction>(&instruction)) {
        targets.target(*target, located.line);
      } else if (const auto* focus = std::get_if<FocusInstruction>(&instruction)) {
        targets.focus(*focus, located.line);
      } else if (const auto* browser = std::get_if<BrowserInstruction>(&instruction)) {
        targets.browser(*browser, located.line);
      } else {
        FAIL() << "not a targeting line: " << located.source;
      }
    }
  }

  testing::FakeClock clock;
  testing::FakeWindowSystem system{clock};
  testing::FakeAppLauncher launcher{{"gedit"}};
  WindowManager windows;
  testing::FakeScreen screen;
  testing::FakeInputBackend backend{clock};
  InputSimulator input{backend, clock};
  testing::FakeProcessRunner processes;
  const PlatformTexts texts{};
  ScriptServices services{screen, input, windows, processes, clock, texts, nullptr, nullptr};
  ScriptOptions options;
  ScriptContext context;
  ScriptClock scriptClock{clock, {}};
  ScriptTargets targets{services, options, context, scriptClock};
  std::vector<std::string> printed;
};

TEST(ScriptTargets, WindowsAreFoundByApplicationIdOrTitleAndBecomeTheTarget) {
  Desk desk;
  // An application whose window is still opening is waited for.
  desk.system.addAt(desk.clock.now() + 1500ms,
                    {11, "Untitled", "mousepad", 110, {0, 0, 300, 200}, {0, 20, 300, 180}});
  const auto start = desk.clock.now();
  desk.run("capture-window app \"mousepad\" as $pad\n");
  EXPECT_GE(desk.clock.now() - start, 1500ms);
  EXPECT_EQ(desk.context.resolveWindowID("pad", 1), 11u);
  EXPECT_EQ(desk.targets.capturedWindow()->appName, "mousepad");
  EXPECT_EQ(desk.targets.targetWindow()->id, 11u);

  // By id the window's own application names it; by title a part of it will do, in any case.
  desk.run("capture-window id 0x7\ntarget window \"NOTES\" as $n\n");
  EXPECT_THAT(desk.printed, ElementsAre("     captured mousepad window 0xb (300x180)",
                                        "     captured thunderbird window 0x7 (800x600)",
                                        "     targeting gedit window 0x9"));
  EXPECT_EQ(desk.targets.capturedWindow()->pid, 90);
  EXPECT_EQ(desk.context.resolveWindowID("n", 1), 9u);
  EXPECT_EQ(desk.targets.windowLabel(9), "gedit");
  EXPECT_EQ(desk.targets.windowLabel(11), "window 0xb");

  // `focus` targets the application's window but leaves the captured one.
  desk.run("focus \"thunderbird\"\n");
  EXPECT_EQ(desk.targets.targetWindow()->id, 7u);
  EXPECT_EQ(desk.targets.capturedWindow()->id, 9u);
  EXPECT_EQ(desk.targets.windowLabel(7), "thunderbird");

  const struct {
    std::string line;
    std::string error;
  } failures[] = {
      {"capture-window id 0x63", "Window not found: id 0x63"},
      {"capture-window id -5",
       "Line 1: Invalid value '-5' for 'capture-window id'\n  expected a window id such as "
       "0x1a00007 or 27262983"},
      {"target app \"Calculator\"", "Window not found: app 'Calculator'"},
      {"target window \"Drafts\"", "Window not found: title matching 'Drafts'"},
      {"browser chrome \"https://example.com\"",
       "Line 1: Google Chrome or Chromium is not installed"},
  };
  for (const auto& [line, error] : failures) {
    EXPECT_EQ(testing::errorText<ScriptError>([&] { desk.run(line); }), error) << line;
  }
  // A window that never opens is given up on after ten seconds.
  const auto waited = desk.clock.now();
  EXPECT_EQ(testing::errorText<ScriptError>([&] { desk.run("capture-window app \"xclock\""); }),
            "Window not found: app 'xclock'");
  EXPECT_GE(desk.clock.now() - waited, 10s);
  EXPECT_EQ(desk.targets.capturedWindow()->id, 9u);
}

TEST(ScriptTargets, ElementsAreLookedUpInTheCapturedApplicationElseTheTarget) {
  FakeAccessibility accessibility;
  Desk desk(&accessibility);
  EXPECT_THAT(
      testing::errorText<ScriptError>([&] { desk.targets.elementRect("text:Save", 4); }),
      ::testing::HasSubstr("Line 4: element targets need a page (browser chrome \"url\") or an "
                           "application"));

  desk.run("focus \"gedit\"\n");
  EXPECT_EQ(desk.targets.elementRect("text:90", 1).x, 90);
  desk.run("capture-window id 7\nfocus \"gedit\"\n");
  EXPECT_EQ(desk.targets.elementRect("text:70", 1).x, 70);
  EXPECT_EQ(desk.targets.elementRect("text:70", 1).x, 70);
  EXPECT_EQ(testing::errorText<DemoDriverError>([&] { desk.targets.elementRect("text:90", 1); }),
            "Element not found: text:90");
  // One driver per application, made again only when the application changes.
  EXPECT_THAT(accessibility.driversMade, ElementsAre(90, 70));

  Desk without;
  without.run("capture-window id 9\n");
  EXPECT_EQ(testing::errorText<DemoDriverError>([&] { without.targets.elementDriver(2); }),
            "Permission denied: element targets in gedit go through the accessibility service "
            "(AT-SPI), which is not available");
}

TEST(ScriptTargets, PagesAreAddressesOrFilesFromHereOrBesideTheScript) {
  Desk desk;
  testing::TempDirectory directory;
  std::ofstream(directory / "form.html") << "<form></form>";
  desk.options.scriptDirectory = directory.path();
  const std::string form =
      "file://" + std::filesystem::absolute(directory / "form.html").lexically_normal().string();
  EXPECT_EQ(desk.targets.pageAddress("form.html", 1), form);
  EXPECT_EQ(desk.targets.pageAddress((directory / "form.html").string(), 1), form);
  for (const std::string address :
       {"https://example.com/form.html", "about:blank", "data:text/html,<p>hi</p>"}) {
    EXPECT_EQ(desk.targets.pageAddress(address, 1), address);
  }
  // "~/" is the home folder.
  const std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
  ::setenv("HOME", directory.path().c_str(), 1);
  EXPECT_EQ(desk.targets.pageAddress("~/form.html", 1), form);
  ::setenv("HOME", home.c_str(), 1);
  // A web address without its scheme is completed as a browser's address bar would.
  EXPECT_EQ(desk.targets.pageAddress("example.com/form.html", 1), "http://example.com/form.html");
  EXPECT_EQ(desk.targets.pageAddress("localhost:8000", 1), "http://localhost:8000");
  // A page file that is not there is no page: the browser would show its error page.
  for (const std::string missing : {"nowhere.html", "pages/nowhere.htm", "./nowhere"}) {
    EXPECT_EQ(testing::errorText<ScriptError>([&] { desk.targets.pageAddress(missing, 7); }),
              "Line 7: page not found: no file '" + missing + "' in the working directory (" +
                  std::filesystem::current_path().string() + ") or beside the script (" +
                  directory.path().string() + ")");
  }
  // Without a browser session there is no page to zoom, and nothing to zoom back.
  EXPECT_EQ(testing::errorText<ScriptError>([&] { desk.targets.zoomPage(2, "#logo", 0.5, 3); }),
            "Line 3: page zoom requires a Chrome (browser) session");
  EXPECT_FALSE(desk.targets.resetPageZoom(0.5));
  EXPECT_FALSE(desk.targets.drivesPage());
}

}  // namespace
}  // namespace brimble
