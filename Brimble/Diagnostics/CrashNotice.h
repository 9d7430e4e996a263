#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include <QWidget>

#include "BrimbleCore/Diagnostics/CrashReports.h"

class QLabel;
class QPushButton;

namespace brimble {

/// A small window, not modal, that tells the user at the app's start that Brimble quit
/// unexpectedly since they last looked, and where the report is. Dismissing it (or closing it)
/// marks the reports seen, so it is not shown for them again; the app quitting does not. Main
/// thread only.
class CrashNotice : public QWidget {
  Q_OBJECT

 public:
  /// Opens a folder in the desktop's file manager.
  using FolderOpener = std::function<void(const std::filesystem::path& folder)>;

  /// Shows a notice for `reports`' unseen reports and returns it; none when every report has
  /// been seen. `openFolder` defaults to the desktop's file manager.
  static std::unique_ptr<CrashNotice> showIfUnseen(const CrashReports& reports,
                                                   FolderOpener openFolder = {});

  CrashNotice(const CrashReports& reports, const std::vector<CrashReport>& unseen,
              FolderOpener openFolder);

  QString message() const;
  QPushButton* openFolderButton() const { return openFolderButton_; }
  QPushButton* dismissButton() const { return dismissButton_; }

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void dismiss();

  CrashReports reports_;
  FolderOpener openFolder_;
  QLabel* message_ = nullptr;
  QPushButton* openFolderButton_ = nullptr;
  QPushButton* dismissButton_ = nullptr;
  bool dismissed_ = false;
};

}  // namespace brimble
