#include "Brimble/Library/LibraryWindow.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "Brimble/Recording/ClipDelivery.h"
#include "BrimbleCore/Encoding/GIFDecoder.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

QString sizeText(std::uintmax_t bytes) {
  return QLocale().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
}

/// "2026-01-31T09:05:00Z" in the user's local time.
QString dateText(const std::string& createdAt) {
  const QDateTime date = QDateTime::fromString(QString::fromStdString(createdAt), Qt::ISODate);
  return date.isValid() ? QLocale().toString(date.toLocalTime(), QLocale::ShortFormat)
                        : QString::fromStdString(createdAt);
}

}  // namespace

LibraryWindow::LibraryWindow(const CaptureHistory& history, ClipDelivery& delivery)
    : history_(history), delivery_(delivery) {
  setObjectName("brimble-library");
  setWindowTitle("Library");
  resize(760, 520);
  list_ = new QListWidget(this);
  list_->setViewMode(QListView::IconMode);
  list_->setIconSize(QSize(200, 130));
  list_->setGridSize(QSize(230, 200));
  list_->setResizeMode(QListView::Adjust);
  list_->setMovement(QListView::Static);
  list_->setWordWrap(true);
  list_->setAccessibleName("Recent captures");
  connect(list_, &QListWidget::itemActivated, this, [this] { open(); });

  auto* buttons = new QHBoxLayout;
  const auto add = [&](const QString& text, void (LibraryWindow::*action)()) {
    auto* button = new QPushButton(text, this);
    connect(button, &QPushButton::clicked, this, action);
    buttons->addWidget(button);
  };
  add("Open", &LibraryWindow::open);
  add("Copy", &LibraryWindow::copy);
  add("Show in Folder", &LibraryWindow::reveal);
  auto* edit = new QPushButton("Edit", this);
  connect(edit, &QPushButton::clicked, this, [this] {
    if (const auto path = selectedPath(); path && onEdit) {
      onEdit(*path);
    }
  });
  buttons->addWidget(edit);
  buttons->addStretch();
  add("Delete", &LibraryWindow::remove);
  auto* column = new QVBoxLayout(this);
  column->addWidget(list_);
  column->addLayout(buttons);
}

QImage LibraryWindow::thumbnail(const fs::path& file, const QSize& size) {
  if (file.extension() != ".gif") {
    return {};
  }
  try {
    GIFDecoder decoder(file);
    const auto frame = decoder.next();
    if (!frame) {
      return {};
    }
    const Image image = frame->image.toBGRA8();
    return QImage(image.bytes().data(), image.width(), image.height(),
                  static_cast<qsizetype>(image.bytesPerRow()), QImage::Format_ARGB32_Premultiplied)
        .scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  } catch (const std::exception&) {
    return {};  // a damaged file still gets its entry, without a picture
  }
}

void LibraryWindow::reload() {
  list_->clear();
  for (const CaptureHistory::Entry& entry : history_.entries()) {
    std::error_code error;
    if (!fs::exists(entry.path, error)) {
      continue;
    }
    const QImage picture = thumbnail(entry.path, list_->iconSize());
    auto* item = new QListWidgetItem(QString("%1\n%2 · %3")
                                         .arg(QString::fromStdString(entry.filename),
                                              sizeText(entry.fileSize), dateText(entry.createdAt)),
                                     list_);
    if (!picture.isNull()) {
      item->setIcon(QIcon(QPixmap::fromImage(picture)));
    }
    item->setData(Qt::UserRole, QString::fromStdString(entry.path.string()));
    item->setToolTip(QString::fromStdString(entry.path.string()));
  }
  if (list_->count() > 0) {
    list_->setCurrentRow(0);
  }
}

std::optional<fs::path> LibraryWindow::selectedPath() const {
  const QListWidgetItem* item = list_->currentItem();
  if (item == nullptr) {
    return std::nullopt;
  }
  return fs::path(item->data(Qt::UserRole).toString().toStdString());
}

void LibraryWindow::open() {
  if (const auto path = selectedPath()) {
    QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(path->string())));
  }
}

void LibraryWindow::copy() {
  const auto path = selectedPath();
  if (!path) {
    return;
  }
  const auto format = outputFormatFromExtension(path->extension().string());
  try {
    delivery_.copyToClipboard(*path, format.value_or(OutputFormat::gif));
  } catch (const std::exception& error) {
    QMessageBox::warning(this, "Brimble", QString::fromStdString(error.what()));
  }
}

void LibraryWindow::reveal() {
  if (const auto path = selectedPath()) {
    QDesktopServices::openUrl(
        QUrl::fromLocalFile(QString::fromStdString(path->parent_path().string())));
  }
}

void LibraryWindow::remove() {
  const auto path = selectedPath();
  if (!path) {
    return;
  }
  const auto answer =
      QMessageBox::question(this, "Delete Capture",
                            QString("Delete %1? The file is removed from disk.")
                                .arg(QString::fromStdString(path->filename().string())));
  if (answer != QMessageBox::Yes) {
    return;
  }
  std::error_code error;
  fs::remove(*path, error);
  if (error) {
    QMessageBox::warning(
        this, "Brimble",
        QString("Couldn't delete %1: %2")
            .arg(QString::fromStdString(path->string()), QString::fromStdString(error.message())));
    return;
  }
  history_.remove(*path);
  reload();
}

}  // namespace brimble
