#include "BrimbleCore/Automation/ChromeBrowserLauncher.h"

#include "BrimbleCore/Automation/CDPDriver.h"
#include "BrimbleCore/Automation/CDPElementDriver.h"
#include "BrimbleCore/Automation/ChromeLauncher.h"

namespace brimble {
namespace {

class ChromeBrowserSession final : public BrowserSession {
 public:
  explicit ChromeBrowserSession(ChromeLauncher::Session browser)
      : browser_(std::move(browser)), driver_(CDPDriver::connect(browser_)), elements_(driver_) {}

  int pid() const override { return browser_.pid(); }
  ElementDriver& elements() override { return elements_; }
  void navigate(const std::string& url) override { driver_.navigate(url); }
  void setRealZoom(double scale, const std::optional<std::string>& focus) override {
    driver_.setRealZoom(scale, focus);
  }

 private:
  // Declared in this order so the connection closes before the browser goes.
  ChromeLauncher::Session browser_;
  CDPDriver driver_;
  CDPElementDriver elements_;
};

}  // namespace

std::unique_ptr<BrowserSession> ChromeBrowserLauncher::launch(const std::string& url) {
  // Started blank and then taken to the page: a page that cannot be loaded (no such host, a
  // refused connection) fails the navigation, whereas a browser started on it only shows its
  // error page, possibly after the first document has long said it is complete.
  auto session = std::make_unique<ChromeBrowserSession>(
      ChromeLauncher::launch(0, "about:blank", std::chrono::seconds(20), environment_));
  session->navigate(url);
  return session;
}

}  // namespace brimble
