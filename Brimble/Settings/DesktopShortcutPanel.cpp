#include "Brimble/Settings/DesktopShortcutPanel.h"

#include <QHBoxLayout>
#include <QMessageBox>

#include "Brimble/Settings/DesktopShortcut.h"
#include "BrimbleCore/Automation/GlobalHotkey.h"

namespace brimble {

namespace fs = std::filesystem;

DesktopShortcutPanel::DesktopShortcutPanel(const SettingsStore& store, fs::path app,
                                           QWidget* parent)
    : QWidget(parent), store_(store), app_(std::move(app)), button_(new QPushButton(this)) {
  setObjectName("desktop-shortcut");
  button_->setObjectName("desktop-shortcut-button");
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->addWidget(button_);
  row->addStretch();
  connect(button_, &QPushButton::clicked, this, &DesktopShortcutPanel::clicked);
  refresh();
}

void DesktopShortcutPanel::refresh() {
  const std::string keys = store_.load().hotkey;
  const DesktopShortcut shortcut = DesktopShortcut::ofThisSession();
  canAdd_ = shortcut.canAdd();
  DesktopShortcut::State state = DesktopShortcut::State::absent;
  QString status;
  try {
    state = shortcut.state(keys, app_);
  } catch (const DesktopShortcutError& error) {
    status = QString::fromStdString(error.what());
  }
  // An outdated one is updated rather than removed: the user wanted it.
  added_ = state == DesktopShortcut::State::current;
  const QString command = QString::fromStdString(DesktopShortcut::toggleCommand(app_));
  const QString key = QString::fromStdString(keys);
  if (!status.isEmpty()) {
    // Could not be read: the error says why.
  } else if (state == DesktopShortcut::State::current) {
    status = QString("%1 runs %2, a keyboard shortcut of this desktop.").arg(key, command);
  } else if (state == DesktopShortcut::State::outdated) {
    status =
        QString("This desktop's shortcut for Brimble no longer runs %1 on %2.").arg(command, key);
  } else {
    status = QString(
                 "Where the desktop gives apps no global shortcuts (GNOME before 48 on "
                 "Wayland), a keyboard shortcut of the desktop running %1 starts recording "
                 "instead.")
                 .arg(command);
  }
  button_->setToolTip(status);
  button_->setAccessibleDescription(status);
  if (!canAdd_) {
    button_->setText("How to Add It to the Desktop…");
  } else if (added_) {
    button_->setText("Remove from Desktop");
  } else {
    button_->setText(state == DesktopShortcut::State::outdated ? "Update on Desktop"
                                                               : "Add to Desktop");
  }
}

void DesktopShortcutPanel::clicked() {
  const DesktopShortcut shortcut = DesktopShortcut::ofThisSession();
  const std::string keys = store_.load().hotkey;
  if (!canAdd_) {
    QMessageBox how(QMessageBox::Information, "Brimble",
                    QString::fromStdString(shortcut.instructions(keys, app_)), QMessageBox::Ok,
                    this);
    // The command is to be copied into the desktop's settings.
    how.setTextInteractionFlags(Qt::TextSelectableByMouse);
    how.exec();
    return;
  }
  try {
    if (added_) {
      shortcut.remove();
    } else {
      shortcut.add(keys, app_);
    }
  } catch (const std::exception& error) {
    QMessageBox::warning(this, "Brimble", QString::fromStdString(error.what()));
  }
  refresh();
}

namespace {

/// A message box that goes when answered and leaves the caller running meanwhile: the app is
/// starting, and `brimble-app --toggle` must reach it while the question waits.
QMessageBox* openMessage(QMessageBox::Icon icon, const QString& text, QWidget* parent) {
  auto* box = new QMessageBox(icon, "Brimble", text, QMessageBox::NoButton, parent);
  box->setAttribute(Qt::WA_DeleteOnClose);
  return box;
}

}  // namespace

bool offerDesktopShortcut(const SettingsStore& store, const fs::path& app, QWidget* parent) {
  AppSettings settings = store.load();
  const DesktopShortcut shortcut = DesktopShortcut::ofThisSession();
  const auto tell = [parent](const std::exception& error) {
    openMessage(QMessageBox::Warning, QString::fromStdString(error.what()), parent)->open();
  };
  try {
    switch (shortcut.state(settings.hotkey, app)) {
      case DesktopShortcut::State::current:
        return true;
      case DesktopShortcut::State::outdated:
        // The user added it once; new keys or a moved app must not leave it running nothing.
        shortcut.add(settings.hotkey, app);
        return true;
      case DesktopShortcut::State::absent:
        break;
    }
    if (settings.desktopShortcutOffered) {
      return false;
    }
    settings.desktopShortcutOffered = true;
    store.save(settings);
  } catch (const std::exception& error) {
    tell(error);
    return false;
  }
  if (!shortcut.canAdd()) {
    QMessageBox* how =
        openMessage(QMessageBox::Information,
                    QString::fromStdString("To record with " + settings.hotkey + ": " +
                                           shortcut.instructions(settings.hotkey, app)),
                    parent);
    how->setStandardButtons(QMessageBox::Ok);
    // The command is to be copied into the desktop's settings.
    how->setTextInteractionFlags(Qt::TextSelectableByMouse);
    how->open();
    return false;
  }
  QMessageBox* question = openMessage(QMessageBox::Question,
                                      QString("Add %1 as a keyboard shortcut of this desktop? It "
                                              "runs brimble-app --toggle.")
                                          .arg(QString::fromStdString(settings.hotkey)),
                                      parent);
  question->setObjectName("desktop-shortcut-offer");
  QPushButton* add = question->addButton("Add", QMessageBox::AcceptRole);
  question->addButton("Not now", QMessageBox::RejectRole);
  QObject::connect(question, &QMessageBox::buttonClicked, question,
                   [add, keys = settings.hotkey, app, tell](QAbstractButton* clicked) {
                     if (clicked != add) {
                       return;
                     }
                     try {
                       DesktopShortcut::ofThisSession().add(keys, app);
                     } catch (const std::exception& error) {
                       tell(error);
                     }
                   });
  question->open();
  return false;
}

}  // namespace brimble
