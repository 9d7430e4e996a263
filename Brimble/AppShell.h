#pragma once

#include <memory>

#include <QLabel>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSocketNotifier>
#include <QSystemTrayIcon>
#include <QWidget>

#include "Brimble/Diagnostics/CrashNotice.h"
#include "Brimble/AboutWindow.h"
#include "Brimble/Diagnostics/ReportProblemWindow.h"
#include "Brimble/Library/EditorWindow.h"
#include "Brimble/Library/LibraryWindow.h"
#include "Brimble/Onboarding/FirstRunWindow.h"
#include "Brimble/Recording/QtClipDelivery.h"
#include "Brimble/Recording/QtRecordingView.h"
#include "Brimble/Recording/QtSessionScheduler.h"
#include "Brimble/Recording/RecordingState.h"
#include "Brimble/Settings/SettingsStore.h"
#include "Brimble/Settings/SettingsWindow.h"
#include "Brimble/Settings/UpdateNotifier.h"
#include "BrimbleCore/Automation/GlobalHotkey.h"
#include "BrimbleCore/Platform/Desktop.h"
#include "BrimbleCore/Support/CaptureHistory.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// The application: the status-tray icon and its menu (or a small main window where the
/// desktop has no tray), the global shortcut, and the recording session with its windows. The
/// composition root of the desktop app. Main thread only.
class AppShell final : public QObject {
  Q_OBJECT

 public:
  /// `desktop` is the user's session, and outlives the shell. Throws when its windows cannot
  /// be reached.
  explicit AppShell(Desktop& desktop);
  ~AppShell() override;

  RecordingState& session() { return *state_; }
  QtRecordingView& view() { return *view_; }
  /// The main window when there is no tray; null otherwise.
  QWidget* mainWindow() const { return mainWindow_.get(); }

  /// Grabs the shortcut from the settings; on failure the user is told and the app runs on
  /// without it.
  void registerHotkey();
  /// Where the desktop gives apps no global shortcut: asks once to add the desktop's own
  /// shortcut running `brimble-app --toggle` (or says how), and keeps one the user added up to
  /// date. Whether it now stands in for the global shortcut.
  bool offerDesktopShortcut();

  /// What starting the app again shows: the main window, or the library where the tray holds
  /// the app.
  void activate();
  void showLibrary();
  void showSettings();
  /// The welcome window: the three steps, the shortcut, and what this desktop allows.
  void showWelcome();
  /// Help → Report a Problem: the report, to read and save.
  void showReportProblem();
  void showAbout();
  void showEditor(const std::filesystem::path& file);
  /// Links `brimble` into ~/.local/bin and adds the app to the desktop's menus.
  void installCommandLine();
  EditorWindow* editor() const { return editor_.get(); }
  LibraryWindow* library() const { return library_.get(); }
  SettingsWindow* settingsWindow() const { return settingsWindow_.get(); }
  FirstRunWindow* welcomeWindow() const { return welcome_.get(); }

  /// The folder encoded clips are kept in: $XDG_DATA_HOME/brimble/captures (with the library
  /// index beside it).
  static std::filesystem::path captureDirectory();

 private:
  void buildMenu();
  void buildMainWindow();
  /// SIGTERM, SIGHUP and SIGINT (a logout, a shutdown, Ctrl-C) reach the event loop through a
  /// pipe, as terminationRequested.
  void watchTerminationSignals();
  /// Quits as Stop would end the session: a recording in progress is encoded and kept, an encode
  /// finishes, a selection is dropped; then the app quits. Asked again during an encode, the
  /// encode is cancelled (its partial file removed) and the app quits at once.
  void terminationRequested();
  void phaseChanged(RecordingPhase phase);
  void setStatus(const QString& text);
  /// The welcome's shortcut text follows the settings and whether the shortcut was taken.
  void updateWelcomeShortcut();

  Desktop& desktop_;
  SettingsStore settings_;
  CaptureHistory history_;
  QtSessionScheduler scheduler_;
  std::unique_ptr<QtRecordingView> view_;
  QtClipDelivery delivery_;
  std::unique_ptr<RecordingState> state_;

  bool quitting_ = false;
  UniqueFd signalPipeRead_;
  UniqueFd signalPipeWrite_;
  std::unique_ptr<QSocketNotifier> signalNotifier_;

  std::unique_ptr<GlobalHotkey> hotkey_;
  std::unique_ptr<QSocketNotifier> hotkeyNotifier_;

  std::unique_ptr<QMenu> menu_;
  QAction* stopAction_ = nullptr;
  std::unique_ptr<QSystemTrayIcon> tray_;
  std::unique_ptr<QWidget> mainWindow_;
  QLabel* status_ = nullptr;
  std::unique_ptr<LibraryWindow> library_;
  std::unique_ptr<SettingsWindow> settingsWindow_;
  std::unique_ptr<EditorWindow> editor_;
  std::unique_ptr<FirstRunWindow> welcome_;
  std::unique_ptr<ReportProblemWindow> reportProblem_;
  std::unique_ptr<AboutWindow> about_;
  std::unique_ptr<UpdateNotifier> updates_;
  std::unique_ptr<CrashNotice> crashNotice_;
};

}  // namespace brimble
