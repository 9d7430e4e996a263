#include "Brimble/Library/EditorWindow.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/GIFDecoder.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

QImage toQImage(const Image& image) {
  const Image bgra = image.toBGRA8();
  return QImage(bgra.bytes().data(), bgra.width(), bgra.height(),
                static_cast<qsizetype>(bgra.bytesPerRow()), QImage::Format_ARGB32_Premultiplied)
      .copy();
}

}  // namespace

EditorWindow::EditorWindow() {
  setObjectName("brimble-editor");
  setWindowTitle("Preview");
  picture_ = new QLabel(this);
  picture_->setAlignment(Qt::AlignCenter);
  picture_->setMinimumSize(320, 200);
  picture_->setAccessibleName("Clip preview");
  info_ = new QLabel(this);
  trimStart_ = new QDoubleSpinBox(this);
  trimEnd_ = new QDoubleSpinBox(this);
  for (QDoubleSpinBox* box : {trimStart_, trimEnd_}) {
    box->setDecimals(2);
    box->setSingleStep(0.1);
    box->setSuffix(" s");
  }
  cropX_ = new QSpinBox(this);
  cropY_ = new QSpinBox(this);
  cropWidth_ = new QSpinBox(this);
  cropHeight_ = new QSpinBox(this);
  speed_ = new QComboBox(this);
  for (double factor : {0.5, 1.0, 1.5, 2.0, 3.0, 4.0}) {
    speed_->addItem(QString("%1×").arg(factor), factor);
  }
  speed_->setCurrentIndex(1);

  auto* form = new QFormLayout;
  auto* trimRow = new QHBoxLayout;
  trimRow->addWidget(trimStart_);
  trimRow->addWidget(new QLabel("to", this));
  trimRow->addWidget(trimEnd_);
  form->addRow("Keep from:", trimRow);
  auto* cropRow = new QHBoxLayout;
  for (auto [label, box] :
       {std::pair{"x", cropX_}, {"y", cropY_}, {"width", cropWidth_}, {"height", cropHeight_}}) {
    cropRow->addWidget(new QLabel(label, this));
    cropRow->addWidget(box);
  }
  form->addRow("Crop:", cropRow);
  form->addRow("Speed:", speed_);
  auto* save = new QPushButton("Save Edited Copy", this);
  connect(save, &QPushButton::clicked, this, [this] {
    try {
      const fs::path written = saveEditedCopy();
      info_->setText(QString("Saved %1").arg(QString::fromStdString(written.filename().string())));
      if (onSaved) {
        onSaved(written);
      }
    } catch (const std::exception& error) {
      QMessageBox::warning(this, "Brimble", QString::fromStdString(error.what()));
    }
  });
  auto* more = new QPushButton("Record More", this);
  more->setToolTip("Record another piece and add it to the end of this clip");
  connect(more, &QPushButton::clicked, this, [this] {
    if (onRecordMore) {
      onRecordMore();
    }
  });
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(more);
  buttons->addStretch();
  buttons->addWidget(save);
  auto* column = new QVBoxLayout(this);
  column->addWidget(picture_, 1);
  column->addWidget(info_);
  column->addLayout(form);
  column->addLayout(buttons);
  connect(&player_, &QTimer::timeout, this, [this] {
    if (!frames_.empty()) {
      current_ = (current_ + 1) % frames_.size();
      showFrame();
    }
  });
}

bool EditorWindow::open(const fs::path& file) {
  player_.stop();
  frames_.clear();
  file_ = file;
  try {
    frames_ = GIFDecoder(file).readAll();
  } catch (const std::exception& error) {
    picture_->clear();
    info_->setText(QString("Couldn't open %1: %2")
                       .arg(QString::fromStdString(file.filename().string()),
                            QString::fromStdString(error.what())));
    return false;
  }
  if (frames_.empty()) {
    info_->setText("This clip has no frames.");
    return false;
  }
  setWindowTitle(QString("Preview of %1").arg(QString::fromStdString(file.filename().string())));
  const int width = frames_.front().image.width();
  const int height = frames_.front().image.height();
  const double length = ClipEditor::duration(frames_);
  trimStart_->setRange(0, length);
  trimEnd_->setRange(0, length);
  trimStart_->setValue(0);
  trimEnd_->setValue(length);
  cropX_->setRange(0, width - 1);
  cropY_->setRange(0, height - 1);
  cropWidth_->setRange(1, width);
  cropHeight_->setRange(1, height);
  cropX_->setValue(0);
  cropY_->setValue(0);
  cropWidth_->setValue(width);
  cropHeight_->setValue(height);
  speed_->setCurrentIndex(1);
  info_->setText(QString("%1×%2, %3 frames, %4 s")
                     .arg(width)
                     .arg(height)
                     .arg(frames_.size())
                     .arg(length, 0, 'f', 2));
  current_ = 0;
  showFrame();
  return true;
}

bool EditorWindow::appendSegment(const fs::path& segment) {
  std::vector<ProcessedFrame> added;
  try {
    added = GIFDecoder(segment).readAll();
  } catch (const std::exception& error) {
    info_->setText(
        QString("Couldn't add the new recording: %1").arg(QString::fromStdString(error.what())));
    return false;
  }
  frames_ = ClipEditor::append(frames_, added);
  const double length = ClipEditor::duration(frames_);
  const bool wholeClip = trimEnd_->value() >= trimEnd_->maximum() - 0.005;
  trimStart_->setRange(0, length);
  trimEnd_->setRange(0, length);
  if (wholeClip) {
    trimEnd_->setValue(length);
  }
  info_->setText(QString("%1 frames added; %2 frames, %3 s. Save an edited copy to keep them.")
                     .arg(added.size())
                     .arg(frames_.size())
                     .arg(length, 0, 'f', 2));
  return true;
}

void EditorWindow::showFrame() {
  const ProcessedFrame& frame = frames_[current_];
  QPixmap pixmap = QPixmap::fromImage(toQImage(frame.image));
  if (pixmap.width() > 800) {
    pixmap = pixmap.scaledToWidth(800, Qt::SmoothTransformation);
  }
  picture_->setPixmap(pixmap);
  player_.start(std::max(20, static_cast<int>(frame.delay * 1000)));
}

ClipEdit EditorWindow::currentEdit() const {
  ClipEdit edit;
  if (frames_.empty()) {
    return edit;
  }
  const double length = ClipEditor::duration(frames_);
  if (trimStart_->value() > 0 || trimEnd_->value() < length - 0.005) {
    edit.trimStart = trimStart_->value();
    edit.trimEnd = trimEnd_->value();
  }
  const PixelRect crop{cropX_->value(), cropY_->value(), cropWidth_->value(), cropHeight_->value()};
  if (crop != PixelRect{0, 0, frames_.front().image.width(), frames_.front().image.height()}) {
    edit.crop = crop;
  }
  edit.speed = speed_->currentData().toDouble();
  return edit;
}

fs::path EditorWindow::saveEditedCopy() {
  const std::vector<ProcessedFrame> edited = ClipEditor::apply(frames_, currentEdit());
  fs::path output = file_.parent_path() / (file_.stem().string() + " edited.gif");
  for (int n = 2; fs::exists(output); ++n) {
    output =
        file_.parent_path() / (file_.stem().string() + " edited " + std::to_string(n) + ".gif");
  }
  ClipEncoder::encode(edited, output, {.tuning = {.paletteStrategy = PaletteStrategy::automatic}});
  return output;
}

}  // namespace brimble
