#include "Brimble/Recording/RegionOverlay.h"

#include <array>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

namespace brimble {

RegionOverlay::RegionOverlay(const QImage& background, const QRect& desktop)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      background_(background),
      origin_(desktop.topLeft()) {
  setObjectName("brimble-region-overlay");
  setWindowTitle("Select a region");
  setAccessibleName("Region selection");
  setAccessibleDescription("Drag to select a screen region to record");
  setGeometry(desktop);
  setMouseTracking(true);
  setCursor(Qt::CrossCursor);
  setFocusPolicy(Qt::StrongFocus);
}

void RegionOverlay::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const QRect local = region_.translated(-origin_);
  if (!background_.isNull()) {
    painter.drawImage(0, 0, background_);
  } else {
    painter.fillRect(rect(), QColor(40, 40, 40));
  }
  // Dim everything but the selection.
  const QColor dim(0, 0, 0, 130);
  QRegion outside(rect());
  if (!region_.isEmpty()) {
    outside -= QRegion(local);
  }
  for (const QRect& part : outside) {
    painter.fillRect(part, dim);
  }
  if (region_.isEmpty()) {
    const QString hint = "Drag to select an area to record. Escape cancels.";
    QFont font = painter.font();
    font.setPointSize(14);
    painter.setFont(font);
    const QRect box = painter.fontMetrics().boundingRect(hint).adjusted(-16, -10, 16, 10);
    const QRect placed(width() / 2 - box.width() / 2, height() / 3, box.width(), box.height());
    painter.fillRect(placed, QColor(20, 20, 20, 220));
    painter.setPen(Qt::white);
    painter.drawText(placed, Qt::AlignCenter, hint);
    return;
  }
  painter.setPen(QPen(QColor(255, 255, 255), 1, Qt::DashLine));
  painter.drawRect(local.adjusted(-1, -1, 0, 0));
  if (drawn_) {
    painter.setPen(QPen(QColor(30, 30, 30), 1));
    painter.setBrush(Qt::white);
    for (Drag handle : {Drag::left, Drag::right, Drag::top, Drag::bottom, Drag::topLeft,
                        Drag::topRight, Drag::bottomLeft, Drag::bottomRight}) {
      painter.drawRect(handleRect(handle).translated(-origin_));
    }
  }
  // The size read-out sits outside the region where it fits, so it never covers what is chosen.
  const QString size = QString("%1 × %2").arg(region_.width()).arg(region_.height());
  QFont font = painter.font();
  font.setPointSize(11);
  painter.setFont(font);
  QRect label = painter.fontMetrics().boundingRect(size).adjusted(-8, -4, 8, 4);
  label.moveTopLeft(local.bottomLeft() + QPoint(0, kHandleSize));
  if (label.bottom() > height()) {
    label.moveBottomLeft(local.topLeft() - QPoint(0, kHandleSize));
  }
  if (label.top() < 0) {
    label.moveTopLeft(local.topLeft() + QPoint(kHandleSize, kHandleSize));
  }
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(20, 20, 20, 220));
  painter.drawRoundedRect(label, 4, 4);
  painter.setPen(Qt::white);
  painter.drawText(label, Qt::AlignCenter, size);
}

QRect RegionOverlay::handleRect(Drag handle) const {
  const QRect r = region_;
  const int h = kHandleSize;
  const int cx = r.center().x();
  const int cy = r.center().y();
  QPoint at;
  switch (handle) {
    case Drag::left:
      at = {r.left(), cy};
      break;
    case Drag::right:
      at = {r.right(), cy};
      break;
    case Drag::top:
      at = {cx, r.top()};
      break;
    case Drag::bottom:
      at = {cx, r.bottom()};
      break;
    case Drag::topLeft:
      at = r.topLeft();
      break;
    case Drag::topRight:
      at = r.topRight();
      break;
    case Drag::bottomLeft:
      at = r.bottomLeft();
      break;
    case Drag::bottomRight:
      at = r.bottomRight();
      break;
    default:
      return {};
  }
  return {at.x() - h / 2, at.y() - h / 2, h, h};
}

RegionOverlay::Drag RegionOverlay::dragAt(const QPoint& point) const {
  if (!drawn_) {
    return Drag::draw;
  }
  for (Drag handle : {Drag::topLeft, Drag::topRight, Drag::bottomLeft, Drag::bottomRight,
                      Drag::left, Drag::right, Drag::top, Drag::bottom}) {
    if (handleRect(handle).adjusted(-3, -3, 3, 3).contains(point)) {
      return handle;
    }
  }
  return region_.contains(point) ? Drag::move : Drag::draw;
}

