#include "Brimble/Recording/WindowPicker.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include "Brimble/Recording/QtGeometry.h"

namespace brimble {

WindowPicker::WindowPicker(const QImage& background, const QRect& desktop,
                           std::vector<WindowInfo> windows)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      background_(background),
      origin_(desktop.topLeft()),
      windows_(std::move(windows)) {
  setObjectName("brimble-window-picker");
  setWindowTitle("Click a window");
  setAccessibleName("Window picker");
  setAccessibleDescription("Click a window to record");
  setGeometry(desktop);
  setMouseTracking(true);
  setCursor(Qt::PointingHandCursor);
  setFocusPolicy(Qt::StrongFocus);
}

const WindowInfo* WindowPicker::windowAt(const QPoint& point) const {
  for (auto it = windows_.rbegin(); it != windows_.rend(); ++it) {
    if (toQRect(it->frame).contains(point)) {
      return &*it;
    }
  }
  return nullptr;
}

void WindowPicker::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  if (!background_.isNull()) {
    painter.drawImage(0, 0, background_);
  }
  painter.fillRect(rect(), QColor(0, 0, 0, 90));
  if (highlighted_ == nullptr) {
    return;
  }
  const QRect frame = toQRect(highlighted_->frame).translated(-origin_);
  if (!background_.isNull()) {
    painter.drawImage(frame.topLeft(), background_, frame);
  }
  painter.setPen(QPen(QColor(64, 156, 255), 4));
  painter.drawRect(frame.adjusted(2, 2, -2, -2));
  const QString title = QString::fromStdString(highlighted_->title.empty() ? highlighted_->appName
                                                                           : highlighted_->title);
  QFont font = painter.font();
  font.setPointSize(12);
  painter.setFont(font);
  QRect label = painter.fontMetrics().boundingRect(title).adjusted(-10, -6, 10, 6);
  label.moveCenter(frame.center());
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(20, 20, 20, 230));
  painter.drawRoundedRect(label, 5, 5);
  painter.setPen(Qt::white);
  painter.drawText(label, Qt::AlignCenter, title);
}

void WindowPicker::mouseMoveEvent(QMouseEvent* event) {
  const WindowInfo* under = windowAt(event->position().toPoint() + origin_);
  if (under != highlighted_) {
    highlighted_ = under;
    update();
  }
}

void WindowPicker::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    return;
  }
  const WindowInfo* under = windowAt(event->position().toPoint() + origin_);
  if (under != nullptr && onPick) {
    onPick(under->id);
  }
}

void WindowPicker::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape && onCancel) {
    onCancel();
    return;
  }
  QWidget::keyPressEvent(event);
}

}  // namespace brimble
