#include "BrimbleCore/Scripting/ScriptLibrary.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {
namespace {

constexpr std::string_view kExtension = ".brim";

std::filesystem::path homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return home;
  }
  // Services may run without HOME; the password database still knows the folder.
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  return "/";
}

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace

ScriptLibraryError ScriptLibraryError::invalidName(const std::string& name) {
  return {Code::invalidName, "Invalid script name: " + name};
}

ScriptLibraryError ScriptLibraryError::notFound(const std::string& name,
                                                const std::vector<std::string>& available,
                                                const std::filesystem::path& directory) {
  std::string description = "Script '" + name + "' not found. ";
  if (available.empty()) {
    description += "No scripts in " + directory.string();
  } else {
    description += "Available: ";
    for (std::size_t i = 0; i < available.size(); ++i) {
      description += (i == 0 ? "" : ", ") + available[i];
    }
  }
  return {Code::notFound, description};
}

ScriptLibraryError ScriptLibraryError::readFailed(const std::string& name,
                                                  const std::string& description) {
  return {Code::readFailed, "Failed to read script '" + name + "': " + description};
}

ScriptLibrary::ScriptLibrary() : directory_(defaultDirectory()) {}

std::filesystem::path ScriptLibrary::defaultDirectory() {
  if (const char* configured = std::getenv("BRIMBLE_SCRIPT_DIR");
      configured != nullptr && *configured != '\0') {
    const std::string_view text = configured;
    // MCP host configurations pass the value without a shell to expand "~".
    if (text == "~" || text.substr(0, 2) == "~/") {
      return homeDirectory() / std::string(text.substr(std::min<std::size_t>(2, text.size())));
    }
    return std::filesystem::path(text);
  }
  return homeDirectory() / ".brimble" / "scripts";
}

std::string ScriptLibrary::read(const std::string& name) const {
  if (name.empty() || name.find('/') != std::string::npos || name.find("..") != std::string::npos) {
    throw ScriptLibraryError::invalidName(name);
  }
  const std::string fileName = endsWith(name, kExtension) ? name : name + std::string(kExtension);
  const std::filesystem::path file = directory_ / fileName;

  UniqueFd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    const int error = errno;
    if (error == ENOENT) {
      std::vector<std::string> names;
      for (const Entry& entry : list()) {
        names.push_back(entry.name);
      }
      throw ScriptLibraryError::notFound(name, names, directory_);
    }
    throw ScriptLibraryError::readFailed(name, std::generic_category().message(error));
  }
  std::string text;
  std::array<char, std::size_t{64} * 1024> buffer;
  for (;;) {
    const ssize_t got = ::read(fd.get(), buffer.data(), buffer.size());
    if (got == 0) {
      return text;
    }
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw ScriptLibraryError::readFailed(name, std::generic_category().message(errno));
    }
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
}

std::vector<ScriptLibrary::Entry> ScriptLibrary::list() const {
  std::vector<Entry> entries;
  std::error_code error;
  for (const auto& item : std::filesystem::directory_iterator(directory_, error)) {
    const std::filesystem::path& path = item.path();
    std::error_code statError;
    if (path.extension() != kExtension || !item.is_regular_file(statError)) {
      continue;
    }
    Entry entry;
    entry.name = path.stem().string();
    entry.path = path;
    entry.sizeBytes = item.file_size(statError);
    entry.modifiedAt = item.last_write_time(statError);
    entries.push_back(std::move(entry));
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

}  // namespace brimble
