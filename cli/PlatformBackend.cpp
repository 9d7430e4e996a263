#include "cli/PlatformBackend.h"

#include <cstdlib>

#include <unistd.h>

#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11EventCapture.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"

namespace brimble::cli {
namespace {

class X11EmbeddedDisplay final : public EmbeddedDisplay {
 public:
  X11EmbeddedDisplay() : display_(x11::HeadlessDisplay::start()) {}

  std::string name() const override { return display_->displayName(); }
  std::vector<std::string> environment() const override { return display_->environment(); }
  std::vector<pid_t> processes() const override {
    return {display_->serverPid(), display_->busPid(), display_->windowManagerPid()};
  }

 private:
  std::unique_ptr<x11::HeadlessDisplay> display_;
};

}  // namespace

namespace platform {

std::optional<std::string> userDisplay() {
  const char* display = std::getenv("DISPLAY");
  if (display == nullptr || *display == '\0') {
    return std::nullopt;
  }
  return display;
}

const PlatformTexts& texts() {
  static const PlatformTexts x11{
      .screenRecordingRequired =
          "Screen Recording permission required. No X11 display could be captured: run inside an "
          "X11 session or with --headless.",
      .toolScreenRecordingRequired =
          "Screen Recording permission is required. No X11 display could be captured: run inside "
          "an X11 session or start the server with --headless.",
      .screenRecordingNotGranted =
          "Not granted — required for recording. No X11 display could be "
          "captured (run in an X11 session or with --headless).",
      .screenProblem =
          "no X11 display could be captured (run in an X11 session or start the "
          "server with --headless)",
      .toolInputUnavailable =
          "Synthetic input is not available on this display (the XTest extension is missing).",
  };
  return x11;
}

std::unique_ptr<EmbeddedDisplay> startEmbeddedDisplay() {
  return std::make_unique<X11EmbeddedDisplay>();
}

std::unique_ptr<ScreenSource> screenSource(const std::string& display) {
  return std::make_unique<x11::X11ScreenSource>(display);
}

std::unique_ptr<InputBackend> inputBackend(const std::string& display) {
  return std::make_unique<x11::X11InputBackend>(display);
}

std::unique_ptr<WindowSystem> windowSystem(const std::string& display) {
  return std::make_unique<x11::X11WindowSystem>(display);
}

std::unique_ptr<EventCapture> eventCapture(const std::string& display, const Clock& clock) {
  return std::make_unique<x11::X11EventCapture>(display, clock);
}

std::unique_ptr<AccessibilityBackend> accessibility(const std::string& display) {
  return std::make_unique<atspi::ATSPIAccessibility>([display] {
    try {
      return x11::X11InputBackend(display).available();
    } catch (const std::exception&) {
      return false;
    }
  });
}

std::vector<std::string> accessibilityEnvironment() {
  // GTK shows its tree by default; Qt only when asked.
  return {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1", "ACCESSIBILITY_ENABLED=1"};
}

DetachedAppLauncher::ProgramArguments accessibilityArguments() {
  // Chromium shows neither its window's nor its pages' elements until told to, and as root it
  // starts only without its sandbox (and then, with --test-type, without a warning bar).
  std::vector<std::string> chromium{"--force-renderer-accessibility"};
  if (::geteuid() == 0) {
    chromium.insert(chromium.end(), {"--no-sandbox", "--test-type"});
  }
  DetachedAppLauncher::ProgramArguments arguments;
  for (const char* program :
       {"chromium", "chromium-browser", "google-chrome", "google-chrome-stable"}) {
    arguments.emplace(program, chromium);
  }
  return arguments;
}

}  // namespace platform
}  // namespace brimble::cli
