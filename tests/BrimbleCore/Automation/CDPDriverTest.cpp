// The browser driver against a real Chromium in Brimble's embedded display.

#include "BrimbleCore/Automation/CDPDriver.h"

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <regex>
#include <thread>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "BrimbleCore/Automation/ChromeBrowserLauncher.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::errorText;

constexpr const char* kPage = R"HTML(<!doctype html>
<html><head><style>body { margin: 0; font: 16px sans-serif } div, button, a { display: block; margin: 8px }</style></head>
<body>
<div id="plain">Save changes</div>
<button id="save" onclick="document.title = 'saved'">Save changes</button>
<div id="quoted" data-name="it's">quoted</div>
<input id="name"> <a id="docs" href="#docs">Docs</a>
<button id="hidden" style="display: none">Hidden</button>
<div style="position: absolute; top: 4000px"><button>Far below</button></div>
<div id="swatch" style="position: absolute; left: 300px; top: 150px; width: 160px; height: 90px; background: rgb(0, 200, 80)"></div>
<label>Email <input></label> <input placeholder="Search"> <button id="cut"></button>
<script>
  var cut = document.getElementById('cut');  // cut after 80 code points, not inside a pair
  cut.removeAttribute('id'), cut.textContent = 'a'.repeat(79) + '\u{1F600}b';
  var log = [], field = document.getElementById('name');
  ['input', 'change'].forEach(function (type) {
    field.addEventListener(type, function () { log.push(type + ':' + field.value); });
  });
  document.body.addEventListener('input', function () { log.push('bubbled'); });
</script>
</body></html>
)HTML";

class CDPDriverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    display_ = x11::HeadlessDisplay::start();
    std::ofstream(directory_ / "page.html") << kPage;
    session_ = std::make_unique<ChromeLauncher::Session>(ChromeLauncher::launch(0, "about:blank"));
    driver_ = std::make_unique<CDPDriver>(CDPDriver::connect(*session_));
    driver_->navigate("file://" + (directory_ / "page.html").string());
  }

  // Destroyed in reverse: the driver before its browser, the browser before its display.
  std::unique_ptr<x11::HeadlessDisplay> display_;
  testing::TempDirectory directory_;
  std::unique_ptr<ChromeLauncher::Session> session_;
  std::unique_ptr<CDPDriver> driver_;
};

TEST_F(CDPDriverTest, FindsAndListsElementsByTextAndCSS) {
  const auto save = driver_->locate("css:#save");
  ASSERT_TRUE(save);
  EXPECT_EQ(driver_->locate("text:Save"), save) << "the button comes before the div";
  EXPECT_EQ(driver_->locate("text=Save"), save);
  EXPECT_TRUE(driver_->locate(R"(css:div[data-name='it\'s'])")) << "backslash and quote escaped";
  EXPECT_EQ(errorText([&] { driver_->screenRect("css:#nowhere"); }),
            "Element not found: css:#nowhere");
  EXPECT_EQ(errorText([&] { driver_->screenRect("css:#hidden"); }),
            "Element not found: css:#hidden (element not found or not visible)");
  EXPECT_EQ(errorText([&] { driver_->locate("role:AXButton/OK"); }),
            "Invalid target: role: targets are AX-only; use css: or text: in a browser session");
  EXPECT_EQ(errorText([&] { driver_->locate("text:"); }), "Invalid target: text: requires a value");
  // Half a surrogate pair comes back at once, as U+FFFD.
  EXPECT_EQ(driver_->evaluate("'a\\ud83d'"), "a\uFFFD");

  // Discovery lists visible elements by name, with selectors that find exactly them.
  std::vector<std::string> listed;
  for (const auto& element : driver_->listElements(50)) {
    listed.push_back(element.role + " " + element.selector + " " + element.text);
    // The selector finds this element: the first match of the page's own querySelector.
    EXPECT_EQ(driver_->screenRect(element.selector), element.rect) << element.selector;
  }
  EXPECT_EQ(
      listed,
      (std::vector<std::string>{
          "button css:#save Save changes", "input css:#name ", "a css:#docs Docs",
          "button css:body > div:nth-of-type(3) > button Far below",
          "input css:body > label > input Email", R"(input css:input[placeholder="Search"] Search)",
          "button css:body > button:nth-of-type(3) " + std::string(79, 'a') + "\U0001F600"}));
  EXPECT_EQ(driver_->listElements(2).size(), 2u);
}

