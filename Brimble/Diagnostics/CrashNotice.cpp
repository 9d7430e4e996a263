#include "Brimble/Diagnostics/CrashNotice.h"

#include <chrono>
#include <system_error>
#include <utility>

#include <QCloseEvent>
#include <QDateTime>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "BrimbleCore/Support/Log.h"

namespace brimble {

std::unique_ptr<CrashNotice> CrashNotice::showIfUnseen(const CrashReports& reports,
                                                       FolderOpener openFolder) {
  const std::vector<CrashReport> unseen = reports.unseen();
  if (unseen.empty()) {
    return nullptr;
  }
  if (!openFolder) {
    openFolder = [](const std::filesystem::path& folder) {
      QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(folder.string())));
    };
  }
  auto notice = std::make_unique<CrashNotice>(reports, unseen, std::move(openFolder));
  notice->show();
  return notice;
}

CrashNotice::CrashNotice(const CrashReports& reports, const std::vector<CrashReport>& unseen,
                         FolderOpener openFolder)
    : QWidget(nullptr, Qt::Dialog), reports_(reports), openFolder_(std::move(openFolder)) {
  setWindowTitle("Brimble quit unexpectedly");
  setWindowModality(Qt::NonModal);
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(unseen.front().time.time_since_epoch());
  const QString since =
      QDateTime::fromSecsSinceEpoch(seconds.count()).toLocalTime().toString("d MMMM yyyy, hh:mm");
  const auto count = static_cast<int>(unseen.size());
  message_ = new QLabel(QString("Brimble quit unexpectedly %1 %2 since %3. A report was saved: %4.")
                            .arg(count)
                            .arg(count == 1 ? "time" : "times")
                            .arg(since)
                            .arg(QString::fromStdString(unseen.back().path.string())),
                        this);
  message_->setWordWrap(true);
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  openFolderButton_ = new QPushButton("Open Folder", this);
  dismissButton_ = new QPushButton("Dismiss", this);
  dismissButton_->setDefault(true);
  connect(openFolderButton_, &QPushButton::clicked, this,
          [this] { openFolder_(reports_.folder()); });
  connect(dismissButton_, &QPushButton::clicked, this, [this] {
    dismiss();
    close();
  });

  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(openFolderButton_);
  buttons->addWidget(dismissButton_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(message_);
  layout->addLayout(buttons);
  setMinimumWidth(460);
}

QString CrashNotice::message() const {
  return message_->text();
}

void CrashNotice::closeEvent(QCloseEvent* event) {
  // The user closing the window dismisses it; the app quitting (Qt closes every window then)
  // does not, so the notice comes back at the next start.
  if (event->spontaneous()) {
    dismiss();
  }
  QWidget::closeEvent(event);
}

void CrashNotice::dismiss() {
  if (dismissed_) {
    return;
  }
  dismissed_ = true;
  try {
    reports_.markSeen();
  } catch (const std::system_error& error) {
    // The notice comes back at the next start; nothing else is lost.
    logLine(std::string("Brimble: cannot remember the crash reports as seen: ") + error.what());
  }
}

}  // namespace brimble
