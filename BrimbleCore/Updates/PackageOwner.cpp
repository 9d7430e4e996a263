#include "BrimbleCore/Updates/PackageOwner.h"

#include <chrono>
#include <fstream>
#include <string_view>
#include <system_error>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

constexpr auto kDpkgTimeout = std::chrono::seconds(5);
constexpr std::size_t kMaxAnswer = 64 * 1024;
// A package's file list is a few thousand lines at most.
constexpr std::uintmax_t kMaxListBytes = 8 << 20;

// The names a program goes by: as given, and with its links resolved (a merged /usr makes
// /bin/x and /usr/bin/x one file, and dpkg knows only one of them).
std::vector<std::string> namesOf(const fs::path& program) {
  std::vector<std::string> names{fs::absolute(program).lexically_normal().string()};
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(program, error);
  if (!error && resolved.string() != names.front()) {
    names.push_back(resolved.string());
  }
  return names;
}

bool listNames(const fs::path& list, const std::vector<std::string>& names) {
  std::error_code error;
  if (fs::file_size(list, error) > kMaxListBytes || error) {
    return false;
  }
  std::ifstream stream(list);
  std::string line;
  while (std::getline(stream, line)) {
    for (const std::string& name : names) {
      if (line == name) {
        return true;
      }
    }
  }
  return false;
}

// What `dpkg -S` printed for the program, read until it ends or the time is up.
std::string askDpkg(const std::string& program) {
  SpawnOptions options;
  options.output = StreamConnection::pipe;
  Subprocess dpkg = Subprocess::spawn({"dpkg", "-S", program}, options);
  std::string answer;
  const auto deadline = std::chrono::steady_clock::now() + kDpkgTimeout;
  char buffer[4096];
  while (answer.size() < kMaxAnswer) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd readable{dpkg.output().get(), POLLIN, 0};
    if (left.count() <= 0 || ::poll(&readable, 1, static_cast<int>(left.count())) <= 0) {
      break;
    }
    const ssize_t got = ::read(dpkg.output().get(), buffer, sizeof buffer);
    if (got <= 0) {
      break;
    }
    answer.append(buffer, static_cast<std::size_t>(got));
  }
  const auto status = dpkg.waitFor(std::chrono::milliseconds(100));
  // One still running past the deadline is ended by the Subprocess going away.
  if (!status || status->shellStatus() != 0) {
    return {};
  }
  return answer;
}

}  // namespace

std::optional<std::string> packageOwning(const fs::path& program, const fs::path& dpkgInfo) {
  try {
    const std::vector<std::string> names = namesOf(program);
    if (listNames(dpkgInfo / "brimble.list", names)) {
      return "brimble";
    }
    if (!findProgram("dpkg")) {
      return std::nullopt;
    }
    for (const std::string& name : names) {
      // "coreutils: /bin/ls", or "libc6:amd64, libc6:i386: /usr/lib/..." for several.
      const std::string answer = askDpkg(name);
      const std::size_t end = answer.find(": ");
      if (end == std::string::npos || answer.starts_with("dpkg-query:")) {
        continue;
      }
      std::string package = answer.substr(0, std::min(end, answer.find(", ")));
      package = package.substr(0, package.find(':'));
      if (!package.empty()) {
        return package;
      }
    }
  } catch (const std::exception&) {
    // No dpkg to ask, or no answer: not installed from a package, as far as anyone can tell.
  }
  return std::nullopt;
}

}  // namespace brimble
