#include "Brimble/Recording/QtRecordingView.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>
#include <unistd.h>

#include "Brimble/Recording/QtGeometry.h"
#include "Brimble/Recording/RecordingState.h"
#include "Brimble/Recording/ScreenCovering.h"
#include "Brimble/Recording/ScreenSnapshot.h"
#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace {

/// Shows `window` on top with the keyboard focus.
void present(QWidget& window) {
  window.show();
  window.raise();
  window.activateWindow();
  window.setFocus();
}

/// Shows `window`, made to cover the desktop, on top with the keyboard focus.
void presentCovering(QWidget& window) {
  showCovering(window);
  present(window);
}

constexpr const char* kShareExplanation =
    "Your desktop will ask once to share the screen: choose the screen, then Share. Brimble "
    "remembers the answer.";
constexpr const char* kPickWindow =
    "Pick the window to record in your desktop's dialog, then Share.";

}  // namespace

QtRecordingView::QtRecordingView(ScreenSource& screens, WindowSystem& windows)
    : screens_(screens), snapshot_(screens), windows_(windows) {}

QtRecordingView::~QtRecordingView() = default;

QRect QtRecordingView::desktop() const {
  const QScreen* screen = QGuiApplication::primaryScreen();
  return screen != nullptr ? screen->virtualGeometry() : QRect(0, 0, 1920, 1080);
}

void QtRecordingView::showRegionOverlay() {
  const QRect area = desktop();
  if (screens_.asksBeforeSharing()) {
    showMessage(kShareExplanation, MessageKind::information);
  }
  makePanel();
  if (panelHost_) {
    // Sized by the desktop by the time the panel is placed; invisible until then.
    panelHost_->prepare();
  }
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
  presentCovering(*overlay_);
}

void QtRecordingView::showWindowPicker() {
  if (screens_.userPicksWindows()) {
    // The desktop's own chooser picks it: a Wayland client cannot see the others' windows. A
    // new id each time, so an earlier pick it may remember is not taken for this one.
    announce(kPickWindow);
    static std::uint32_t picks = 0;
    const std::uint32_t id = 0xb1000000u + ++picks;
    QTimer::singleShot(0, this, [this, id] {
      if (state_ != nullptr && state_->phase() == RecordingPhase::selecting) {
        state_->startWindow(id);
      }
    });
    return;
  }
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
  presentCovering(*picker_);
}

void QtRecordingView::hideSelection() {
  if (panelHost_ && panel_ && panel_->parent() == overlay_.get()) {
    panel_->hide();
    panelHost_->adopt(*panel_);  // out before the overlay goes, which would delete it
  }
  // Hidden at once (so the next grab no longer sees them), deleted once their events are done.
  for (QWidget* window :
       {static_cast<QWidget*>(overlay_.release()), static_cast<QWidget*>(picker_.release())}) {
    if (window != nullptr) {
      window->hide();
      window->deleteLater();
    }
  }
}

void QtRecordingView::makePanel() {
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
    if (onWayland()) {
      panelHost_ = std::make_unique<PanelHost>();
      panelHost_->adopt(*panel_);
    }
  }
}

void QtRecordingView::showPanel(PanelMode mode, const ScreenRect& region) {
  makePanel();
  panel_->setMode(mode);
  panelRegion_ = toQRect(region);
  const bool fullScreen = state_ != nullptr && state_->captureMode() == CaptureMode::fullScreen;
  QSize room = panel_->sizeHint();
  if (panelHost_) {
    // The panel may land up to the host's slack lower or further right than placed: the room
    // it needs beside the region grows by as much.
    panelHost_->prepare();
    room += panelHost_->slack();
  }
  const auto at = ControlPanel::placement(panelRegion_, room, desktop());
  // A recording of the whole screen, or of a region that leaves no room beside it, would show
  // the panel: it stays hidden then, and the hotkey or the menu stops the recording.
  if ((mode == PanelMode::recording && fullScreen) || !at) {
    dismissPanel();
    return;
  }
  if (panelHost_ && overlay_) {
    // Above the overlay only a part of it stays: a window of its own could open beneath it.
    panel_->setParent(overlay_.get(), Qt::Widget);
    panel_->adjustSize();
    panel_->move(*at - overlay_->geometry().topLeft());
    panel_->show();
    return;
  }
  if (panelHost_) {
    panelHost_->adopt(*panel_);
    panelHost_->showPanelAt(*at);
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
  if (panelHost_) {
    panelHost_->hide();
  } else if (panel_) {
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
    annotations_->onKey = [this](int key, bool shift) {
      return state_ != nullptr && state_->handleKey(key, shift);
    };
  }
  if (onWayland()) {
    // Over a still while drawing, gone otherwise: the marks are drawn into the frames, and the
    // screen shows live again. The still is taken first, so it holds the screen, not the layer.
    if (!drawing) {
      annotations_->releaseMouse();
      annotations_->hide();
    } else {
      annotations_->setBackground(snapshot_.grab(desktop()));
      annotations_->setDrawing(true);
      present(*annotations_);
    }
    if (panel_) {
      panel_->setDrawingLook(drawing);
    }
    return;
  }
  annotations_->setDrawing(drawing);
  if (panel_) {
    panel_->setDrawingLook(drawing);
  }
  // The panel keeps the keyboard, so A, Return and Space still reach the session.
  if (panel_ && panel_->isVisible()) {
    QWidget& window = *panel_->window();
    window.raise();
    window.activateWindow();
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
