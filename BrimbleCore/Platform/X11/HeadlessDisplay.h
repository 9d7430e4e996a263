#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "BrimbleCore/Support/DaemonProcess.h"

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
/// runs there; the destructor stops the three in reverse order and restores the environment.
/// Its programs die with the thread that started them even if brimble is killed. One per
/// process; start and destroy it on the main thread.
class HeadlessDisplay {
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

  HeadlessDisplay(const HeadlessDisplay&) = delete;
  HeadlessDisplay& operator=(const HeadlessDisplay&) = delete;
  ~HeadlessDisplay();

  /// ":99", or whichever number was free.
  const std::string& displayName() const noexcept { return displayName_; }
  /// The private session bus, empty without one.
  const std::string& busAddress() const noexcept { return busAddress_; }
  pid_t serverPid() const noexcept { return server_.pid(); }
  pid_t busPid() const noexcept { return bus_.pid(); }
  pid_t windowManagerPid() const noexcept { return windowManager_.pid(); }

 private:
  HeadlessDisplay() = default;

  void startServer(const Options& options);
  void startSessionBus();
  void startWindowManager();

  std::string displayName_;
  std::string busAddress_;
  std::optional<std::string> previousDisplay_;
  std::optional<std::string> previousBusAddress_;
  std::filesystem::path configDirectory_;
  DaemonProcess server_;
  DaemonProcess bus_;
  DaemonProcess windowManager_;
};

}  // namespace brimble::x11
