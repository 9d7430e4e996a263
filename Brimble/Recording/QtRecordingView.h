#pragma once

#include <functional>
#include <memory>

#include <QObject>
#include <QRect>

#include "Brimble/Recording/AnnotationLayer.h"
#include "Brimble/Recording/ControlPanel.h"
#include "Brimble/Recording/PanelHost.h"
#include "Brimble/Recording/RecordingView.h"
#include "Brimble/Recording/RegionOverlay.h"
#include "Brimble/Recording/ScreenSnapshot.h"
#include "Brimble/Recording/WindowPicker.h"

namespace brimble {

class RecordingState;
class WindowSystem;

/// RecordingView over Qt: the overlay, the window picker and the control panel as windows,
/// messages as desktop notifications (org.freedesktop.Notifications) and on the panel's status
/// line. Main thread only.
class QtRecordingView final : public QObject, public RecordingView {
  Q_OBJECT

 public:
  /// `screens` and `windows` must outlive the view.
  QtRecordingView(ScreenSource& screens, WindowSystem& windows);
  ~QtRecordingView() override;

  /// The session the windows report to; set once, before the first session.
  void attach(RecordingState& state) { state_ = &state; }

  /// Every announcement and message also goes here (the status line of the main window).
  std::function<void(const QString& text)> onStatus;

  void showRegionOverlay() override;
  void showWindowPicker() override;
  void hideSelection() override;
  void showPanel(PanelMode mode, const ScreenRect& region) override;
  void showCountdown(int seconds, const std::string& accessibleText) override;
  void showElapsed(const std::string& text, const std::string& accessibleText) override;
  void showPaused(bool paused) override;
  void dismissPanel() override;
  void showAnnotationLayer(bool visible, bool drawing) override;
  void announce(const std::string& text) override;
  void showMessage(const std::string& text, MessageKind kind) override;

  /// The windows on screen now, for tests and screenshots; null when not shown.
  RegionOverlay* overlay() const { return overlay_.get(); }
  WindowPicker* picker() const { return picker_.get(); }
  ControlPanel* panel() const { return panel_.get(); }

 private:
  QRect desktop() const;
  /// The panel (and its host on Wayland), made once.
  void makePanel();
  void notify(const QString& text, MessageKind kind);

  ScreenSource& screens_;
  ScreenSnapshot snapshot_;
  WindowSystem& windows_;
  RecordingState* state_ = nullptr;
  std::unique_ptr<RegionOverlay> overlay_;
  std::unique_ptr<WindowPicker> picker_;
  /// Holds the panel on Wayland. Declared first so that it goes last: the panel, its child,
  /// leaves it when deleted, rather than being deleted with it.
  std::unique_ptr<PanelHost> panelHost_;
  std::unique_ptr<ControlPanel> panel_;
  std::unique_ptr<AnnotationLayer> annotations_;
  QRect panelRegion_;
};

}  // namespace brimble
