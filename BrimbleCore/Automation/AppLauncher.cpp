#include "BrimbleCore/Automation/AppLauncher.h"

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

bool DetachedAppLauncher::isInstalled(const std::string& program) const {
  return findProgram(program).has_value();
}

int DetachedAppLauncher::launch(const std::string& program,
                                const std::vector<std::string>& arguments) {
  std::vector<std::string> command{program};
  if (const auto extra = arguments_.find(program); extra != arguments_.end()) {
    command.insert(command.end(), extra->second.begin(), extra->second.end());
  }
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Subprocess::launchDetached(command, {.environment = environment_});
}

}  // namespace brimble
