#include "Brimble/Onboarding/CapabilityChecklist.h"

#include <QScrollArea>
#include <QVBoxLayout>

#include "BrimbleCore/Platform/CapabilityProbe.h"

namespace brimble {

namespace {

/// The mark of a row: a tick, a cross for what recording needs, a warning sign for what only
/// some jobs need, a dash for what this desktop does not ask for. Text and colour both say it,
/// so neither colour vision nor the theme decides whether it reads.
struct Mark {
  const char* symbol;
  const char* colour;
  const char* spoken;
};

Mark markOf(const CapabilityCheck& check) {
  switch (check.status) {
    case CapabilityStatus::ok:
      return {"\u2714", "#188038", "ok"};
    case CapabilityStatus::notNeeded:
      return {"\u2013", "#5f6368", "not needed"};
    case CapabilityStatus::missing:
      break;
  }
  return check.requiredForMainJobs ? Mark{"\u2716", "#c5221f", "missing"}
                                   : Mark{"!", "#b06000", "missing, optional"};
}

QLabel* wrappedLabel(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setWordWrap(true);
  label->setTextFormat(Qt::PlainText);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
  return label;
}

}  // namespace

CapabilityChecklist::Probe CapabilityChecklist::desktopProbe() {
  return [] { return platform::checkCapabilities(); };
}

CapabilityChecklist::CapabilityChecklist(Probe probe, QWidget* parent)
    : QWidget(parent), probe_(std::move(probe)) {
  setObjectName("brimble-checklist");
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  summary_ = wrappedLabel({}, this);
  summary_->setObjectName("checklist-summary");
  column->addWidget(summary_);
  column->addSpacing(4);
  rows_ = new QGridLayout;
  rows_->setHorizontalSpacing(10);
  rows_->setVerticalSpacing(8);
  rows_->setColumnStretch(1, 1);
  column->addLayout(rows_);
  column->addStretch(1);
}

CapabilityChecklist::~CapabilityChecklist() {
  if (worker_.joinable()) {
    worker_.join();
  }
}

void CapabilityChecklist::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  // Looked at when first seen, not when made: a settings window opened for another tab wakes
  // no portal or accessibility bus.
  if (!looked_) {
    looked_ = true;
    refresh();
  }
}

void CapabilityChecklist::refresh() {
  if (checking_) {
    return;
  }
  if (worker_.joinable()) {
    worker_.join();  // finished: it answered before `checking_` was cleared
  }
  checking_ = true;
  summary_->setText("Checking what this desktop allows…");
  worker_ = std::thread([this] {
    std::vector<CapabilityCheck> found = probe_();
    // Posted to this widget: dropped with it should it go first (the destructor waits for us).
    QMetaObject::invokeMethod(
        this, [this, found = std::move(found)]() mutable { showChecks(std::move(found)); },
        Qt::QueuedConnection);
  });
}

void CapabilityChecklist::clearRows() {
  while (QLayoutItem* item = rows_->takeAt(0)) {
    delete item->widget();
    delete item;
  }
}

void CapabilityChecklist::showChecks(std::vector<CapabilityCheck> checks) {
  checks_ = std::move(checks);
  checking_ = false;
  clearRows();
  int row = 0;
  for (const CapabilityCheck& check : checks_) {
    const Mark mark = markOf(check);
    auto* symbol = new QLabel(QString::fromUtf8(mark.symbol), this);
    symbol->setObjectName(QString::fromStdString("mark-" + check.id));
    symbol->setAccessibleName(QString::fromStdString(check.title) + ": " + mark.spoken);
    symbol->setStyleSheet(QString("color: %1; font-weight: bold;").arg(mark.colour));
    QFont larger = symbol->font();
    larger.setPointSizeF(larger.pointSizeF() * 1.2);
    symbol->setFont(larger);
    // One width for every mark, so the titles line up whatever the glyph.
    symbol->setFixedWidth(symbol->fontMetrics().height() + 4);
    symbol->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    rows_->addWidget(symbol, row, 0, Qt::AlignTop);

    auto* text = new QWidget(this);
    text->setObjectName(QString::fromStdString("check-" + check.id));
    auto* lines = new QVBoxLayout(text);
    lines->setContentsMargins(0, 0, 0, 0);
    lines->setSpacing(2);
    auto* title = wrappedLabel(QString::fromStdString(check.title), text);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    lines->addWidget(title);
    lines->addWidget(wrappedLabel(QString::fromStdString(check.detail), text));
    if (check.status == CapabilityStatus::missing && !check.fix.empty()) {
      auto* fix = wrappedLabel("To fix: " + QString::fromStdString(check.fix), text);
      fix->setObjectName(QString::fromStdString("fix-" + check.id));
      fix->setStyleSheet(QString("color: %1;").arg(mark.colour));
      lines->addWidget(fix);
    }
    rows_->addWidget(text, row, 1);
    ++row;
  }
  const bool ready = mainJobsReady(checks_);
  summary_->setText(ready ? "Brimble can record on this desktop."
                          : "Brimble cannot record on this desktop yet: see what is marked ✖.");
  emit checked();
}

QWidget* CapabilityChecklist::scrolling(QWidget* parent) {
  auto* scroll = new QScrollArea(parent);
  scroll->setWidget(this);
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  // On the page's own background, not the scroll area's (a grey box on a tab).
  scroll->viewport()->setAutoFillBackground(false);
  setAutoFillBackground(false);
  return scroll;
}

}  // namespace brimble
