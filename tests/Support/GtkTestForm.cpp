#include "tests/Support/GtkTestForm.h"

#include <chrono>
#include <csignal>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Platform/ATSPI/ATSPIWindowSystem.h"

namespace brimble::testing {
namespace {

using namespace std::chrono_literals;

}  // namespace

GtkTestForm::GtkTestForm(const std::string& title, const Options& options) : options_(options) {
  std::vector<std::string> arguments = {BRIMBLE_SOURCE_DIR "/tests/Support/wayland-gtk-form.py",
                                        title};
  if (!options_.snapshot.empty()) {
    arguments.insert(arguments.end(), {"--snapshot", options_.snapshot.string()});
  }
  if (options_.undecorated) {
    arguments.push_back("--undecorated");
  }
  process_ = Subprocess::spawn(arguments, {.dieWithParent = true});
  // GTK builds its tree as it maps the window, and a maximized window is laid out twice: the
  // list's first line settles below the other elements.
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < deadline) {
    try {
      elements_ = accessibility_.driverFor(process_.pid());
      if (const auto line = elements_->find("text:line 0"); line && line->y > 100) {
        return;
      }
    } catch (const std::exception&) {
      // not on the bus yet
    }
    std::this_thread::sleep_for(100ms);
  }
  elements_.reset();
}

ScreenPoint GtkTestForm::middleOf(const std::string& target) {
  const auto rect = elements_->find(target);
  EXPECT_TRUE(rect) << target;
  return rect ? ScreenPoint{rect->x + rect->width / 2, rect->y + rect->height / 2} : ScreenPoint{};
}

std::string GtkTestForm::text(const std::string& role, const std::string& prefix) {
  for (const DiscoveredElement& element : elements_->listElements(60)) {
    if (element.role == role && element.text.starts_with(prefix)) {
      return element.text;
    }
  }
  return "<no " + role + ">";
}

std::string GtkTestForm::entryWhen(const std::string& expected) {
  return whenEqual([&] { return text("entry"); }, expected);
}

bool GtkTestForm::waitUntilActive(std::chrono::milliseconds timeout) {
  atspi::ATSPIWindowSystem windows;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    const auto active = windows.activeWindow();
    for (const WindowInfo& window : windows.windows()) {
      if (window.pid == pid() && active == window.id) {
        return true;
      }
    }
    std::this_thread::sleep_for(20ms);
  }
  return false;
}

bool GtkTestForm::snapshot() {
  std::filesystem::remove(options_.snapshot);
  process_.signal(SIGUSR1);
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(200ms);
    std::error_code ignored;
    if (std::filesystem::file_size(options_.snapshot, ignored) > 0 && !ignored) {
      return true;
    }
  }
  return false;
}

std::string GtkTestForm::whenEqual(const std::function<std::string()>& read,
                                   const std::string& expected) {
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  std::string now = read();
  while (now != expected && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(20ms);
    now = read();
  }
  return now;
}

}  // namespace brimble::testing
