#include "tests/Support/TempDirectory.h"

#include <string>
#include <system_error>

#include <stdlib.h>

namespace brimble::testing {

TempDirectory::TempDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "brimble-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp");
  }
  path_ = pattern;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace brimble::testing
