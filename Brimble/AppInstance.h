#pragma once

#include <functional>

#include <QObject>

namespace brimble {

/// One running app per session, reachable over the session bus as `org.brimble.Brimble`: a
/// Wayland desktop gives no program a global shortcut of its own, so the desktop's shortcut runs
/// `brimble-app --toggle`, which hands the press to the app already running. Main thread only.
class AppInstance final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.brimble.Brimble")

 public:
  /// The app's id: its bus name, its desktop entry's name and what the portals know it by.
  static constexpr const char* kAppId = "org.brimble.Brimble";

  /// What a second start asks of the first.
  enum class Request { toggle, activate };

  /// Hands `request` to the app running in this session. False when none runs (or there is no
  /// session bus), so the caller becomes the app.
  static bool forward(Request request);

  AppInstance() = default;

  /// Takes the app's name on the session bus. False when another instance holds it; true, with a
  /// line in the log, when there is no session bus to take it on (the app runs alone then).
  bool claim();

  std::function<void()> onToggle;
  std::function<void()> onActivate;

 public slots:
  /// `activationToken`: what the desktop gave the command its shortcut ran
  /// ($XDG_ACTIVATION_TOKEN), so the overlay may take the keyboard; empty when none.
  Q_SCRIPTABLE void Toggle(const QString& activationToken);
  Q_SCRIPTABLE void Activate();
};

}  // namespace brimble
