#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QSpinBox>
#include <QTimer>
#include <QWidget>

#include "BrimbleCore/Encoding/ClipEditor.h"
#include "BrimbleCore/Encoding/Frame.h"

namespace brimble {

/// The preview and editor of one clip: plays it, and makes an edited copy trimmed to a start
/// and end, cropped and sped up, written through the core's clip editing beside the original.
/// Main thread only.
class EditorWindow final : public QWidget {
  Q_OBJECT

 public:
  EditorWindow();

  /// Loads and plays `file`; false (with a message on the window) when it cannot be read.
  bool open(const std::filesystem::path& file);

  /// "Record More": the shell starts an append session and hands its segment to
  /// `appendSegment`.
  std::function<void()> onRecordMore;
  /// Adds the frames of `segment` to the end of the clip being edited; false (with a message on
  /// the window) when it cannot be read.
  bool appendSegment(const std::filesystem::path& segment);

  /// Called with the edited copy once written.
  std::function<void(const std::filesystem::path&)> onSaved;

  /// The edit the controls describe now.
  ClipEdit currentEdit() const;
  /// Writes the edited copy beside the original ("NAME edited.gif", numbered when taken) and
  /// returns its path. Throws ClipEditError and what the encoder throws.
  std::filesystem::path saveEditedCopy();

 private:
  void showFrame();

  std::filesystem::path file_;
  std::vector<ProcessedFrame> frames_;
  std::size_t current_ = 0;
  QTimer player_;
  QLabel* picture_;
  QLabel* info_;
  QDoubleSpinBox* trimStart_;
  QDoubleSpinBox* trimEnd_;
  QSpinBox* cropX_;
  QSpinBox* cropY_;
  QSpinBox* cropWidth_;
  QSpinBox* cropHeight_;
  QComboBox* speed_;
};

}  // namespace brimble
