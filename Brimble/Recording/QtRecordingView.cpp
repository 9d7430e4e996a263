#include "Brimble/Recording/QtRecordingView.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QScreen>
#include <unistd.h>

#include "Brimble/Recording/RecordingState.h"
#include "Brimble/Recording/ScreenSnapshot.h"
#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace {

QRect toQRect(const ScreenRect& rect) {
  return {rect.x, rect.y, rect.width, rect.height};
}

ScreenRect toScreenRect(const QRect& rect) {
  return {rect.x(), rect.y(), rect.width(), rect.height()};
}

/// Shows `window` on top with the keyboard focus.
void present(QWidget& window) {
  window.show();
  window.raise();
  window.activateWindow();
  window.setFocus();
}

}  // namespace

QtRecordingView::QtRecordingView(ScreenSource& screens, WindowSystem& windows)
    : snapshot_(screens), windows_(windows) {}

QtRecordingView::~QtRecordingView() = default;

QRect QtRecordingView::desktop() const {
  const QScreen* screen = QGuiApplication::primaryScreen();
  return screen != nullptr ? screen->virtualGeometry() : QRect(0, 0, 1920, 1080);
}

void QtRecordingView::showRegionOverlay() {
  const QRect area = desktop();
  overlay_ = std::make_unique<RegionOverlay>(snapshot_.grab(area), area);
  overlay_->onRegionDrawn = [this](const QRect& region) {
    if (state_ != nullptr) {
      state_->regionSelected(toScreenRect(region));
    }
  };
  overlay_->onRegionChanged = [this](const QRect& region) {
    if (state_ != nullptr) {
      state_->adjustRegion(toScreenRect(region));
    }
  };
  overlay_->onKey = [this](int key, bool shift) {
    return state_ != nullptr && state_->handleKey(key, shift);
  };
  overlay_->onCancel = [this] {
    if (state_ != nullptr) {
      state_->cancelSelection();
    }
  };
  present(*overlay_);
}

void QtRecordingView::showWindowPicker() {
  const QRect area = desktop();
  std::vector<WindowInfo> candidates;
  try {
    for (WindowInfo& window : windows_.windows()) {
      // Our own windows are not for recording.
      if (window.pid != getpid() && !window.frame.empty()) {
        candidates.push_back(std::move(window));
      }
    }
  } catch (const std::exception& error) {
    logLine(std::string("Brimble: could not list the windows: ") + error.what());
  }
  picker_ = std::make_unique<WindowPicker>(snapshot_.grab(area), area, std::move(candidates));
  picker_->onPick = [this](std::uint32_t id) {
    if (state_ != nullptr) {
      state_->startWindow(id);
    }
  };
  picker_->onCancel = [this] {
    if (state_ != nullptr) {
      state_->cancelSelection();
    }
  };
  present(*picker_);
}

void QtRecordingView::hideSelection() {
  // Hidden at once (so the next grab no longer sees them), deleted once their events are done.
  for (QWidget* window :
       {static_cast<QWidget*>(overlay_.release()), static_cast<QWidget*>(picker_.release())}) {
    if (window != nullptr) {
      window->hide();
      window->deleteLater();
    }
  }
}

void QtRecordingView::showPanel(PanelMode mode, const ScreenRect& region) {
  if (!panel_) {
    panel_ = std::make_unique<ControlPanel>();
    panel_->onStart = [this] {
      if (state_ != nullptr) {
        state_->startFromReady();
      }
    };
    panel_->onCancel = [this] {
      if (state_ != nullptr) {
        state_->phase() == RecordingPhase::encoding ? state_->cancelEncoding()
                                                    : state_->cancelSelection();
      }
    };
    // Each button acts on the session only while one is attached.
    const auto toSession = [this](void (RecordingState::*action)()) {
      return [this, action] {
        if (state_ != nullptr) {
          (state_->*action)();
        }
      };
    };
    panel_->onPause = toSession(&RecordingState::togglePause);
    panel_->onStop = toSession(&RecordingState::stopRecording);
    panel_->onSave = toSession(&RecordingState::stopAndSaveToFile);
    panel_->onShare = toSession(&RecordingState::stopAndShare);
    panel_->onDraw = toSession(&RecordingState::toggleAnnotationMode);
    panel_->onKey = [this](int key, bool shift) {
      return state_ != nullptr && state_->handleKey(key, shift);
    };
  }
  panel_->setMode(mode);
  panelRegion_ = toQRect(region);
  const bool fullScreen = state_ != nullptr && state_->captureMode() == CaptureMode::fullScreen;
  const auto at = ControlPanel::placement(panelRegion_, panel_->sizeHint(), desktop());
  // A recording of the whole screen, or of a region that leaves no room beside it, would show
  // the panel: it stays hidden then, and the hotkey or the menu stops the recording.
  if ((mode == PanelMode::recording && fullScreen) || !at) {
    panel_->hide();
    return;
  }
  panel_->move(*at);
  present(*panel_);
}

void QtRecordingView::showCountdown(int seconds, const std::string& accessibleText) {
  if (panel_) {
    panel_->setCountdown(seconds, QString::fromStdString(accessibleText));
  }
}

void QtRecordingView::showElapsed(const std::string& text, const std::string& accessibleText) {
  if (panel_) {
    panel_->setElapsed(QString::fromStdString(text), QString::fromStdString(accessibleText));
  }
}

void QtRecordingView::showPaused(bool paused) {
  if (panel_) {
    panel_->setPausedLook(paused);
  }
}

void QtRecordingView::dismissPanel() {
  if (panel_) {
    panel_->hide();
  }
}

void QtRecordingView::showAnnotationLayer(bool visible, bool drawing) {
  if (!visible) {
    if (annotations_) {
      annotations_->releaseMouse();
      annotations_->hide();
      annotations_.release()->deleteLater();
    }
    return;
  }
  if (!annotations_) {
    annotations_ = std::make_unique<AnnotationLayer>(desktop());
    annotations_->onAnnotation = [this](const Annotation& mark) {
      if (state_ != nullptr) {
        state_->addAnnotation(mark);
      }
    };
  }
  annotations_->setDrawing(drawing);
  if (panel_) {
    panel_->setDrawingLook(drawing);
  }
  // The panel keeps the keyboard, so A, Return and Space still reach the session.
  if (panel_ && panel_->isVisible()) {
    panel_->raise();
    panel_->activateWindow();
  }
}

void QtRecordingView::announce(const std::string& text) {
  const QString line = QString::fromStdString(text);
  if (panel_) {
    panel_->setStatus(line);
  }
  if (onStatus) {
    onStatus(line);
  }
}

void QtRecordingView::showMessage(const std::string& text, MessageKind kind) {
  logLine("Brimble: told the user: " + text);
  const QString line = QString::fromStdString(text);
  if (onStatus) {
    onStatus(line);
  }
  notify(line, kind);
}

void QtRecordingView::notify(const QString& text, MessageKind kind) {
  QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.Notifications",
                                                     "/org/freedesktop/Notifications",
                                                     "org.freedesktop.Notifications", "Notify");
  QVariantMap hints;
  hints["urgency"] = QVariant::fromValue<uchar>(kind == MessageKind::error ? 2 : 1);
  call << QString("Brimble") << 0u << QString("brimble") << QString("Brimble") << text
       << QStringList() << hints << 5000;
  // Without a notification server the call simply goes nowhere; the status line still has it.
  QDBusConnection::sessionBus().send(call);
}

}  // namespace brimble
