#pragma once

#include <QPushButton>
#include <QWidget>

#include "Brimble/Onboarding/CapabilityChecklist.h"

namespace brimble {

/// Settings → Permissions: the checklist of what this desktop allows, as the first-run window
/// shows it, and "Check again" for after something was installed or granted. Main thread only.
class PermissionsPage final : public QWidget {
  Q_OBJECT

 public:
  explicit PermissionsPage(CapabilityChecklist::Probe probe = CapabilityChecklist::desktopProbe(),
                           QWidget* parent = nullptr);

  CapabilityChecklist& checklist() const noexcept { return *checklist_; }

 private:
  CapabilityChecklist* checklist_;
  QPushButton* again_;
};

}  // namespace brimble
