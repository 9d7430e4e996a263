#include "Brimble/Recording/AnnotationLayer.h"

#include <cmath>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPathStroker>

#include "Brimble/Recording/ScreenCovering.h"

namespace brimble {

namespace {

constexpr int kPenWidth = Annotation::kPenWidth;
const QColor kMarkColor(Annotation::kRed, Annotation::kGreen, Annotation::kBlue);

QPointF toPoint(const Annotation::Point& point) {
  return {static_cast<double>(point.x), static_cast<double>(point.y)};
}

}  // namespace

AnnotationLayer::AnnotationLayer(const QRect& desktop)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::X11BypassWindowManagerHint | Qt::WindowDoesNotAcceptFocus),
      origin_(desktop.topLeft()) {
  setObjectName("brimble-annotation-layer");
  setWindowTitle("Annotations");
  setAttribute(Qt::WA_ShowWithoutActivating, !onWayland());
  if (onWayland()) {
    setWindowFlag(Qt::WindowDoesNotAcceptFocus, false);
    setFocusPolicy(Qt::StrongFocus);
  }
  setGeometry(desktop);
  reshape();
}

QPainterPath AnnotationLayer::pathOf(const Annotation& annotation) {
  QPainterPath path;
  if (annotation.points.empty()) {
    return path;
  }
  const QPointF first = toPoint(annotation.points.front());
  const QPointF last = toPoint(annotation.points.back());
  switch (annotation.kind) {
    case Annotation::Kind::stroke:
      path.moveTo(first);
      for (const auto& point : annotation.points) {
        path.lineTo(toPoint(point));
      }
      break;
    case Annotation::Kind::rectangle:
      path.addRect(QRectF(first, last).normalized());
      break;
    case Annotation::Kind::arrow: {
      path.moveTo(first);
      path.lineTo(last);
      const double angle = std::atan2(last.y() - first.y(), last.x() - first.x());
      constexpr double kHead = Annotation::kArrowHeadLength;
      constexpr double kSpread = Annotation::kArrowHeadSpread;
      path.moveTo(last);
      path.lineTo(last -
                  QPointF(kHead * std::cos(angle - kSpread), kHead * std::sin(angle - kSpread)));
      path.moveTo(last);
      path.lineTo(last -
                  QPointF(kHead * std::cos(angle + kSpread), kHead * std::sin(angle + kSpread)));
      break;
    }
  }
  return path;
}

void AnnotationLayer::setDrawing(bool drawing) {
  drawing_ = drawing;
  showCovering(*this);
  if (drawing) {
    grabMouse(Qt::CrossCursor);
  } else {
    releaseMouse();
  }
}

void AnnotationLayer::reshape() {
  QPainterPathStroker stroker;
  stroker.setWidth(kPenWidth + 2);
  stroker.setCapStyle(Qt::RoundCap);
  stroker.setJoinStyle(Qt::RoundJoin);
  QPainterPath all;
  for (const Annotation& mark : marks_) {
    all.addPath(stroker.createStroke(pathOf(mark)));
  }
  if (current_) {
    all.addPath(stroker.createStroke(pathOf(*current_)));
  }
  if (!background_.isNull()) {
    update();  // opaque, over the still: nothing to cut away
    return;
  }
  QRegion shape(all.translated(-origin_).toFillPolygon().toPolygon(), Qt::WindingFill);
  // An empty shape would mean "no shape": the whole window. One pixel in the corner stands in.
  setMask(shape.isEmpty() ? QRegion(0, 0, 1, 1) : shape);
  update();
}

void AnnotationLayer::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(-origin_);
  painter.setPen(QPen(kMarkColor, kPenWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  if (!background_.isNull()) {
    painter.drawImage(origin_, background_);
    for (const Annotation& mark : marks_) {
      painter.drawPath(pathOf(mark));
    }
    if (current_) {
      painter.drawPath(pathOf(*current_));
    }
    return;
  }
  painter.fillRect(QRect(origin_, size()), kMarkColor);
  for (const Annotation& mark : marks_) {
    painter.drawPath(pathOf(mark));
  }
}

void AnnotationLayer::setBackground(const QImage& still) {
  background_ = still;
  if (!background_.isNull()) {
    clearMask();
  }
  update();
}

void AnnotationLayer::keyPressEvent(QKeyEvent* event) {
  const bool shift = (event->modifiers() & Qt::ShiftModifier) != 0;
  if (!onKey || !onKey(event->key(), shift)) {
    QWidget::keyPressEvent(event);
  }
}

void AnnotationLayer::mousePressEvent(QMouseEvent* event) {
  if (!drawing_ || event->button() != Qt::LeftButton) {
    return;
  }
  Annotation mark;
  mark.kind = (event->modifiers() & Qt::ShiftModifier) != 0     ? Annotation::Kind::arrow
              : (event->modifiers() & Qt::ControlModifier) != 0 ? Annotation::Kind::rectangle
                                                                : Annotation::Kind::stroke;
  const QPoint at = event->globalPosition().toPoint();
  mark.points = {{at.x(), at.y()}, {at.x(), at.y()}};
  current_ = mark;
}

void AnnotationLayer::mouseMoveEvent(QMouseEvent* event) {
  if (!current_) {
    return;
  }
  const QPoint at = event->globalPosition().toPoint();
  if (current_->kind == Annotation::Kind::stroke) {
    current_->points.push_back({at.x(), at.y()});
  } else {
    current_->points.back() = {at.x(), at.y()};
  }
  reshape();
}

void AnnotationLayer::mouseReleaseEvent(QMouseEvent* event) {
  if (!current_ || event->button() != Qt::LeftButton) {
    return;
  }
  marks_.push_back(*current_);
  current_.reset();
  reshape();
  if (onAnnotation) {
    onAnnotation(marks_.back());
  }
}

}  // namespace brimble