TEST_F(CDPDriverTest, ClicksFillsWaitsAndZoomsLikeAUser) {
  driver_->click("text:Save");
  EXPECT_EQ(driver_->evaluate("document.title"), "saved");
  driver_->fill("css:#name", "Ada 'Byron'");
  EXPECT_EQ(driver_->evaluate("log"),
            (nlohmann::json{"input:Ada 'Byron'", "bubbled", "change:Ada 'Byron'"}));
  EXPECT_EQ(errorText([&] { driver_->fill("css:#missing", "x"); }),
            "Element not found: css:#missing");
  for (const char* target : {"text:Far below", "css:#hidden"}) {
    EXPECT_EQ(errorText([&] { driver_->click(target); }),
              std::string("Element not found: ") + target + " (element not found or not visible)");
  }
  EXPECT_EQ(
      errorText([&] { driver_->evaluate("notDefined()"); }).rfind("Action failed: Uncaught", 0),
      0u);

  driver_->evaluate(
      "setTimeout(function () { document.body.insertAdjacentHTML('beforeend', "
      "'<button id=\"late\">Late</button>'); }, 500)");
  EXPECT_GT(driver_->waitFor("css:#late", std::chrono::seconds(5)).w, 0);
  EXPECT_EQ(errorText([&] { driver_->waitFor("css:#never", std::chrono::milliseconds(300)); }),
            "Element not found: css:#never");

  driver_->setRealZoom(2, "text:Far below");
  EXPECT_EQ(driver_->evaluate("parseFloat(document.body.style.zoom)"), 2);
  EXPECT_GT(driver_->evaluate("window.scrollY").get<double>(), 1000)
      << "the focus was scrolled into view";
  driver_->setRealZoom(0.05);
  EXPECT_EQ(driver_->evaluate("document.body.style.zoom"), "1");
}

TEST_F(CDPDriverTest, ATargetOfSeveralElementsTakesTheFirstUsableOneAndSaysWhichOne) {
  std::ofstream(directory_ / "many.html") << R"HTML(<!doctype html>
<body style="margin: 0">
<button id="greyed" disabled onclick="document.title = 'greyed'">Send</button>
<button id="unseen" style="display: none" onclick="document.title = 'unseen'">Send</button>
<button id="send" onclick="document.title = 'sent'">Send</button>
<button class="go" disabled>Go</button> <button class="go" onclick="document.title = 'went'">Go</button>
</body>)HTML";
  driver_->navigate("file://" + (directory_ / "many.html").string());
  testing::LogCapture log;
  driver_->click("text:Send");
  EXPECT_EQ(driver_->evaluate("document.title"), "sent");
  driver_->click("css:button.go");
  EXPECT_EQ(driver_->evaluate("document.title"), "went");
  driver_->click("text:Send");
  EXPECT_THAT(log.lines(),
              ::testing::ElementsAre("Warning: 'text:Send' matches 3 elements; using the 3rd (the "
                                     "first that is visible and enabled): text:Send[3]",
                                     "Warning: 'css:button.go' matches 2 elements; using the 2nd "
                                     "(the first that is visible and enabled): css:body > "
                                     "button:nth-of-type(5)"));
  // The targets the warnings give, and "[N]", name one element each.
  EXPECT_EQ(driver_->locate("text:Send[3]"), driver_->locate("css:#send"));
  EXPECT_EQ(driver_->locate("text:Send[1]"), driver_->locate("css:#greyed"));
  EXPECT_EQ(driver_->locate("css:body > button:nth-of-type(5)"), driver_->locate("css:button.go"));
  EXPECT_FALSE(driver_->locate("text:Send[4]"));
  EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(CDPDriverTest, APageThatCannotBeLoadedIsAnErrorAndThePageIsAllTheWindowShows) {
  // An application window: no tabs, no toolbar, nothing of the browser's above the page.
  EXPECT_EQ(driver_->evaluate("window.outerHeight - window.innerHeight"), 0);

  EXPECT_EQ(errorText([&] { driver_->navigate("file:///nonexistent-brimble/page.html"); }),
            "Action failed: page not found: file:///nonexistent-brimble/page.html could not be "
            "loaded (net::ERR_FILE_NOT_FOUND)");
  // A server's answer that the page is not there, with a page of its own.
  testing::ChildProcess server({"/usr/bin/python3", "-u", "-m", "http.server", "0", "--bind",
                                "127.0.0.1", "--directory", directory_.path().string()});
  const auto serving = server.readLine(std::chrono::milliseconds(10000));
  ASSERT_TRUE(serving) << server.errorOutput();
  std::smatch port;
  ASSERT_TRUE(std::regex_search(*serving, port, std::regex("port ([0-9]+)"))) << *serving;
  const std::string site = "http://127.0.0.1:" + port[1].str();
  driver_->navigate(site + "/page.html");
  EXPECT_EQ(driver_->evaluate("window.outerHeight - window.innerHeight"), 0)
      << "a page of another site still opens without the browser's bars";
  EXPECT_EQ(errorText([&] { driver_->navigate(site + "/missing.html"); }),
            "Action failed: page not found: " + site + "/missing.html answered HTTP 404");

  // Opened on a page that is not there, the browser is no session at all; nor on a host that
  // is not there, whose error page comes only once the name has failed to resolve.
  ChromeBrowserLauncher browsers;
  EXPECT_EQ(errorText([&] { browsers.launch("file:///nonexistent-brimble/start.html"); }),
            "Action failed: page not found: file:///nonexistent-brimble/start.html could not be "
            "loaded (net::ERR_FILE_NOT_FOUND)");
  EXPECT_THAT(
      errorText([&] { browsers.launch("http://nonexistent-brimble.invalid/"); }),
      ::testing::StartsWith("Action failed: page not found: "
                            "http://nonexistent-brimble.invalid/ could not be loaded (net::"));
}

