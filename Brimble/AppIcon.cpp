#include "Brimble/AppIcon.h"

#include <QColor>
#include <QPainter>
#include <QPen>
#include <QPixmap>

namespace brimble {

QIcon appIcon(bool recording) {
  QPixmap pixmap(64, 64);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(QColor(0x20, 0x21, 0x24), 5));
  painter.setBrush(QColor(0xf1, 0xf3, 0xf4));
  painter.drawRoundedRect(QRectF(4, 10, 56, 44), 10, 10);
  painter.setPen(Qt::NoPen);
  painter.setBrush(recording ? QColor(0xd9, 0x30, 0x25) : QColor(0x1a, 0x73, 0xe8));
  painter.drawEllipse(QPointF(32, 32), 12, 12);
  return QIcon(pixmap);
}

}  // namespace brimble
