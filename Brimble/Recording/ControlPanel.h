#pragma once

#include <functional>

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include "Brimble/Recording/RecordingView.h"

namespace brimble {

/// The floating recording control panel: Start and Cancel when a region is ready, the countdown,
/// then the timer with Pause/Resume, Stop, Save, Share and Cancel. A status line carries the
/// session's announcements for screen readers. It is placed beside the recorded region, never
/// over it. Main thread only.
class ControlPanel final : public QWidget {
  Q_OBJECT

 public:
  ControlPanel();

  std::function<void()> onStart;
  std::function<void()> onCancel;
  std::function<void()> onPause;
  std::function<void()> onStop;
  std::function<void()> onSave;
  std::function<void()> onShare;
  std::function<void()> onDraw;
  /// Keys pressed while the panel has the focus; returns whether handled.
  std::function<bool(int key, bool shift)> onKey;

  void setMode(PanelMode mode);
  void setCountdown(int seconds, const QString& accessibleText);
  void setElapsed(const QString& text, const QString& accessibleText);
  void setPausedLook(bool paused);
  void setDrawingLook(bool drawing);
  void setStatus(const QString& text);

  /// Where the panel goes for `region` on `desktop`: below it, else above, else beside it; no
  /// value when the region leaves no room (the panel then stays hidden while recording, so it
  /// is never captured).
  static std::optional<QPoint> placement(const QRect& region, const QSize& panel,
                                         const QRect& desktop);

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  QLabel* big_;
  QLabel* status_;
  QPushButton* start_;
  QPushButton* pause_;
  QPushButton* stop_;
  QPushButton* save_;
  QPushButton* share_;
  QPushButton* draw_;
  QPushButton* cancel_;
};

}  // namespace brimble
