#include "BrimbleCore/MCP/MCPInstaller.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <pwd.h>
#include <unistd.h>

#include "BrimbleCore/MCP/HostConfigText.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/SystemError.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {
namespace {

using Document = HostConfigText::Document;

constexpr const char* kEntryName = "brimble";

/// A host's file that must not be rewritten; the message says why.
struct ConfigProblem {
  std::string message;
};

/// The file's bytes; no value when it does not exist.
std::optional<std::string> readFileBytes(const std::filesystem::path& file) {
  const UniqueFd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    if (errno == ENOENT) {
      return std::nullopt;
    }
    throw systemError(errno, "could not read", file);
  }
  std::string text;
  std::array<std::uint8_t, 65536> chunk{};
  while (const std::size_t got = readAt(fd.get(), chunk, text.size(), file)) {
    text.append(reinterpret_cast<const char*>(chunk.data()), got);
  }
  return text;
}

ConfigProblem leftUnchanged(const std::filesystem::path& file, const HostConfigError& error) {
  return ConfigProblem{file.string() + " " + error.what() + "; left it unchanged"};
}

/// A host's file as it is, or an empty one when it does not exist yet.
HostConfigText readConfig(const std::filesystem::path& file) {
  try {
    return HostConfigText(readFileBytes(file).value_or(""));
  } catch (const HostConfigError& error) {
    throw leftUnchanged(file, error);
  }
}

void writeConfig(const std::filesystem::path& file, const HostConfigText& config) {
  // New files may later hold a host's secrets (server environments), so only the user reads them.
  writeFileAtomically(file, config.text(), 0600);
}

Document entryFor(MCPClient client, const std::string& shimPath) {
  Document entry = Document::object();
  if (client.entryNeedsType()) {
    entry["type"] = "stdio";
  }
  entry["command"] = shimPath;
  entry["args"] = Document::array();
  return entry;
}

// What a file the installer created holds once its entry is gone: the servers object, empty,
// and nothing else. The installer cannot otherwise tell its own files from the user's, so only
// such a file counts as its own; a file with anything more is the user's and is kept.
bool holdsOnlyEmptyServers(const Document& root, const std::string& serversKey) {
  return root.size() == 1 && root.contains(serversKey) && root[serversKey].is_object() &&
         root[serversKey].empty();
}

// Removes `file` and then the folders the installer would have created for it, as long as they
// are empty, so that the host is no longer detected. Stops at the home folder and at ~/.config,
// which belong to no host.
void removeCreatedFile(const std::filesystem::path& file, const std::filesystem::path& home) {
  std::error_code error;
  if (!std::filesystem::remove(file, error) && error) {
    throw systemError(error.value(), "could not delete", file);
  }
  for (std::filesystem::path folder = file.lexically_relative(home).parent_path();
       !folder.empty() && folder != ".config"; folder = folder.parent_path()) {
    // remove() deletes only an empty folder; a folder with anything in it ends the walk.
    if (!std::filesystem::remove(home / folder, error)) {
      break;
    }
  }
}

bool isExecutableFile(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

MCPInstallError MCPInstallError::shimFailed(std::string_view description) {
  return {Code::shimFailed, "Failed to install MCP shim: " + std::string(description)};
}

MCPInstaller::MCPInstaller(std::filesystem::path homeDirectory, std::string toolVersion)
    : homeDirectory_(std::move(homeDirectory)), shim_(homeDirectory_, std::move(toolVersion)) {}

std::filesystem::path MCPInstaller::userHomeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return home;
  }
  passwd entry{};
  passwd* found = nullptr;
  std::string buffer(16384, '\0');
  if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  throw std::runtime_error("cannot tell the home directory: HOME is not set");
}

std::vector<MCPClientStatus> MCPInstaller::detectClients() const {
  std::vector<MCPClientStatus> statuses;
  for (const MCPClient client : MCPClient::all()) {
    std::error_code error;
    statuses.push_back(
        {client, std::filesystem::is_directory(client.parentDirectory(homeDirectory_), error),
         isRegistered(client)});
  }
  return statuses;
}

std::vector<MCPInstallResult> MCPInstaller::install(
    const std::vector<MCPClient>& clients, const std::optional<std::filesystem::path>& binaryPath) {
  try {
    shim_.install(binaryPath);
  } catch (const std::exception& error) {
    throw MCPInstallError::shimFailed(error.what());
  }
  std::vector<MCPInstallResult> results;
  for (const MCPClient client : clients) {
    results.push_back(registerClient(client));
  }
  return results;
}

std::vector<MCPInstallResult> MCPInstaller::uninstall(const std::vector<MCPClient>& clients) {
  std::vector<MCPInstallResult> results;
  for (const MCPClient client : clients) {
    results.push_back(unregisterClient(client));
  }
  // A file that could not be edited may still run the shim: while any host's file so much as
  // names it, the shim stays.
  const std::string shimPath = shim_.path().string();
  bool shimInUse = false;
  for (const MCPClient client : MCPClient::all()) {
    try {
      const auto text = readFileBytes(client.configFile(homeDirectory_));
      shimInUse = shimInUse || (text && text->find(shimPath) != std::string::npos);
    } catch (const std::exception&) {
      shimInUse = true;
    }
  }
  if (!shimInUse) {
    try {
      shim_.uninstall();
    } catch (const std::exception&) {
      // A shim left behind is harmless; the hosts' results are what the user asked about.
    }
  }
  return results;
}

