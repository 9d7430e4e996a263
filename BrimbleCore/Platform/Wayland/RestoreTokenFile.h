#pragma once

#include <filesystem>
#include <string>

namespace brimble::wayland {

/// A portal's restore token kept between runs, so that the next session skips the dialog. It is one
/// line in a file only the user may read, in folders only the user may enter: whoever holds the
/// token may watch the screen or drive the desktop without asking. A token may be kept for a
/// subject (the window it shares), on a second line.
class RestoreTokenFile {
 public:
  /// `what` names the permission in the log line of a failed store ("the screen-sharing
  /// permission"). An empty `path` keeps nothing.
  RestoreTokenFile(std::filesystem::path path, std::string what);

  /// The kept token; empty when there is none, the file is damaged, or the token was kept for
  /// another `subject` (the portal would share that other window without asking). The portal's
  /// tokens are short printable ASCII (UUIDs): anything else would only make the portal fail.
  std::string read(const std::string& subject = {}) const;
  /// Keeps `token` (for `subject`) for the next session in place of the one used up: portals may
  /// replace it at every start. A failure costs only a dialog next time, so it is logged, not
  /// thrown.
  void store(const std::string& token, const std::string& subject = {}) const;

 private:
  std::filesystem::path path_;
  std::string what_;
};

}  // namespace brimble::wayland
