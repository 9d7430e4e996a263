#include "Brimble/Settings/UpdateNotifier.h"

#include <chrono>

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>
#include <fmt/format.h>

#include "BrimbleCore/Support/Log.h"

namespace brimble {

UpdateNotifier::UpdateNotifier(std::string feed, std::string currentVersion,
                               UpdateSchedule schedule, QObject* parent)
    : QObject(parent),
      schedule_(std::move(schedule)),
      check_(std::move(feed), std::move(currentVersion)) {}

bool UpdateNotifier::checkAtStart(bool enabled) {
  const auto now = std::chrono::system_clock::now();
  if (!enabled || !schedule_.due(now)) {
    return false;
  }
  // Remembered before the answer: a feed that never answers is asked once a day, not at every
  // start.
  schedule_.checked(now);
  return check_.start([this](const BackgroundUpdateCheck::Outcome& outcome) { tell(outcome); });
}

void UpdateNotifier::tell(const BackgroundUpdateCheck::Outcome& outcome) {
  if (!outcome.result) {
    // Nobody asked for this check just now: a line in the log, not a window.
    logLine(fmt::format("Brimble: the update check failed: {}", outcome.error));
    return;
  }
  if (outcome.result->status != UpdateStatus::updateAvailable ||
      !schedule_.firstNoticeOf(outcome.result->newest.version.text())) {
    return;
  }
  notice_ = std::make_unique<QWidget>(nullptr, Qt::Tool | Qt::WindowStaysOnTopHint);
  notice_->setObjectName("brimble-update-notice");
  notice_->setWindowTitle("Brimble update");
  notice_->setAttribute(Qt::WA_ShowWithoutActivating);
  noticeText_ = new QLabel(outcome.text(), notice_.get());
  noticeText_->setWordWrap(true);
  noticeText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  noticeText_->setMinimumWidth(360);
  noticeText_->setMaximumWidth(480);
  auto* close = new QPushButton("Close", notice_.get());
  QObject::connect(close, &QPushButton::clicked, notice_.get(), &QWidget::close);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(close);
  auto* column = new QVBoxLayout(notice_.get());
  column->addWidget(noticeText_);
  column->addLayout(buttons);
  notice_->show();
}

}  // namespace brimble
