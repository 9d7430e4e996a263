#pragma once

#include <functional>

#include <QCheckBox>
#include <QComboBox>
#include <QKeySequenceEdit>
#include <QLineEdit>
#include <QSpinBox>
#include <QTabWidget>
#include <QWidget>

#include "Brimble/Settings/DesktopShortcutPanel.h"
#include "Brimble/Settings/SettingsStore.h"
#include "Brimble/Settings/UpdatesPage.h"

namespace brimble {

/// The preferences window over the settings store: recording limits and countdown, output
/// format and quality, deliveries, and the global shortcut; and, on a tab of its own, the
/// permissions this desktop gives, the usage counts and the update check. Saving writes every key
/// and tells `onSaved`. Main thread only.
class SettingsWindow final : public QWidget {
  Q_OBJECT

 public:
  /// `store` must outlive the window.
  explicit SettingsWindow(const SettingsStore& store);

  /// Shows what the store holds now.
  void reload();
  /// Turns to the Permissions tab.
  void showPermissions();

  std::function<void(const AppSettings&)> onSaved;

 private:
  void save();

  const SettingsStore& store_;
  QSpinBox* maxDuration_;
  QSpinBox* inactivity_;
  QComboBox* countdown_;
  QComboBox* format_;
  QComboBox* frameRate_;
  QSpinBox* loopCount_;
  QCheckBox* showCursor_;
  QLineEdit* saveLocation_;
  QComboBox* preset_;
  QCheckBox* frameDiffing_;
  QCheckBox* dedup_;
  QSpinBox* maxFileSize_;
  QSpinBox* webpQuality_;
  QCheckBox* webpLossless_;
  QCheckBox* autoStart_;
  QCheckBox* preview_;
  QKeySequenceEdit* hotkey_;
  DesktopShortcutPanel* desktopShortcut_;
  QTabWidget* tabs_;
  QWidget* permissions_;
  UpdatesPage* updates_;
};

}  // namespace brimble
