#include "Brimble/Settings/CommandLineInstaller.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include <fmt/format.h>

#include "BrimbleCore/Support/AtomicFile.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

/// The packaged entry with its Exec line pointed at `appPath`.
std::string entryStarting(const fs::path& appPath, std::string_view desktopEntry) {
  std::ostringstream entry;
  std::istringstream lines{std::string(desktopEntry)};
  std::string line;
  while (std::getline(lines, line)) {
    // The menu must start this copy of the app, wherever it was unpacked.
    entry << (line.starts_with("Exec=") ? "Exec=\"" + appPath.string() + "\"" : line) << "\n";
  }
  return entry.str();
}

/// Whether `existing` is an entry this installer wrote from `desktopEntry` for some copy of the
/// app: the same lines, only the Exec line naming another brimble-app. Anything else (an edited
/// entry, one written by hand) belongs to the user.
bool writtenByInstaller(const std::string& existing, std::string_view desktopEntry) {
  const std::string execPrefix = "Exec=\"";
  std::istringstream lines{existing};
  std::string line;
  while (std::getline(lines, line)) {
    if (line.starts_with(execPrefix) && line.ends_with("\"")) {
      const fs::path app = line.substr(execPrefix.size(), line.size() - execPrefix.size() - 1);
      return app.filename() == "brimble-app" && app.is_absolute() &&
             existing == entryStarting(app, desktopEntry);
    }
  }
  return false;
}

}  // namespace

CommandLineInstallerError CommandLineInstallerError::binaryMissing(const fs::path& appDirectory) {
  return {Code::binaryMissing,
          fmt::format("The brimble command was not found next to the app in {}.",
                      appDirectory.string())};
}

CommandLineInstallerError CommandLineInstallerError::occupied(const fs::path& path) {
  return {Code::occupied,
          fmt::format("{} already exists and is not a link to Brimble; move it away and try "
                      "again.",
                      path.string())};
}

CommandLineInstallerError CommandLineInstallerError::writeFailed(const fs::path& path,
                                                                 const std::string& reason) {
  return {Code::writeFailed, fmt::format("Couldn't write {}: {}.", path.string(), reason)};
}

fs::path CommandLineInstaller::findBinary(const fs::path& appDirectory) {
  for (const fs::path& candidate :
       {appDirectory / "brimble", appDirectory.parent_path() / "cli" / "brimble"}) {
    std::error_code error;
    if (fs::is_regular_file(candidate, error)) {
      return fs::canonical(candidate, error);
    }
  }
  throw CommandLineInstallerError::binaryMissing(appDirectory);
}

fs::path CommandLineInstaller::install(const fs::path& binary, const fs::path& binDirectory) {
  const fs::path link = binDirectory / "brimble";
  std::error_code error;
  fs::create_directories(binDirectory, error);
  if (error) {
    throw CommandLineInstallerError::writeFailed(binDirectory, error.message());
  }
  const auto status = fs::symlink_status(link, error);
  if (fs::exists(status)) {
    if (!fs::is_symlink(status)) {
      throw CommandLineInstallerError::occupied(link);
    }
    fs::remove(link, error);
  }
  fs::create_symlink(binary, link, error);
  if (error) {
    throw CommandLineInstallerError::writeFailed(link, error.message());
  }
  return link;
}

bool CommandLineInstaller::isOnPath(const fs::path& directory, std::string_view path) {
  std::istringstream entries{std::string(path)};
  std::string entry;
  while (std::getline(entries, entry, ':')) {
    // Compared with a trailing separator on both, so "bin" and "bin/" are the same entry.
    if (!entry.empty() &&
        (fs::path(entry) / "").lexically_normal() == (directory / "").lexically_normal()) {
      return true;
    }
  }
  return false;
}

void CommandLineInstaller::installDesktopEntry(const fs::path& appPath, const fs::path& dataHome,
                                               std::string_view desktopEntry,
                                               std::string_view iconSVG) {
  const fs::path entryFile = dataHome / "applications" / (std::string(kAppID) + ".desktop");
  const fs::path iconFile = dataHome / "icons" / "hicolor" / "scalable" / "apps" / "brimble.svg";
  for (const auto& [file, contents] : {std::pair{entryFile, entryStarting(appPath, desktopEntry)},
                                       std::pair{iconFile, std::string(iconSVG)}}) {
    try {
      fs::create_directories(file.parent_path());
      writeFileAtomically(file, contents, 0644);
    } catch (const std::exception& error) {
      throw CommandLineInstallerError::writeFailed(file, error.what());
    }
  }
  // Menus list both entries while the old one is there: the app would show up twice.
  const fs::path olderEntry = dataHome / "applications" / "brimble.desktop";
  std::error_code error;
  // Ours was the packaged entry's size; a large file is someone else's and is not read whole.
  constexpr std::uintmax_t kLargestEntry = 64 * 1024;
  if (!fs::is_regular_file(fs::symlink_status(olderEntry, error)) ||
      fs::file_size(olderEntry, error) > kLargestEntry || error) {
    return;
  }
  std::ifstream file(olderEntry, std::ios::binary);
  const std::string existing{std::istreambuf_iterator<char>(file),
                             std::istreambuf_iterator<char>()};
  if (file.is_open() && writtenByInstaller(existing, desktopEntry)) {
    fs::remove(olderEntry, error);
  }
}

}  // namespace brimble
