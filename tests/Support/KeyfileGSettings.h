#pragma once

#include <string>

#include "tests/Support/TempDirectory.h"

namespace brimble::testing {

/// GNOME's settings in a keyfile of a folder of the test's own, as `gsettings` reads and writes
/// them (GSETTINGS_BACKEND=keyfile, XDG_CONFIG_HOME there) while this lives; the real user's
/// settings are never touched. The keybinding helpers speak of GNOME's custom keyboard
/// shortcuts and of Brimble's among them.
class KeyfileGSettings {
 public:
  /// A custom keybinding of the user's own, as GNOME's Settings names them.
  static constexpr const char* kUsersKeybinding =
      "/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/custom0/";

  /// Whether gsettings and GNOME's media-keys schema are on this machine (the test skips
  /// otherwise).
  static bool available();

  KeyfileGSettings();
  KeyfileGSettings(const KeyfileGSettings&) = delete;
  KeyfileGSettings& operator=(const KeyfileGSettings&) = delete;
  ~KeyfileGSettings();

  /// What `gsettings get` prints for `key` of `schema`, without the line feed.
  std::string get(const std::string& schema, const std::string& key) const;
  /// `gsettings set`; a failure fails the test.
  void set(const std::string& schema, const std::string& key, const std::string& value) const;

  /// A key of Brimble's keybinding, and of the user's own.
  std::string ours(const std::string& key) const;
  std::string usersOwn(const std::string& key) const;
  /// The list of custom keybindings.
  std::string list() const;
  /// Adds the user's own custom shortcut (Super+T runs a terminal) as GNOME's Settings would.
  void addUsersOwn() const;

 private:
  TempDirectory folder_;
};

}  // namespace brimble::testing
