#pragma once

#include <filesystem>

#include "Brimble/Settings/AppSettings.h"

namespace brimble {

/// The application's preferences in a QSettings file, $XDG_CONFIG_HOME/brimble/brimble.conf
/// (default ~/.config/brimble/brimble.conf), under their camel-case keys. A value that is
/// missing, unreadable or out of range reads as its default, so a hand-edited file never stops
/// the app. Main thread only.
class SettingsStore {
 public:
  /// The store at its usual place.
  SettingsStore();
  explicit SettingsStore(std::filesystem::path file) : file_(std::move(file)) {}

  static std::filesystem::path defaultPath();

  AppSettings load() const;
  /// Writes every key; throws std::runtime_error when the file cannot be written.
  void save(const AppSettings& settings) const;

  const std::filesystem::path& file() const noexcept { return file_; }

 private:
  std::filesystem::path file_;
};

}  // namespace brimble
