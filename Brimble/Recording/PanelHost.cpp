#include "Brimble/Recording/PanelHost.h"

#include <algorithm>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>
#include <QRegion>
#include <QScreen>
#include <QWindow>

namespace brimble {

PanelHost::PanelHost() : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint) {
  setObjectName("brimble-panel-host");
  setWindowTitle("Recording controls");
  setAttribute(Qt::WA_TranslucentBackground);
}

void PanelHost::adopt(QWidget& panel) {
  panel_ = &panel;
  panel.setParent(this, Qt::Widget);
  panel.installEventFilter(this);
  setFocusProxy(&panel);
}

void PanelHost::prepare() {
  if (isVisible()) {
    return;
  }
  if (panel_ != nullptr && panel_->parent() == this) {
    panel_->hide();  // wholly clear until the panel is placed
  }
  winId();  // the native window, whose input region followPanel sets
  followPanel();
  const QSize before = size();
  showMaximized();
  if (sized_) {
    return;  // the desktop gives it the size it gave before
  }
  // Qt says maximized at once; the size comes with the desktop's answer.
  const QDeadlineTimer deadline(1000);
  while ((size() == before || !windowHandle()->isExposed()) && !deadline.hasExpired()) {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  }
  sized_ = size() != before;
}

QSize PanelHost::slack() const {
  const QRect full = screen() != nullptr ? screen()->geometry() : QRect(QPoint(), size());
  return {std::max(0, full.width() - width()), std::max(0, full.height() - height())};
}

void PanelHost::showPanelAt(const QPoint& at) {
  if (panel_ == nullptr) {
    return;
  }
  prepare();
  panel_->adjustSize();
  const QPoint origin = screen() != nullptr ? screen()->geometry().topLeft() : QPoint();
  panel_->move(at - origin);
  panel_->show();
  followPanel();
  raise();
  activateWindow();
  panel_->setFocus();
}

bool PanelHost::eventFilter(QObject* watched, QEvent* event) {
  if (watched == panel_ && (event->type() == QEvent::Resize || event->type() == QEvent::Move ||
                            event->type() == QEvent::LayoutRequest)) {
    if (event->type() == QEvent::LayoutRequest) {
      panel_->adjustSize();
    }
    followPanel();
  }
  return QWidget::eventFilter(watched, event);
}

void PanelHost::followPanel() {
  if (panel_ == nullptr) {
    return;
  }
  // Only where the pointer is taken: a widget mask would also stop the host from painting the
  // rest clear, and a Wayland surface keeps what was painted there before.
  if (QWindow* window = windowHandle()) {
    const bool shown = panel_->parent() == this && panel_->isVisible();
    window->setMask(shown ? QRegion(panel_->geometry()) : QRegion(0, 0, 1, 1));
  }
}

}  // namespace brimble
