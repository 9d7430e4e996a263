#include "Brimble/Settings/UpdatesPage.h"

#include <QMessageBox>
#include <QVBoxLayout>

namespace brimble {

UpdatesPage::UpdatesPage(const SettingsStore& store, std::string feed, std::string currentVersion,
                         QWidget* parent)
    : QWidget(parent), store_(store), check_(feed, std::move(currentVersion)) {
  enabled_ = new QCheckBox("Check for updates", this);
  auto* note = new QLabel(
      QString("At most once a day, when Brimble starts, it reads %1 and tells you of a newer "
              "release. Nothing is downloaded or installed.")
          .arg(QString::fromStdString(feed)),
      this);
  note->setWordWrap(true);
  checkNow_ = new QPushButton("Check Now", this);
  result_ = new QLabel(this);
  result_->setObjectName("brimble-update-result");
  result_->setWordWrap(true);
  result_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  connect(enabled_, &QCheckBox::toggled, this, [this](bool on) {
    AppSettings settings = store_.load();
    settings.checkForUpdates = on;
    try {
      store_.save(settings);
    } catch (const std::exception& error) {
      QMessageBox::warning(this, "Brimble", QString::fromStdString(error.what()));
    }
  });
  connect(checkNow_, &QPushButton::clicked, this, [this] {
    checkNow_->setEnabled(false);
    result_->setText("Checking…");
    check_.start([this](const BackgroundUpdateCheck::Outcome& outcome) {
      result_->setText(outcome.text());
      checkNow_->setEnabled(true);
    });
  });
  auto* column = new QVBoxLayout(this);
  column->addWidget(enabled_);
  column->addWidget(note);
  column->addWidget(checkNow_, 0, Qt::AlignLeft);
  column->addWidget(result_);
  column->addStretch();
  reload();
}

void UpdatesPage::reload() {
  const QSignalBlocker quiet(enabled_);
  enabled_->setChecked(store_.load().checkForUpdates);
}

}  // namespace brimble
