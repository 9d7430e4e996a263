#include "BrimbleCore/Platform/Wayland/RestoreTokenFile.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble::wayland {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestToken = 512;

}  // namespace

RestoreTokenFile::RestoreTokenFile(fs::path path, std::string what)
    : path_(std::move(path)), what_(std::move(what)) {}

std::string RestoreTokenFile::read(const std::string& subject) const {
  if (path_.empty()) {
    return {};
  }
  std::ifstream stream(path_);
  std::vector<std::string> lines;
  std::string line;
  while (lines.size() < 2 && std::getline(stream, line)) {
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
      line.pop_back();
    }
    if (line.size() > kLongestToken ||
        std::any_of(line.begin(), line.end(), [](char c) { return c <= ' ' || c > '~'; })) {
      return {};
    }
    lines.push_back(line);
  }
  if (lines.empty() || (!subject.empty() && (lines.size() < 2 || lines[1] != subject))) {
    return {};
  }
  return lines.front();
}

void RestoreTokenFile::store(const std::string& token, const std::string& subject) const {
  if (path_.empty() || token.empty()) {
    return;
  }
  try {
    userFolders::createPrivate(path_.parent_path());
    writeFileAtomically(path_, token + "\n" + (subject.empty() ? "" : subject + "\n"), 0600);
  } catch (const std::exception& error) {
    logLine("BrimbleCore: could not keep " + what_ + " for next time (" + error.what() + ")");
  }
}

}  // namespace brimble::wayland
