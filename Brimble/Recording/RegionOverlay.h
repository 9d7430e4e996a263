#pragma once

#include <functional>

#include <QImage>
#include <QRect>
#include <QWidget>

namespace brimble {

/// The region selection overlay: a dimmed still of the screen over the whole desktop, on which
/// the user drags a rectangle, then moves it or pulls its eight handles, with its size shown
/// beside it. Keys go to `onKey`; Escape before a region exists cancels. Main thread only.
class RegionOverlay final : public QWidget {
  Q_OBJECT

 public:
  /// `background` is what the screen showed; the overlay covers `desktop`.
  RegionOverlay(const QImage& background, const QRect& desktop);

  /// A region was drawn (the first time) or changed (after that), in screen coordinates.
  std::function<void(const QRect&)> onRegionDrawn;
  std::function<void(const QRect&)> onRegionChanged;
  /// A key; returns whether it was handled.
  std::function<bool(int key, bool shift)> onKey;
  std::function<void()> onCancel;

  const QRect& region() const noexcept { return region_; }

  static constexpr int kMinimumSize = 16;
  static constexpr int kHandleSize = 10;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  enum class Drag {
    none,
    draw,
    move,
    left,
    right,
    top,
    bottom,
    topLeft,
    topRight,
    bottomLeft,
    bottomRight
  };

  Drag dragAt(const QPoint& point) const;
  QRect handleRect(Drag handle) const;
  void updateCursor(const QPoint& point);

  QImage background_;
  QPoint origin_;  // the desktop's top left in screen coordinates
  QRect region_;   // in screen coordinates; empty until drawn
  bool drawn_ = false;
  Drag drag_ = Drag::none;
  QPoint dragStart_;
  QRect regionAtDragStart_;
};

}  // namespace brimble
