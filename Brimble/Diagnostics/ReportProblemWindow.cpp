#include "Brimble/Diagnostics/ReportProblemWindow.h"

#include <chrono>
#include <ctime>
#include <memory>
#include <thread>

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QPointer>
#include <QUrl>
#include <QVBoxLayout>

#include "BrimbleCore/Diagnostics/Doctor.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {

namespace fs = std::filesystem;

ReportProblemWindow::ReportProblemWindow(Gather gather)
    : status_(new QLabel("Looking at this machine…")),
      files_(new QListWidget),
      contents_(new QPlainTextEdit),
      save_(new QPushButton("Save Report…")) {
  setWindowTitle(kTitle);
  auto* intro = new QLabel(
      "A problem report holds what Brimble found on this machine, its recent logs and its crash "
      "reports. Nothing else: no recordings, scripts or files of yours, and your home folder is "
      "written as ~. Read it here, then save it and attach it to a new issue.");
  intro->setWordWrap(true);
  status_->setWordWrap(true);
  status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  contents_->setReadOnly(true);
  contents_->setLineWrapMode(QPlainTextEdit::NoWrap);
  contents_->setFont(QFont("monospace"));
  files_->setMaximumWidth(220);
  save_->setEnabled(false);
  auto* tracker = new QPushButton("Open Issue Tracker");
  auto* close = new QPushButton("Close");

  auto* panes = new QHBoxLayout;
  panes->addWidget(files_);
  panes->addWidget(contents_, 1);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(tracker);
  buttons->addStretch(1);
  buttons->addWidget(close);
  buttons->addWidget(save_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(intro);
  layout->addLayout(panes, 1);
  layout->addWidget(status_);
  layout->addLayout(buttons);
  resize(760, 480);

  connect(files_, &QListWidget::currentRowChanged, this, [this](int row) {
    if (report_ && row >= 0 && row < static_cast<int>(report_->files().size())) {
      contents_->setPlainText(QString::fromStdString(report_->files()[row].contents));
    }
  });
  connect(save_, &QPushButton::clicked, this, [this] { chooseAndSave(); });
  connect(close, &QPushButton::clicked, this, &QWidget::close);
  connect(tracker, &QPushButton::clicked, this,
          [] { QDesktopServices::openUrl(QUrl(kIssueTracker)); });

  // The answer comes back through the event loop, and only to a window still open.
  std::thread([gather = std::move(gather), window = QPointer(this)] {
    auto report = std::make_shared<ProblemReport>(gather());
    QMetaObject::invokeMethod(
        qApp,
        [window, report] {
          if (window) {
            window->showReport(std::move(*report));
          }
        },
        Qt::QueuedConnection);
  }).detach();
}

ReportProblemWindow::Gather ReportProblemWindow::defaultGather() {
  return [] {
    const DoctorReport doctor = examineMachine(false);
    return ProblemReport::gather({doctor.text(), doctor.json().dump(2), userFolders::state(),
                                  userFolders::home(),
                                  QCoreApplication::applicationVersion().toStdString()});
  };
}

void ReportProblemWindow::showReport(ProblemReport report) {
  report_ = std::move(report);
  files_->clear();
  for (const ProblemReport::File& file : report_->files()) {
    files_->addItem(QString::fromStdString(file.name));
  }
  files_->setCurrentRow(0);
  status_->setText(QString("%1 files, %2 KB in all.")
                       .arg(report_->files().size())
                       .arg((report_->size() + 999) / 1000));
  save_->setEnabled(true);
  emit gathered();
}

void ReportProblemWindow::chooseAndSave() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm local{};
  ::localtime_r(&now, &local);
  char name[64];
  std::strftime(name, sizeof name, "brimble-report-%Y%m%d-%H%M%S.tar.gz", &local);
  // The report never replaces a file, so the dialog need not ask about one.
  const QString chosen = QFileDialog::getSaveFileName(
      this, "Save Report", QDir::home().filePath(name), "Archives (*.tar.gz)", nullptr,
      QFileDialog::DontConfirmOverwrite);
  if (!chosen.isEmpty()) {
    saveTo(chosen.toStdString());
  }
}

bool ReportProblemWindow::saveTo(const fs::path& output) {
  if (!report_) {
    return false;
  }
  try {
    report_->save(output);
  } catch (const ProblemReportError& error) {
    status_->setText(QString::fromStdString(error.what()));
    return false;
  }
  status_->setText(
      QString("Saved %1. Attach it, with a few words on what happened, to a new "
              "issue at %2")
          .arg(QString::fromStdString(shortenHome(output.string(), userFolders::home())),
               kIssueTracker));
  return true;
}

}  // namespace brimble