MCPInstallResult MCPInstaller::registerClient(MCPClient client) const {
  const std::filesystem::path file = client.configFile(homeDirectory_);
  const std::string prefix = std::string(client.displayName()) + ": ";
  try {
    HostConfigText config = readConfig(file);
    const std::string key(client.serversKey());
    const auto servers = config.value().find(key);
    if (servers != config.value().end() && !servers->is_object()) {
      throw ConfigProblem{"\"" + key + "\" in " + file.string() +
                          " is not an object; left the file unchanged"};
    }
    const std::string shimPath = shim_.path().string();
    const Document entry = entryFor(client, shimPath);
    bool upgraded = false;
    if (servers != config.value().end()) {
      if (const auto existing = servers->find(kEntryName); existing != servers->end()) {
        if (*existing == entry) {
          return MCPInstallResult::registered(client);
        }
        const auto command = existing->is_object() ? existing->find("command") : existing->end();
        upgraded = !(existing->is_object() && command != existing->end() && *command == shimPath);
      }
    }
    try {
      config.setMember(key, kEntryName, entry);
    } catch (const HostConfigError& error) {
      throw leftUnchanged(file, error);
    }
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    if (error) {
      throw systemError(error.value(), "could not create", file.parent_path());
    }
    writeConfig(file, config);
    return upgraded ? MCPInstallResult::upgraded(client) : MCPInstallResult::registered(client);
  } catch (const ConfigProblem& problem) {
    return MCPInstallResult::error(client, prefix + problem.message);
  } catch (const std::exception& error) {
    return MCPInstallResult::error(client, prefix + error.what());
  }
}

MCPInstallResult MCPInstaller::unregisterClient(MCPClient client) const {
  const std::filesystem::path file = client.configFile(homeDirectory_);
  try {
    HostConfigText config = readConfig(file);
    bool removed = false;
    try {
      removed = config.removeMember(client.serversKey(), kEntryName);
    } catch (const HostConfigError& error) {
      throw leftUnchanged(file, error);
    }
    if (!removed) {
      return MCPInstallResult::notRegistered(client);
    }
    std::error_code linkError;
    // The installer never makes links or comments: a linked file (a dotfiles folder) or one with
    // notes in it is the user's.
    if (holdsOnlyEmptyServers(config.value(), std::string(client.serversKey())) &&
        !config.hasComments() && !std::filesystem::is_symlink(file, linkError)) {
      removeCreatedFile(file, homeDirectory_);
    } else {
      writeConfig(file, config);
    }
    return MCPInstallResult::unregistered(client);
  } catch (const ConfigProblem& problem) {
    return MCPInstallResult::error(client,
                                   std::string(client.displayName()) + ": " + problem.message);
  } catch (const std::exception& error) {
    return MCPInstallResult::error(client, std::string(client.displayName()) + ": " + error.what());
  }
}

std::optional<std::string> MCPInstaller::registeredCommand(MCPClient client) const {
  try {
    const HostConfigText config = readConfig(client.configFile(homeDirectory_));
    const auto servers = config.value().find(std::string(client.serversKey()));
    if (servers == config.value().end() || !servers->is_object()) {
      return std::nullopt;
    }
    const auto entry = servers->find(kEntryName);
    if (entry == servers->end() || !entry->is_object()) {
      return std::nullopt;
    }
    const auto command = entry->find("command");
    if (command == entry->end() || !command->is_string()) {
      return std::nullopt;
    }
    return command->get<std::string>();
  } catch (const ConfigProblem&) {
    return std::nullopt;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

bool MCPInstaller::isRegistered(MCPClient client) const {
  try {
    const HostConfigText config = readConfig(client.configFile(homeDirectory_));
    const auto servers = config.value().find(std::string(client.serversKey()));
    return servers != config.value().end() && servers->is_object() && servers->contains(kEntryName);
  } catch (const ConfigProblem&) {
    return false;
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<std::filesystem::path> MCPInstaller::resolveBinaryPath() const {
  const char* path = std::getenv("PATH");
  return resolveBinaryPath(path != nullptr ? path : "");
}

std::optional<std::filesystem::path> MCPInstaller::resolveBinaryPath(
    std::string_view searchPath) const {
  // The shim's order: the package-manager location last, then whatever PATH finds.
  for (const std::filesystem::path& candidate :
       {std::filesystem::path("/usr/local/bin/brimble"), homeDirectory_ / ".local/bin/brimble",
        std::filesystem::path("/home/linuxbrew/.linuxbrew/bin/brimble")}) {
    if (isExecutableFile(candidate)) {
      return candidate;
    }
  }
  while (!searchPath.empty()) {
    const auto colon = searchPath.find(':');
    const std::string_view directory = searchPath.substr(0, colon);
    searchPath =
        colon == std::string_view::npos ? std::string_view() : searchPath.substr(colon + 1);
    if (!directory.empty() && isExecutableFile(std::filesystem::path(directory) / "brimble")) {
      return std::filesystem::path(directory) / "brimble";
    }
  }
  return std::nullopt;
}

}  // namespace brimble
