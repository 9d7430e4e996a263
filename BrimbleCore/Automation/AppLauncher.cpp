#include "BrimbleCore/Automation/AppLauncher.h"

#include <algorithm>

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

bool DetachedAppLauncher::isInstalled(const std::string& program) const {
  return findProgram(program).has_value();
}

int DetachedAppLauncher::launch(const std::string& program,
                                const std::vector<std::string>& arguments,
                                const std::vector<std::string>& environment) {
  std::vector<std::string> command{program};
  if (const auto extra = arguments_.find(program); extra != arguments_.end()) {
    command.insert(command.end(), extra->second.begin(), extra->second.end());
  }
  command.insert(command.end(), arguments.begin(), arguments.end());
  // The caller's names come last and replace ours: one value a name, as the program asked.
  std::vector<std::string> combined;
  const auto nameOf = [](const std::string& entry) { return entry.substr(0, entry.find('=')); };
  for (const std::string& entry : environment_) {
    if (std::none_of(environment.begin(), environment.end(),
                     [&](const std::string& given) { return nameOf(given) == nameOf(entry); })) {
      combined.push_back(entry);
    }
  }
  combined.insert(combined.end(), environment.begin(), environment.end());
  return Subprocess::launchDetached(command, {.environment = std::move(combined)});
}

}  // namespace brimble
