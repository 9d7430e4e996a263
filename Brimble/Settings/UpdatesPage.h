#pragma once

#include <string>

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include "Brimble/Settings/BackgroundUpdateCheck.h"
#include "Brimble/Settings/SettingsStore.h"

namespace brimble {

/// Settings → Updates: the opt-in "Check for updates" (stored at once) and "Check Now", which
/// reads the release feed in the background and shows what it found below. Nothing is ever
/// downloaded. Main thread only.
class UpdatesPage final : public QWidget {
  Q_OBJECT

 public:
  /// `store` must outlive the page.
  UpdatesPage(const SettingsStore& store, std::string feed, std::string currentVersion,
              QWidget* parent = nullptr);

  /// Shows what the store holds now.
  void reload();

  QCheckBox* checkForUpdates() const noexcept { return enabled_; }
  QPushButton* checkNow() const noexcept { return checkNow_; }
  QLabel* result() const noexcept { return result_; }

 private:
  const SettingsStore& store_;
  BackgroundUpdateCheck check_;
  QCheckBox* enabled_;
  QPushButton* checkNow_;
  QLabel* result_;
};

}  // namespace brimble
