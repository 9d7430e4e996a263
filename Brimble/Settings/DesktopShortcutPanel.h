#pragma once

#include <filesystem>

#include <QPushButton>
#include <QWidget>

#include "Brimble/Settings/SettingsStore.h"

namespace brimble {

/// The desktop's own keyboard shortcut for Brimble (see DesktopShortcut), for desktops that give
/// applications no global shortcuts: one button that adds or removes it, or, where Brimble cannot
/// add it itself, shows exactly how to by hand; its tooltip says where things stand. One row, so
/// Settings keeps its size. In Settings and in the first-run window. Main thread only.
class DesktopShortcutPanel final : public QWidget {
  Q_OBJECT

 public:
  /// `store` holds the shortcut's keys and must outlive the panel; `app` is what the shortcut
  /// starts (this program).
  DesktopShortcutPanel(const SettingsStore& store, std::filesystem::path app,
                       QWidget* parent = nullptr);

  /// Reads the desktop's settings again.
  void refresh();

 private:
  void clicked();

  const SettingsStore& store_;
  std::filesystem::path app_;
  bool canAdd_ = false;
  bool added_ = false;
  QPushButton* button_;
};

/// After the global shortcut turned out unavailable: asks the user once whether to add the
/// desktop's own shortcut ("Add" / "Not now"), or, where Brimble cannot add it, says once how
/// to by hand; that it was asked is kept in `store`. The question waits on its own: this returns
/// at once, and "Add" adds it later. Ours already there is brought up to date (the keys or the
/// app's place changed). Returns whether the desktop's shortcut stands in for the global one
/// now. Problems are told in a message box.
bool offerDesktopShortcut(const SettingsStore& store, const std::filesystem::path& app,
                          QWidget* parent);

}  // namespace brimble