TEST_F(CDPDriverTest, CalibrationPutsAnElementWhereTheScreenShowsIt) {
  const CDPCalibration area = driver_->geometry().calibration;
  EXPECT_GT(area.w, 100);
  EXPECT_GT(area.y, area.x) << "the window manager's title bar is above the page";
  const ScreenRect swatch = driver_->screenRect("css:#swatch");
  ASSERT_EQ(std::pair(swatch.width, swatch.height), std::pair(160, 90));
  const auto isSwatch = [](const Image& image, int x, int y) {
    const testing::Pixel p = testing::pixelAt(image, x, y);
    return p.r == 0 && p.g == 200 && p.b == 80;
  };
  x11::X11ScreenSource screen(display_->displayName());
  const auto around = CaptureTarget::screenAreaOf(
      {swatch.x - 4, swatch.y - 4, swatch.width + 8, swatch.height + 8});
  std::optional<Image> grab = screen.openStream(around, false)->grab();
  // Chromium may still be painting its first frame of the page.
  for (int attempt = 0; attempt < 50 && (!grab || !isSwatch(*grab, 4, 4)); ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    grab = screen.openStream(around, false)->grab();
  }
  ASSERT_TRUE(grab);
  // Every corner of the reported rectangle is the swatch; two pixels outside it is not.
  const std::tuple<int, int, bool> points[] = {{4, 4, true},    {163, 4, true}, {4, 93, true},
                                               {163, 93, true}, {1, 40, false}, {166, 40, false},
                                               {80, 1, false},  {80, 96, false}};
  for (const auto& [x, y, inside] : points) {
    EXPECT_EQ(isSwatch(*grab, x, y), inside) << x << "," << y;
  }
}
TEST_F(CDPDriverTest, AClosingBrowserFailsTheCallInFlightAndEndingSessionsLeavesNothing) {
  const pid_t browser = session_->pid();
  const auto profile = session_->userDataDirectory();
  ASSERT_TRUE(std::filesystem::exists(profile));
  auto hanging = std::async(std::launch::async,
                            [&] { return driver_->evaluate("new Promise(function () {})"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ::kill(-browser, SIGKILL);
  EXPECT_EQ(errorText([&] { hanging.get(); }), "CDP connection closed");
  driver_.reset();
  // A session given another ends its own browser first, and so does the last one.
  *session_ = ChromeLauncher::launch(0, "about:blank");
  EXPECT_FALSE(std::filesystem::exists(profile));
  EXPECT_EQ(liveProcessesInGroup(browser), 0);
  const pid_t second = session_->pid();
  const auto secondProfile = session_->userDataDirectory();
  session_.reset();
  EXPECT_FALSE(std::filesystem::exists(secondProfile));
  EXPECT_EQ(liveProcessesInGroup(second), 0);
}

}  // namespace
}  // namespace brimble
