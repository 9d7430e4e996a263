#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <QImage>
#include <QWidget>

#include "BrimbleCore/Automation/WindowSystem.h"

namespace brimble {

/// The window picker: a still of the screen over the whole desktop on which the window under
/// the pointer is outlined with its title; a click chooses it, Escape cancels. Main thread only.
class WindowPicker final : public QWidget {
  Q_OBJECT

 public:
  /// `windows` bottom to top, as the window manager stacks them.
  WindowPicker(const QImage& background, const QRect& desktop, std::vector<WindowInfo> windows);

  std::function<void(std::uint32_t windowID)> onPick;
  std::function<void()> onCancel;

  /// The topmost window at `point` (screen coordinates); null when none.
  const WindowInfo* windowAt(const QPoint& point) const;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  QImage background_;
  QPoint origin_;
  std::vector<WindowInfo> windows_;
  const WindowInfo* highlighted_ = nullptr;
};

}  // namespace brimble
