#include "Brimble/Settings/PermissionsPage.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace brimble {

PermissionsPage::PermissionsPage(CapabilityChecklist::Probe probe, QWidget* parent)
    : QWidget(parent) {
  setObjectName("brimble-permissions");
  auto* column = new QVBoxLayout(this);
  auto* intro = new QLabel(
      "What Brimble can use on this desktop. Anything missing says what to install or do.", this);
  intro->setWordWrap(true);
  column->addWidget(intro);
  checklist_ = new CapabilityChecklist(std::move(probe));
  column->addWidget(checklist_->scrolling(this), 1);
  auto* buttons = new QHBoxLayout;
  again_ = new QPushButton("Check again", this);
  // Disabled while a look is under way, so one press is one look.
  again_->setEnabled(false);
  connect(again_, &QPushButton::clicked, this, [this] {
    again_->setEnabled(false);
    checklist_->refresh();
  });
  connect(checklist_, &CapabilityChecklist::checked, this, [this] { again_->setEnabled(true); });
  buttons->addWidget(again_);
  buttons->addStretch(1);
  column->addLayout(buttons);
}

}  // namespace brimble
