#include "tests/Support/Files.h"

#include <fstream>
#include <iterator>
#include <sstream>

namespace brimble::testing {

std::string readFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

long entriesIn(const std::filesystem::path& directory) {
  std::error_code error;
  return std::distance(std::filesystem::directory_iterator(directory, error),
                       std::filesystem::directory_iterator());
}

void writeFile(const std::filesystem::path& file, const std::string& bytes) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << bytes;
}

}  // namespace brimble::testing
