#pragma once

#include <functional>
#include <memory>

#include <QLabel>
#include <QObject>

#include "Brimble/Recording/ClipDelivery.h"

namespace brimble {

/// ClipDelivery over Qt: the clipboard offers the clip as image data, as a file URI list and as
/// GNOME's copied-files type, so chats, browsers and file managers each find what they paste;
/// X11 has no clipboard store, so the app keeps serving it while it runs. Saving asks through
/// QFileDialog, sharing opens the file with the desktop's default handler. A Wayland desktop takes
/// the clipboard only from a client with the keyboard: where none of the app's windows has it
/// when the clip is ready, a small "copied" note comes up first and takes it. Main thread only.
class QtClipDelivery final : public QObject, public ClipDelivery {
  Q_OBJECT

 public:
  QtClipDelivery() = default;

  /// Opens the preview window; the shell sets it.
  std::function<void(const std::filesystem::path&)> onPreview;

  void copyToClipboard(const std::filesystem::path& file, OutputFormat format) override;
  std::optional<std::filesystem::path> chooseSaveLocation(const std::filesystem::path& suggested,
                                                          OutputFormat format) override;
  void share(const std::filesystem::path& file) override;
  void openPreview(const std::filesystem::path& file) override;

 private:
  /// Shows the note and waits, briefly, until it has the keyboard.
  void takeKeyboardFocus(const QString& text);

  std::unique_ptr<QLabel> note_;
};

}  // namespace brimble
