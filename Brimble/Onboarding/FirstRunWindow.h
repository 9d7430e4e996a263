#pragma once

#include <functional>

#include <QHBoxLayout>
#include <QLabel>
#include <QString>
#include <QWidget>

#include "Brimble/Onboarding/CapabilityChecklist.h"

namespace brimble {

/// The window a new user meets ("Welcome to Brimble"): what Brimble does in three steps, the
/// shortcut that starts it (or, where the app could not take it as a global shortcut, the
/// command a desktop shortcut should run), and the checklist of what this desktop allows. Shown
/// on the first start and from the menu ("Welcome…"). Main thread only.
class FirstRunWindow final : public QWidget {
  Q_OBJECT

 public:
  static constexpr const char* kTitle = "Welcome to Brimble";

  explicit FirstRunWindow(CapabilityChecklist::Probe probe = CapabilityChecklist::desktopProbe());

  /// Says which shortcut starts a recording. `global` is whether the app holds it itself;
  /// where it does not, the window says that a desktop shortcut should run `toggleCommand`
  /// ("brimble-app --toggle", with its path).
  void setShortcut(const QString& shortcut, bool global, const QString& toggleCommand);

  /// Where buttons that act on the shortcut go (one that adds the desktop's own shortcut for
  /// `toggleCommand`, for instance): a row under the shortcut's text, empty until one is added.
  QHBoxLayout* shortcutActions() const noexcept { return shortcutActions_; }

  CapabilityChecklist& checklist() const noexcept { return *checklist_; }

  /// Told each time the window is closed, whichever way: the first run is over then.
  std::function<void()> onClosed;

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  QLabel* steps_;
  QLabel* shortcut_;
  QHBoxLayout* shortcutActions_;
  CapabilityChecklist* checklist_;
};

}  // namespace brimble
