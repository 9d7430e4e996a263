#include "Brimble/Recording/QtClipDelivery.h"

#include <stdexcept>

#include <QApplication>
#include <QClipboard>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDesktopServices>
#include <QFile>
#include <QFileDialog>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>
#include <QUrl>
#include <fmt/format.h>

#include "Brimble/Recording/ScreenCovering.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

void QtClipDelivery::copyToClipboard(const std::filesystem::path& file, OutputFormat format) {
  QFile input(QString::fromStdString(file.string()));
  if (!input.open(QIODevice::ReadOnly)) {
    throw std::runtime_error("Couldn't read " + file.string() + ".");
  }
  const QByteArray bytes = input.readAll();
  const QUrl url = QUrl::fromLocalFile(QString::fromStdString(file.string()));
  auto* data = new QMimeData;  // the clipboard takes ownership
  const std::string_view mime = mimeType(format);
  data->setData(QString::fromUtf8(mime.data(), static_cast<qsizetype>(mime.size())), bytes);
  data->setData("text/uri-list", url.toEncoded() + "\r\n");
  data->setData("x-special/gnome-copied-files", "copy\n" + url.toEncoded());
  if (onWayland() && QGuiApplication::focusWindow() == nullptr) {
    takeKeyboardFocus(QString("%1 copied to the clipboard")
                          .arg(QString::fromUtf8(label(format).data(),
                                                 static_cast<qsizetype>(label(format).size()))));
  }
  QApplication::clipboard()->setMimeData(data, QClipboard::Clipboard);
}

void QtClipDelivery::takeKeyboardFocus(const QString& text) {
  if (!note_) {
    note_ = std::make_unique<QLabel>();
    note_->setObjectName("brimble-copied-note");
    note_->setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    note_->setWindowTitle("Brimble");
    note_->setMargin(16);
    note_->setStyleSheet("background: #202124; color: white; font-size: 14pt;");
  }
  note_->setText(text);
  note_->adjustSize();
  note_->show();
  note_->raise();
  note_->activateWindow();
  const QDeadlineTimer deadline(1000);
  while (!note_->isActiveWindow() && !deadline.hasExpired()) {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  }
  logLine(fmt::format("Brimble: the copied note {} the keyboard after {} ms",
                      note_->isActiveWindow() ? "took" : "did not get",
                      1000 - deadline.remainingTime()));
  QTimer::singleShot(1500, note_.get(), [note = note_.get()] { note->hide(); });
}

std::optional<std::filesystem::path> QtClipDelivery::chooseSaveLocation(
    const std::filesystem::path& suggested, OutputFormat format) {
  const std::string extension(fileExtension(format));
  const QString filter = QString("%1 (*.%2)")
                             .arg(QString::fromUtf8(label(format).data(),
                                                    static_cast<qsizetype>(label(format).size())))
                             .arg(QString::fromStdString(extension));
  QString chosen = QFileDialog::getSaveFileName(nullptr, "Save Recording",
                                                QString::fromStdString(suggested.string()), filter);
  if (chosen.isEmpty()) {
    return std::nullopt;
  }
  if (!chosen.endsWith("." + QString::fromStdString(extension), Qt::CaseInsensitive)) {
    chosen += "." + QString::fromStdString(extension);
  }
  return std::filesystem::path(chosen.toStdString());
}

void QtClipDelivery::share(const std::filesystem::path& file) {
  if (!QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(file.string())))) {
    throw std::runtime_error("No application is set up to open " + file.filename().string() + ".");
  }
}

void QtClipDelivery::openPreview(const std::filesystem::path& file) {
  if (onPreview) {
    onPreview(file);
  }
}

}  // namespace brimble
