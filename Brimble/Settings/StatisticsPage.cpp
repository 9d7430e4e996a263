#include "Brimble/Settings/StatisticsPage.h"

#include <QMessageBox>
#include <QVBoxLayout>

namespace brimble {

namespace {

QString breakdown(const std::map<std::string, std::uint64_t>& table) {
  QStringList parts;
  for (const auto& [name, count] : table) {
    parts << QString("%1 %2").arg(QString::fromStdString(name)).arg(count);
  }
  return parts.isEmpty() ? QString() : " (" + parts.join(", ") + ")";
}

}  // namespace

StatisticsPage::StatisticsPage(UsageStatistics statistics, QWidget* parent)
    : QWidget(parent), statistics_(std::move(statistics)) {
  enabled_ = new QCheckBox("Count runs, recordings, renders and failures", this);
  auto* note = new QLabel(
      "The counts stay on this computer and are never sent anywhere. They hold no file names "
      "and nothing you typed.",
      this);
  note->setWordWrap(true);
  counts_ = new QLabel(this);
  counts_->setObjectName("brimble-usage-counts");
  counts_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  reset_ = new QPushButton("Reset", this);
  connect(enabled_, &QCheckBox::toggled, this, [this](bool on) {
    try {
      statistics_.setEnabled(on);
    } catch (const std::exception& error) {
      QMessageBox::warning(this, "Brimble", QString::fromStdString(error.what()));
    }
    refresh();
  });
  connect(reset_, &QPushButton::clicked, this, [this] {
    try {
      statistics_.reset();
    } catch (const std::exception& error) {
      QMessageBox::warning(this, "Brimble", QString::fromStdString(error.what()));
    }
    refresh();
  });
  auto* column = new QVBoxLayout(this);
  column->addWidget(enabled_);
  column->addWidget(note);
  column->addWidget(counts_);
  column->addWidget(reset_, 0, Qt::AlignLeft);
  column->addStretch();
  refresh();
}

void StatisticsPage::refresh() {
  const QSignalBlocker quiet(enabled_);
  enabled_->setChecked(statistics_.enabled());
  const UsageCounts counts = statistics_.counts();
  if (counts.since.empty()) {
    counts_->setText("Nothing counted yet.");
    return;
  }
  std::uint64_t failures = 0;
  for (const auto& [name, count] : counts.failures) {
    failures += count;
  }
  counts_->setText(QString("Since %1:\nRuns: %2\nRecordings: %3\nRenders: %4%5\nFailures: %6%7")
                       .arg(QString::fromStdString(counts.since))
                       .arg(counts.runs)
                       .arg(counts.recordings)
                       .arg(counts.renders)
                       .arg(breakdown(counts.formats))
                       .arg(failures)
                       .arg(breakdown(counts.failures)));
}

void StatisticsPage::showEvent(QShowEvent* event) {
  refresh();
  QWidget::showEvent(event);
}

}  // namespace brimble
