#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <sys/types.h>

#include "BrimbleCore/Automation/ElementDriver.h"
#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble::testing {

/// The GTK window of tests/Support/wayland-gtk-form.py in the session this process runs in,
/// maximized (at the top-left corner of a Wayland session, where its elements' places in the
/// window are their places on screen), and its elements on the accessibility bus. Ends with the
/// test. One thread.
class GtkTestForm {
 public:
  struct Options {
    /// Where SIGUSR1 has the window draw itself (`snapshot`); empty: nowhere.
    std::filesystem::path snapshot{};
    /// Without a title bar, and so without a close button.
    bool undecorated = false;
  };

  /// Starts the window and waits up to 20 seconds for it on the bus; `shown` says whether it
  /// came.
  explicit GtkTestForm(const std::string& title) : GtkTestForm(title, Options{}) {}
  GtkTestForm(const std::string& title, const Options& options);

  bool shown() const { return elements_ != nullptr; }
  ElementDriver& elements() { return *elements_; }
  Subprocess& process() { return process_; }
  pid_t pid() const { return process_.pid(); }

  /// The middle of the element `target` names (as the element drivers name them); (0,0), and
  /// a test failure, when there is none.
  ScreenPoint middleOf(const std::string& target);
  /// What the first listed element of `role` whose text starts with `prefix` says.
  std::string text(const std::string& role, const std::string& prefix = {});
  /// What the entry holds once it is `expected`, or after 5 seconds what it holds then.
  std::string entryWhen(const std::string& expected);
  /// Whether the window became the active one (mutter gives the keyboard to a window a little
  /// after the click that asked for it) within `timeout`.
  bool waitUntilActive(std::chrono::milliseconds timeout = std::chrono::seconds(5));
  /// Has the window draw itself into the snapshot file; false when no file came.
  bool snapshot();

  /// `read()` once it equals `expected`, or after 5 seconds whatever it is then: input arrives
  /// through the compositor a little after it was sent.
  static std::string whenEqual(const std::function<std::string()>& read,
                               const std::string& expected);

 private:
  Options options_;
  Subprocess process_;
  atspi::ATSPIAccessibility accessibility_;
  std::unique_ptr<ElementDriver> elements_;
};

}  // namespace brimble::testing
