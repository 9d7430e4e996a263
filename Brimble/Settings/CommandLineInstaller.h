#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brimble {

class CommandLineInstallerError : public std::runtime_error {
 public:
  enum class Code { binaryMissing, occupied, writeFailed };

  static CommandLineInstallerError binaryMissing(const std::filesystem::path& appDirectory);
  /// Something that is not our link already has the name.
  static CommandLineInstallerError occupied(const std::filesystem::path& path);
  static CommandLineInstallerError writeFailed(const std::filesystem::path& path,
                                               const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  CommandLineInstallerError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// Puts the `brimble` command on the user's PATH (a link in ~/.local/bin) and the app in the
/// desktop's menus (a .desktop entry and its icon under ~/.local/share). Nothing needs root.
/// Stateless; any thread.
class CommandLineInstaller {
 public:
  /// The `brimble` program that came with the app: beside it once installed, else the build
  /// tree's cli/brimble. Throws CommandLineInstallerError::binaryMissing.
  static std::filesystem::path findBinary(const std::filesystem::path& appDirectory);

  /// Links `binDirectory`/brimble to `binary`, replacing an older link, and returns the link.
  /// Throws CommandLineInstallerError: occupied when a file that is not a link is in the way,
  /// writeFailed.
  static std::filesystem::path install(const std::filesystem::path& binary,
                                       const std::filesystem::path& binDirectory);

  /// Whether `directory` is one of the PATH's entries.
  static bool isOnPath(const std::filesystem::path& directory, std::string_view path);

  /// The app's id: the desktop entry's name, the portals' and the session bus's name for it.
  static constexpr const char* kAppID = "org.brimble.Brimble";

  /// Writes `dataHome`/applications/org.brimble.Brimble.desktop starting `appPath`, and the icon
  /// as `dataHome`/icons/hicolor/scalable/apps/brimble.svg. `desktopEntry` is the packaged entry,
  /// whose Exec line is pointed at `appPath`. An entry an earlier version wrote as brimble.desktop
  /// is removed when it is exactly what that version wrote; any other file of that name is the
  /// user's and stays. Throws CommandLineInstallerError::writeFailed.
  static void installDesktopEntry(const std::filesystem::path& appPath,
                                  const std::filesystem::path& dataHome,
                                  std::string_view desktopEntry, std::string_view iconSVG);
};

}  // namespace brimble
