#pragma once

#include <cerrno>
#include <functional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "BrimbleCore/Automation/AppLauncher.h"

namespace brimble::testing {

/// A launcher that knows which programs are "installed" and records each launch as
/// "launch <program> <arguments...>" and the environment it was given, calling `onLaunch`
/// (which may schedule the new window).
class FakeAppLauncher final : public AppLauncher {
 public:
  explicit FakeAppLauncher(std::set<std::string> installed) : installed_(std::move(installed)) {}

  bool isInstalled(const std::string& program) const override {
    return installed_.count(program) > 0;
  }
  using AppLauncher::launch;
  int launch(const std::string& program, const std::vector<std::string>& arguments,
             const std::vector<std::string>& environment) override {
    std::string line = "launch " + program;
    for (const std::string& argument : arguments) {
      line += " " + argument;
    }
    launches_.push_back(line);
    environments_.push_back(environment);
    if (failLaunch_) {
      throw std::system_error(ENOEXEC, std::generic_category(), "start " + program);
    }
    if (onLaunch) {
      onLaunch();
    }
    return 4242;
  }

  void setFailLaunch(bool fail) { failLaunch_ = fail; }
  const std::vector<std::string>& launches() const { return launches_; }
  /// The environment each launch was given, in the order of `launches`.
  const std::vector<std::vector<std::string>>& environments() const { return environments_; }

  std::function<void()> onLaunch;

 private:
  std::set<std::string> installed_;
  bool failLaunch_ = false;
  std::vector<std::string> launches_;
  std::vector<std::vector<std::string>> environments_;
};

}  // namespace brimble::testing
