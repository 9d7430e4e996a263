// Every brimble these tests start counts its usage, and some remember other things, in the
// user's state folder. The tests' runs are not the user's: unless the environment already names
// a state folder, the test program and everything it starts get a temporary one of their own.

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

class PrivateStateFolder {
 public:
  PrivateStateFolder() {
    const char* given = std::getenv("XDG_STATE_HOME");
    if (given != nullptr && *given != '\0') {
      return;
    }
    std::string pattern = (std::filesystem::temp_directory_path() / "brimble-test-state-XXXXXX");
    if (::mkdtemp(pattern.data()) == nullptr) {
      return;
    }
    folder_ = pattern;
    ::setenv("XDG_STATE_HOME", pattern.c_str(), 1);
  }
  PrivateStateFolder(const PrivateStateFolder&) = delete;
  PrivateStateFolder& operator=(const PrivateStateFolder&) = delete;
  ~PrivateStateFolder() {
    if (!folder_.empty()) {
      std::error_code ignored;
      std::filesystem::remove_all(folder_, ignored);
    }
  }

 private:
  std::filesystem::path folder_;
};

const PrivateStateFolder privateStateFolder;

}  // namespace
