#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

class DesktopShortcutError : public std::runtime_error {
 public:
  enum class Code { unsupported, failed };

  /// This desktop's shortcuts cannot be changed from here; `instructions` say how by hand.
  static DesktopShortcutError unsupported(const std::string& instructions);
  /// The desktop's settings tool failed `what` ("add the shortcut"); `detail` is its word.
  static DesktopShortcutError failed(const std::string& what, const std::string& detail);

  Code code() const noexcept { return code_; }

 private:
  DesktopShortcutError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// A keyboard shortcut of the desktop itself that runs `brimble-app --toggle`, for Wayland
/// desktops whose portal gives applications no global shortcuts (GNOME before 48): the desktop
/// owns the keys and starts the command, which reaches the running app over the session bus.
/// On GNOME it is one of the user's custom keybindings, written through `gsettings` under a path
/// of its own so the user's other keybindings are never touched; elsewhere the user is told
/// exactly how to add it. Only ever changed when the user asks. Any thread, one at a time.
class DesktopShortcut {
 public:
  enum class Kind { gnome, kde, other };
  /// Where ours stands against what is wanted.
  enum class State { absent, current, outdated };

  static constexpr const char* kMediaKeysSchema = "org.gnome.settings-daemon.plugins.media-keys";
  static constexpr const char* kKeybindingSchema =
      "org.gnome.settings-daemon.plugins.media-keys.custom-keybinding";
  /// Ours, among the user's custom keybindings.
  static constexpr const char* kKeybindingPath =
      "/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/brimble/";
  static constexpr const char* kName = "Brimble";

  /// The desktop that `currentDesktop` names ($XDG_CURRENT_DESKTOP: "GNOME", "ubuntu:GNOME",
  /// "KDE", "sway").
  explicit DesktopShortcut(std::string_view currentDesktop);
  /// The desktop of this session's $XDG_CURRENT_DESKTOP.
  static DesktopShortcut ofThisSession();

  Kind kind() const noexcept { return kind_; }

  /// Whether `add` can put the shortcut in this desktop's settings itself.
  bool canAdd() const;
  /// Whether ours is there, and does what `keys` (Qt's text, "Ctrl+Shift+G") and `app` ask.
  /// Absent where it cannot be added. Throws DesktopShortcutError::failed.
  State state(const std::string& keys, const std::filesystem::path& app) const;

  /// Adds ours, or updates it in place, to run `app` --toggle on `keys`. Throws
  /// DesktopShortcutError: unsupported (with the instructions), failed; GlobalHotkeyError::
  /// invalidShortcut.
  void add(const std::string& keys, const std::filesystem::path& app) const;
  /// Removes ours; the user's own keybindings stay. Nothing to do when it is absent. Throws
  /// DesktopShortcutError::failed.
  void remove() const;

  /// Exactly how the user adds it by hand on this desktop: where in its settings, the command,
  /// the keys.
  std::string instructions(const std::string& keys, const std::filesystem::path& app) const;

  /// The command the shortcut runs: `app` (quoted where the shell would split it) and --toggle.
  static std::string toggleCommand(const std::filesystem::path& app);
  /// Qt's shortcut text as a GNOME accelerator: "Ctrl+Shift+G" is "<Control><Shift>g". Throws
  /// GlobalHotkeyError::invalidShortcut.
  static std::string gnomeAccelerator(const std::string& keys);

 private:
  std::vector<std::string> customKeybindings() const;
  std::string keybindingValue(const char* key) const;

  Kind kind_;
};

}  // namespace brimble
