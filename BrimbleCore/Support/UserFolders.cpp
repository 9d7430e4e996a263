#include "BrimbleCore/Support/UserFolders.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brimble::userFolders {

namespace fs = std::filesystem;

namespace {

// A relative value is to be ignored: the rules say so, and a folder that moved with the working
// directory would scatter what Brimble keeps.
fs::path baseFolder(const char* variable, const char* underHome) {
  if (const char* value = std::getenv(variable); value != nullptr && *value == '/') {
    return value;
  }
  return home() / underHome;
}

}  // namespace

fs::path home() {
  if (const char* value = std::getenv("HOME"); value != nullptr && *value != '\0') {
    return value;
  }
  if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr) {
    return entry->pw_dir;
  }
  return "/tmp";
}

fs::path state() {
  return baseFolder("XDG_STATE_HOME", ".local/state") / "brimble";
}

fs::path data() {
  return dataHome() / "brimble";
}

fs::path dataHome() {
  return baseFolder("XDG_DATA_HOME", ".local/share");
}

fs::path config() {
  return baseFolder("XDG_CONFIG_HOME", ".config") / "brimble";
}

void createPrivate(const fs::path& folder) {
  std::error_code ignored;
  if (folder.empty() || fs::is_directory(folder, ignored)) {
    return;
  }
  createPrivate(folder.parent_path());
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category(), "cannot create " + folder.string());
  }
}

}  // namespace brimble::userFolders
