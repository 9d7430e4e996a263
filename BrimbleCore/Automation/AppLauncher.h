#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace brimble {

/// Starts applications for the window manager. One thread at a time.
class AppLauncher {
 public:
  AppLauncher() = default;
  AppLauncher(const AppLauncher&) = delete;
  AppLauncher& operator=(const AppLauncher&) = delete;
  AppLauncher(AppLauncher&&) = delete;
  AppLauncher& operator=(AppLauncher&&) = delete;
  virtual ~AppLauncher() = default;

  /// Whether `program` can be found on PATH.
  virtual bool isInstalled(const std::string& program) const = 0;
  /// Starts `program` with `arguments` (after any it always gets), detached from us, with
  /// `environment` ("NAME=value") added to what it would get otherwise and taking the place of
  /// entries of the same names; returns its process id. Throws std::system_error when it cannot
  /// be started.
  virtual int launch(const std::string& program, const std::vector<std::string>& arguments,
                     const std::vector<std::string>& environment) = 0;
  int launch(const std::string& program, const std::vector<std::string>& arguments) {
    return launch(program, arguments, {});
  }
  int launch(const std::string& program) { return launch(program, {}, {}); }
};

/// Starts programs the way a desktop launcher does: in a session of their own, with standard
/// streams on /dev/null, not our children (so they outlive us and never linger as zombies), and
/// in our environment, so on our display.
class DetachedAppLauncher final : public AppLauncher {
 public:
  /// Arguments some programs always get, by program name.
  using ProgramArguments = std::map<std::string, std::vector<std::string>, std::less<>>;

  /// `environment` ("NAME=value") is added to ours for every program started: an embedded
  /// display's private folders, for example.
  explicit DetachedAppLauncher(std::vector<std::string> environment = {},
                               ProgramArguments arguments = {})
      : environment_(std::move(environment)), arguments_(std::move(arguments)) {}

  bool isInstalled(const std::string& program) const override;
  using AppLauncher::launch;
  int launch(const std::string& program, const std::vector<std::string>& arguments,
             const std::vector<std::string>& environment) override;

 private:
  const std::vector<std::string> environment_;
  const ProgramArguments arguments_;
};

}  // namespace brimble
