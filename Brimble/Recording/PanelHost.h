#pragma once

#include <QPoint>
#include <QSize>
#include <QWidget>

namespace brimble {

/// Where the control panel lives on Wayland, where a window cannot be placed: a transparent,
/// maximized window with the panel inside it, where the panel should be. Only the panel is
/// painted and takes the pointer; clicks anywhere else reach the windows below. It takes the
/// keyboard, so Space, Return and Escape reach the session while recording. (Full screen would
/// place it exactly, but mutter paints a full-screen window's see-through parts black.)
///
/// A maximized window covers the desktop's work area, and a Wayland client is not told where
/// that lies on the screen: the panel may show lower or further right than asked, by at most
/// `slack()` (the room the desktop's own bars take).
class PanelHost final : public QWidget {
  Q_OBJECT

 public:
  PanelHost();

  /// Takes `panel` in (it stays the caller's: it leaves again before the host goes).
  void adopt(QWidget& panel);
  /// Shows the host and waits briefly until the desktop has sized it.
  void prepare();
  /// How much smaller than the screen the desktop made the host.
  QSize slack() const;
  /// Shows the panel at `at`, in screen coordinates (up to `slack()` off), and takes the keyboard.
  void showPanelAt(const QPoint& at);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void followPanel();

  QWidget* panel_ = nullptr;
  /// Whether the desktop has maximized it once (and will again at the same size).
  bool sized_ = false;
};

}  // namespace brimble
