#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "BrimbleCore/Platform/EmbeddedDisplay.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble::x11 {

class HeadlessDisplayError : public std::runtime_error {
 public:
  enum class Code {
    missingProgram,
    noFreeDisplay,
    serverFailed,
    sessionBusFailed,
    windowManagerFailed
  };

  static HeadlessDisplayError missingProgram(const std::string& program,
                                             const std::string& package);
  static HeadlessDisplayError noFreeDisplay(int first, int last);
  static HeadlessDisplayError serverFailed(const std::string& reason);
  static HeadlessDisplayError sessionBusFailed(const std::string& reason);
  static HeadlessDisplayError windowManagerFailed(const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  HeadlessDisplayError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// Brimble's own X display for machines without one (servers, CI): Xvfb from :99 upward, a
/// private session bus, and openbox with our configuration (no root menu). While it lives, this
/// process's DISPLAY and DBUS_SESSION_BUS_ADDRESS point at it, so everything started from here
/// runs there. Its programs keep their XDG configuration, cache, data and runtime folders and
/// their temporary files in a private folder of the session ("brimble-display-…" in the
/// temporary directory), so nothing lands in the user's home. The destructor stops the three in
/// reverse order, deletes that folder and restores the environment. Its programs die with the
/// thread that started them even if brimble is killed. One per process; start and destroy it
/// on the main thread.
class HeadlessDisplay final : public EmbeddedDisplay {
 public:
  struct Options {
    int width = 1920;
    int height = 1080;
    int firstDisplay = 99;  // never the users' :0 to :9
    bool sessionBus = true;
    bool windowManager = true;
  };

  /// Starts the display. Throws HeadlessDisplayError.
  static std::unique_ptr<HeadlessDisplay> start(const Options& options);
  static std::unique_ptr<HeadlessDisplay> start() { return start(Options{}); }

  ~HeadlessDisplay() override;

  /// ":99", or whichever number was free.
  const std::string& displayName() const noexcept { return displayName_; }
  std::string name() const override { return displayName_; }
  /// The private session bus, empty without one.
  const std::string& busAddress() const noexcept { return busAddress_; }
  /// What programs started in this display get in their environment: DISPLAY, the session bus,
  /// XDG_CONFIG_HOME, XDG_CACHE_HOME, XDG_DATA_HOME, XDG_RUNTIME_DIR and TMPDIR in the session's
  /// private folder, a UTF-8 locale where ours is not one, and SHELL: a demo shell without the
  /// user's start-up files and history ("NAME=value" entries).
  std::vector<std::string> environment() const override;
  /// The X server, the session bus and the window manager.
  std::vector<pid_t> processes() const override {
    return {server_.pid(), bus_.pid(), windowManager_.pid()};
  }
  /// The session's private folder, deleted with it.
  const std::filesystem::path& sessionDirectory() const noexcept { return sessionDirectory_; }
  pid_t serverPid() const noexcept { return server_.pid(); }
  pid_t busPid() const noexcept { return bus_.pid(); }
  pid_t windowManagerPid() const noexcept { return windowManager_.pid(); }

 private:
  HeadlessDisplay() = default;

  void makeSessionDirectory();
  /// The XDG and TMPDIR entries of `environment`.
  std::vector<std::string> privateFolders() const;
  void startServer(const Options& options);
  /// X resources that make terminals look like a demo rather than a debugging session.
  void loadDemoResources();
  void startSessionBus();
  void startWindowManager();

  std::string displayName_;
  std::string busAddress_;
  std::optional<std::string> previousDisplay_;
  std::optional<std::string> previousBusAddress_;
  std::filesystem::path sessionDirectory_;
  Subprocess server_;
  Subprocess bus_;
  Subprocess windowManager_;
};

}  // namespace brimble::x11
