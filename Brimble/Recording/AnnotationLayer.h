#pragma once

#include <functional>
#include <vector>

#include <QImage>
#include <QPainterPath>
#include <QWidget>

#include "Brimble/Recording/AnnotationStore.h"

namespace brimble {

/// Live annotation over the screen during a recording: a window as large as the desktop whose
/// shape is exactly the marks drawn so far, so the desktop shows through everywhere else and
/// the screen capture records the marks as they appear. While drawing it holds the pointer:
/// a drag draws a freehand stroke, with Shift an arrow, with Ctrl a rectangle. Main thread only.
///
/// On Wayland no window can be shaped or stay above the others, and mutter paints a clear
/// full-screen window's see-through parts black: there the layer is shown only while drawing,
/// full screen, over a still of the screen (`setBackground`), and takes the keyboard, whose keys
/// go to `onKey`; the marks reach the frames by being drawn into them.
class AnnotationLayer final : public QWidget {
  Q_OBJECT

 public:
  explicit AnnotationLayer(const QRect& desktop);

  /// Called with each finished mark, in screen coordinates.
  std::function<void(const Annotation&)> onAnnotation;

  /// Keys pressed while the layer has the keyboard (Wayland); true when used.
  std::function<bool(int key, bool shift)> onKey;

  /// Takes the pointer for drawing, or gives it back.
  void setDrawing(bool drawing);
  /// Paints `still` (the screen as it was) under the marks, and the layer is then opaque.
  void setBackground(const QImage& still);

  /// The outline of `annotation` as painted, for the window's shape and its painting.
  static QPainterPath pathOf(const Annotation& annotation);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void reshape();

  QPoint origin_;
  QImage background_;
  std::vector<Annotation> marks_;
  std::optional<Annotation> current_;
  bool drawing_ = false;
};

}  // namespace brimble
