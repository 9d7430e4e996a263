#include "Brimble/Onboarding/FirstRunWindow.h"

#include <QCloseEvent>
#include <QFrame>
#include <QPushButton>
#include <QVBoxLayout>

namespace brimble {

namespace {

QLabel* heading(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  QFont font = label->font();
  font.setBold(true);
  font.setPointSizeF(font.pointSizeF() * 1.15);
  label->setFont(font);
  return label;
}

QFrame* separator(QWidget* parent) {
  auto* line = new QFrame(parent);
  line->setFrameShape(QFrame::HLine);
  line->setFrameShadow(QFrame::Sunken);
  return line;
}

}  // namespace

FirstRunWindow::FirstRunWindow(CapabilityChecklist::Probe probe) {
  setObjectName("brimble-first-run");
  setWindowTitle(kTitle);
  auto* column = new QVBoxLayout(this);
  column->setSpacing(10);

  auto* title = heading("Brimble records your screen as a small GIF", this);
  QFont big = title->font();
  big.setPointSizeF(big.pointSizeF() * 1.2);
  title->setFont(big);
  column->addWidget(title);
  steps_ = new QLabel(this);
  steps_->setObjectName("first-run-steps");
  steps_->setWordWrap(true);
  steps_->setTextFormat(Qt::RichText);
  column->addWidget(steps_);

  column->addWidget(separator(this));
  column->addWidget(heading("Your shortcut", this));
  shortcut_ = new QLabel(this);
  shortcut_->setObjectName("first-run-shortcut");
  shortcut_->setWordWrap(true);
  shortcut_->setTextFormat(Qt::RichText);
  shortcut_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  column->addWidget(shortcut_);
  shortcutActions_ = new QHBoxLayout;
  column->addLayout(shortcutActions_);

  column->addWidget(separator(this));
  column->addWidget(heading("What this desktop allows", this));
  checklist_ = new CapabilityChecklist(std::move(probe));
  column->addWidget(checklist_->scrolling(this), 1);

  auto* buttons = new QHBoxLayout;
  auto* again = new QPushButton("Check again", this);
  // Disabled while a look is under way, so one press is one look.
  again->setEnabled(false);
  connect(again, &QPushButton::clicked, this, [this, again] {
    again->setEnabled(false);
    checklist_->refresh();
  });
  connect(checklist_, &CapabilityChecklist::checked, again, [again] { again->setEnabled(true); });
  auto* start = new QPushButton("Start Using Brimble", this);
  start->setDefault(true);
  connect(start, &QPushButton::clicked, this, &QWidget::close);
  buttons->addWidget(again);
  buttons->addStretch(1);
  buttons->addWidget(start);
  column->addLayout(buttons);

  setShortcut("Ctrl+Shift+G", true, "brimble-app --toggle");
  resize(600, 680);
}

void FirstRunWindow::setShortcut(const QString& shortcut, bool global,
                                 const QString& toggleCommand) {
  const QString keys = "<b>" + shortcut.toHtmlEscaped() + "</b>";
  steps_->setText(QString("<ol style='margin-left: 0px; -qt-list-indent: 1;'>"
                          "<li>Press %1, wherever you are.</li>"
                          "<li>Select a region by dragging, or pick a window.</li>"
                          "<li>Stop with %1 or Return: the GIF is on the clipboard, ready to "
                          "paste, and in the library.</li></ol>")
                      .arg(global ? keys : "your shortcut"));
  if (global) {
    shortcut_->setText(
        QString("%1 starts and stops a recording. Change it under Settings.").arg(keys));
    return;
  }
  shortcut_->setText(
      QString("Brimble could not take %1 as a global shortcut here. Choose another under "
              "Settings, or add a keyboard shortcut in the desktop's settings that runs:<br>"
              "<code>%2</code>")
          .arg(keys, toggleCommand.toHtmlEscaped()));
}

void FirstRunWindow::closeEvent(QCloseEvent* event) {
  QWidget::closeEvent(event);
  if (event->isAccepted() && onClosed) {
    onClosed();
  }
}

}  // namespace brimble
