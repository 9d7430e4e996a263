#include "BrimbleCore/Support/SystemError.h"

#include <string>

namespace brimble {

std::system_error systemError(int errorNumber, std::string_view action,
                              const std::filesystem::path& path) {
  std::string what(action);
  if (!path.empty()) {
    what += ' ';
    what += path.string();
  }
  return std::system_error(errorNumber, std::generic_category(), what);
}

}  // namespace brimble
