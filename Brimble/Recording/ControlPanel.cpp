#include "Brimble/Recording/ControlPanel.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPainter>
#include <QVBoxLayout>

namespace brimble {

namespace {

QPushButton* button(const QString& text, const QString& tip, QWidget* parent) {
  auto* result = new QPushButton(text, parent);
  result->setToolTip(tip);
  result->setAccessibleName(text);
  result->setFocusPolicy(Qt::NoFocus);  // Space and Return belong to the session's keys
  return result;
}

}  // namespace

ControlPanel::ControlPanel()
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint) {
  setObjectName("brimble-control-panel");
  setWindowTitle("Recording controls");
  setAccessibleName("Recording controls");
  setFocusPolicy(Qt::StrongFocus);
  setStyleSheet(
      "QWidget#brimble-control-panel { background: #202124; }"
      "QLabel { color: #f1f3f4; }"
      "QPushButton { color: #f1f3f4; background: #3c4043; border: 1px solid #5f6368;"
      " border-radius: 5px; padding: 5px 12px; }"
      "QPushButton:hover { background: #4a4e52; }"
      "QPushButton#start, QPushButton#stop { background: #c5221f; border-color: #e04a3f; }");

  big_ = new QLabel(this);
  QFont bigFont = big_->font();
  bigFont.setPointSize(18);
  bigFont.setBold(true);
  big_->setFont(bigFont);
  big_->setAlignment(Qt::AlignCenter);
  big_->setMinimumWidth(80);
  status_ = new QLabel(this);
  status_->setObjectName("status");
  status_->setWordWrap(true);
  status_->setMaximumWidth(460);
  QFont small = status_->font();
  small.setPointSize(9);
  status_->setFont(small);

  start_ = button("Start", "Start recording (Space)", this);
  start_->setObjectName("start");
  pause_ = button("Pause", "Pause or resume (Space)", this);
  stop_ = button("Stop", "Stop and copy to the clipboard (Return)", this);
  stop_->setObjectName("stop");
  save_ = button("Save", "Stop and save to a file (S)", this);
  share_ = button("Share", "Stop and open with another application (Shift+S)", this);
  draw_ = button("Draw",
                 "Draw on the screen: drag for a line, Shift for an arrow, Ctrl for a "
                 "box (A)",
                 this);
  cancel_ = button("Cancel", "Discard (Escape)", this);

  auto* row = new QHBoxLayout;
  row->addWidget(big_);
  for (QPushButton* b : {start_, pause_, draw_, stop_, save_, share_, cancel_}) {
    row->addWidget(b);
  }
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(12, 10, 12, 8);
  column->addLayout(row);
  column->addWidget(status_);

  const auto relay = [this](QPushButton* source, std::function<void()> ControlPanel::*callback) {
    connect(source, &QPushButton::clicked, this, [this, callback] {
      if (this->*callback) {
        (this->*callback)();
      }
    });
  };
  relay(start_, &ControlPanel::onStart);
  relay(pause_, &ControlPanel::onPause);
  relay(stop_, &ControlPanel::onStop);
  relay(save_, &ControlPanel::onSave);
  relay(share_, &ControlPanel::onShare);
  relay(draw_, &ControlPanel::onDraw);
  relay(cancel_, &ControlPanel::onCancel);
  setMode(PanelMode::ready);
}

void ControlPanel::setMode(PanelMode mode) {
  start_->setVisible(mode == PanelMode::ready);
  for (QPushButton* b : {pause_, draw_, stop_, save_, share_}) {
    b->setVisible(mode == PanelMode::recording);
  }
  big_->setVisible(mode != PanelMode::ready);
  if (mode == PanelMode::ready) {
    big_->clear();
  }
  setPausedLook(false);
  setDrawingLook(false);
  adjustSize();
}

void ControlPanel::setDrawingLook(bool drawing) {
  draw_->setText(drawing ? "Done Drawing" : "Draw");
  draw_->setAccessibleName(draw_->text());
}

void ControlPanel::setCountdown(int seconds, const QString& accessibleText) {
  big_->setText(QString::number(seconds));
  big_->setAccessibleName(accessibleText);
}

void ControlPanel::setElapsed(const QString& text, const QString& accessibleText) {
  big_->setText(text);
  big_->setAccessibleName(accessibleText);
}

void ControlPanel::setPausedLook(bool paused) {
  pause_->setText(paused ? "Resume" : "Pause");
  pause_->setAccessibleName(pause_->text());
}

void ControlPanel::setStatus(const QString& text) {
  status_->setText(text);
  status_->setAccessibleName(text);
  // Qt 6.4 has no announcement API: a changed name on a live label is what screen readers get.
  QAccessibleEvent event(status_, QAccessible::NameChanged);
  QAccessible::updateAccessibility(&event);
  adjustSize();
}

std::optional<QPoint> ControlPanel::placement(const QRect& region, const QSize& panel,
                                              const QRect& desktop) {
  constexpr int kGap = 12;
  const int centredX = std::clamp(region.center().x() - panel.width() / 2, desktop.left(),
                                  desktop.right() - panel.width() + 1);
  if (region.isEmpty()) {
    // A window or the whole screen: bottom centre, where it hides the least.
    return QPoint(desktop.center().x() - panel.width() / 2, desktop.bottom() - panel.height() - 40);
  }
  const QList<QPoint> candidates = {
      {centredX, region.bottom() + 1 + kGap},
      {centredX, region.top() - kGap - panel.height()},
      {region.right() + 1 + kGap,
       std::clamp(region.top(), desktop.top(), desktop.bottom() - panel.height() + 1)},
      {region.left() - kGap - panel.width(),
       std::clamp(region.top(), desktop.top(), desktop.bottom() - panel.height() + 1)},
  };
  for (const QPoint& at : candidates) {
    const QRect placed(at, panel);
    if (desktop.contains(placed) && !placed.intersects(region)) {
      return at;
    }
  }
  return std::nullopt;
}

void ControlPanel::keyPressEvent(QKeyEvent* event) {
  const bool shift = (event->modifiers() & Qt::ShiftModifier) != 0;
  if (onKey && onKey(event->key(), shift)) {
    return;
  }
  QWidget::keyPressEvent(event);
}

void ControlPanel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), QColor(0x20, 0x21, 0x24));
  painter.setPen(QColor(0x5f, 0x63, 0x68));
  painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

}  // namespace brimble
