#pragma once

#include <QString>
#include <QWidget>

class QPushButton;

namespace brimble {

/// Help → About Brimble: the icon, this build's version, what Brimble is, its licence and where
/// its documentation and issue tracker are. "Copy Version" puts one line on the clipboard that a
/// problem report can quote: the version, Qt's, and the session the app runs in.
class AboutWindow : public QWidget {
  Q_OBJECT

 public:
  AboutWindow();

  /// "Brimble 0.1.0 (Qt 6.4.2, Wayland)": what Copy Version copies.
  static QString versionLine();

  QPushButton* copyVersionButton() const { return copyVersionButton_; }

 private:
  QPushButton* copyVersionButton_ = nullptr;
};

}  // namespace brimble