void RegionOverlay::updateCursor(const QPoint& point) {
  switch (dragAt(point)) {
    case Drag::move:
      setCursor(Qt::SizeAllCursor);
      break;
    case Drag::left:
    case Drag::right:
      setCursor(Qt::SizeHorCursor);
      break;
    case Drag::top:
    case Drag::bottom:
      setCursor(Qt::SizeVerCursor);
      break;
    case Drag::topLeft:
    case Drag::bottomRight:
      setCursor(Qt::SizeFDiagCursor);
      break;
    case Drag::topRight:
    case Drag::bottomLeft:
      setCursor(Qt::SizeBDiagCursor);
      break;
    default:
      setCursor(Qt::CrossCursor);
      break;
  }
}

void RegionOverlay::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    return;
  }
  const QPoint point = event->position().toPoint() + origin_;
  drag_ = dragAt(point);
  dragStart_ = point;
  regionAtDragStart_ = region_;
  if (drag_ == Drag::draw) {
    region_ = QRect(point, QSize(0, 0));
    update();
  }
}

void RegionOverlay::mouseMoveEvent(QMouseEvent* event) {
  const QPoint point = event->position().toPoint() + origin_;
  if (drag_ == Drag::none) {
    updateCursor(point);
    return;
  }
  const QPoint delta = point - dragStart_;
  QRect r = regionAtDragStart_;
  switch (drag_) {
    case Drag::draw:
      // The pixels between the two points, the second excluded: a drag of 500 is 500 wide.
      r = QRect(std::min(dragStart_.x(), point.x()), std::min(dragStart_.y(), point.y()),
                std::abs(point.x() - dragStart_.x()), std::abs(point.y() - dragStart_.y()));
      break;
    case Drag::move:
      r.translate(delta);
      break;
    case Drag::left:
      r.setLeft(r.left() + delta.x());
      break;
    case Drag::right:
      r.setRight(r.right() + delta.x());
      break;
    case Drag::top:
      r.setTop(r.top() + delta.y());
      break;
    case Drag::bottom:
      r.setBottom(r.bottom() + delta.y());
      break;
    case Drag::topLeft:
      r.setTopLeft(r.topLeft() + delta);
      break;
    case Drag::topRight:
      r.setTopRight(r.topRight() + delta);
      break;
    case Drag::bottomLeft:
      r.setBottomLeft(r.bottomLeft() + delta);
      break;
    case Drag::bottomRight:
      r.setBottomRight(r.bottomRight() + delta);
      break;
    case Drag::none:
      break;
  }
  if (drag_ != Drag::draw) {
    r = r.normalized();
  }
  if (drag_ == Drag::move) {
    // Moving keeps the size; the region stays on the desktop.
    const QRect desktop(origin_, size());
    r.moveLeft(std::clamp(r.left(), desktop.left(), desktop.right() - r.width() + 1));
    r.moveTop(std::clamp(r.top(), desktop.top(), desktop.bottom() - r.height() + 1));
  } else {
    r = r.intersected(QRect(origin_, size()));
  }
  region_ = r;
  update();
}

void RegionOverlay::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || drag_ == Drag::none) {
    return;
  }
  const Drag finished = drag_;
  drag_ = Drag::none;
  if (region_.width() < kMinimumSize || region_.height() < kMinimumSize) {
    // A click or a tiny drag selects nothing; keep what was there before.
    region_ = regionAtDragStart_;
    update();
    return;
  }
  update();
  if (!drawn_) {
    drawn_ = true;
    if (onRegionDrawn) {
      onRegionDrawn(region_);
    }
  } else if (onRegionChanged && (finished != Drag::draw || region_ != regionAtDragStart_)) {
    onRegionChanged(region_);
  }
}

void RegionOverlay::keyPressEvent(QKeyEvent* event) {
  const bool shift = (event->modifiers() & Qt::ShiftModifier) != 0;
  if (onKey && onKey(event->key(), shift)) {
    return;
  }
  if (event->key() == Qt::Key_Escape && onCancel) {
    onCancel();
    return;
  }
  QWidget::keyPressEvent(event);
}

}  // namespace brimble
