#include "BrimbleCore/Automation/AppLauncher.h"

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

bool DetachedAppLauncher::isInstalled(const std::string& program) const {
  return findProgram(program).has_value();
}

int DetachedAppLauncher::launch(const std::string& program) {
  return Subprocess::launchDetached({program}, {.environment = environment_});
}

}  // namespace brimble
