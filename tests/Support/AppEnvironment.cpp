#include "tests/Support/AppEnvironment.h"

extern char** environ;

namespace brimble::testing {

std::vector<std::string> privateAppEnvironment(const std::filesystem::path& folder) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string line = *entry;
    if (!line.starts_with("XDG_") && !line.starts_with("BRIMBLE_HISTORY_FILE=") &&
        !line.starts_with("TMPDIR=")) {
      environment.push_back(line);
    }
  }
  std::filesystem::create_directories(folder / "config");
  std::filesystem::create_directories(folder / "tmp");
  environment.push_back("XDG_CONFIG_HOME=" + (folder / "config").string());
  environment.push_back("XDG_DATA_HOME=" + (folder / "data").string());
  environment.push_back("XDG_STATE_HOME=" + (folder / "state").string());
  environment.push_back("XDG_RUNTIME_DIR=" + folder.string());
  environment.push_back("TMPDIR=" + (folder / "tmp").string());
  environment.push_back("QT_QPA_PLATFORM=xcb");
  return environment;
}

}  // namespace brimble::testing
