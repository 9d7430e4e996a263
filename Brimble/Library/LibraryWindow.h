#pragma once

#include <functional>

#include <QListWidget>
#include <QWidget>

#include "BrimbleCore/Support/CaptureHistory.h"

namespace brimble {

class ClipDelivery;

/// The library: the recent captures from the library index, newest first, each with a
/// thumbnail, its size and date; open, copy, reveal in the file manager, edit or delete the one
/// selected. Main thread only.
class LibraryWindow final : public QWidget {
  Q_OBJECT

 public:
  /// `history` and `delivery` must outlive the window.
  LibraryWindow(const CaptureHistory& history, ClipDelivery& delivery);

  /// Reads the index again; entries whose file is gone are left out.
  void reload();

  /// Opens the editor for a clip; the shell sets it.
  std::function<void(const std::filesystem::path&)> onEdit;

  /// The first frame of a GIF as a thumbnail of at most `size`; null for other files or when
  /// it cannot be read.
  static QImage thumbnail(const std::filesystem::path& file, const QSize& size);

 private:
  std::optional<std::filesystem::path> selectedPath() const;
  void open();
  void copy();
  void reveal();
  void remove();

  const CaptureHistory& history_;
  ClipDelivery& delivery_;
  QListWidget* list_;
};

}  // namespace brimble
