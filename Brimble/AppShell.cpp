#include "Brimble/AppShell.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <QApplication>
#include <QFile>
#include <QHBoxLayout>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include "Brimble/AppIcon.h"
#include "Brimble/Diagnostics/ReportProblemWindow.h"
#include "Brimble/Recording/ScreenSessionRecorder.h"
#include "Brimble/Settings/CommandLineInstaller.h"
#include "Brimble/Settings/DesktopShortcutPanel.h"
#include "BrimbleCore/Diagnostics/UsageStatistics.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UserFolders.h"
#include "BrimbleCore/Support/Version.h"
#include "BrimbleCore/Updates/UpdateCheck.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

// The write end of the pipe that carries termination signals to the event loop; a signal
// handler may only write to a descriptor it can reach without locks.
std::atomic<int> terminationPipe{-1};

void forwardTerminationSignal(int signal) {
  const int savedErrno = errno;
  const auto byte = static_cast<char>(signal);
  [[maybe_unused]] const auto ignored = ::write(terminationPipe.load(), &byte, 1);
  errno = savedErrno;
}

}  // namespace

fs::path AppShell::captureDirectory() {
  return CaptureHistory::defaultPath().parent_path() / "captures";
}

AppShell::AppShell(Desktop& desktop)
    : desktop_(desktop),
      history_(CaptureHistory::defaultPath()),
      view_(std::make_unique<QtRecordingView>(desktop.screen(), desktop.windowSystem())) {
  RecordingState::Services services{
      *view_,
      delivery_,
      scheduler_,
      steadyClock(),
      [this] {
        // A Wayland client cannot keep the drawing layer above the other windows.
        return std::make_unique<ScreenSessionRecorder>(
            desktop_.screen(), steadyClock(),
            desktop_.session().server == DesktopSession::Server::wayland
                ? ScreenSessionRecorder::Marks::drawnIntoFrames
                : ScreenSessionRecorder::Marks::onScreen);
      },
      [this] { return settings_.load(); },
      history_,
      captureDirectory(),
      [](int count, const FrameSupplier& frameAt, const fs::path& output,
         const SequenceOptions& options, std::uint64_t budget,
         const SizeBudgetEncoder::PassStarted& passStarted) {
        return SizeBudgetEncoder::encode(count, frameAt, output, options, budget, passStarted);
      }};
  state_ = std::make_unique<RecordingState>(std::move(services));
  view_->attach(*state_);
  view_->onStatus = [this](const QString& text) { setStatus(text); };
  delivery_.onPreview = [this](const fs::path& file) { showEditor(file); };
  state_->onStateChange = [this](RecordingPhase phase) { phaseChanged(phase); };
  state_->onClipEncoded = [](const EncodedClip& clip) {
    UsageEvent event{.runs = 0, .recordings = 1, .renders = {}, .failure = {}};
    if (clip.failure) {
      event.failure = "app recording";
    } else {
      event.renders.emplace_back(rawValue(clip.format));
    }
    UsageStatistics::forUser().record(event);
  };
  state_->onEncodingProgress = [this](double progress, int pass) {
    const QString text = pass > 1
                             ? QString("Encoding GIF… %1% (pass %2, to fit the size limit)")
                                   .arg(static_cast<int>(progress * 100))
                                   .arg(pass)
                             : QString("Encoding GIF… %1%").arg(static_cast<int>(progress * 100));
    setStatus(text);
    if (tray_) {
      tray_->setToolTip("Brimble — " + text);
    }
  };

  watchTerminationSignals();
  buildMenu();
  if (QSystemTrayIcon::isSystemTrayAvailable()) {
    tray_ = std::make_unique<QSystemTrayIcon>(appIcon(false));
    tray_->setToolTip("Brimble");
    tray_->setContextMenu(menu_.get());
    connect(tray_.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
              if (reason == QSystemTrayIcon::Trigger) {
                state_->handleHotkeyTrigger();
              }
            });
    tray_->show();
  } else {
    buildMainWindow();
  }
  // Once the event loop runs: by then the shortcut is registered, or known not to be.
  if (!settings_.load().firstRunCompleted) {
    QTimer::singleShot(0, this, [this] { showWelcome(); });
  }
  updates_ = std::make_unique<UpdateNotifier>(
      updateFeedAddress(std::nullopt, BRIMBLE_UPDATE_FEED_URL), brimble::kVersion,
      UpdateSchedule(UpdateSchedule::defaultPath()));
  updates_->checkAtStart(settings_.load().checkForUpdates);
  // After the welcome window, so it is not hidden behind it.
  QTimer::singleShot(0, this, [this] { crashNotice_ = CrashNotice::showIfUnseen(CrashReports()); });
}

AppShell::~AppShell() {
  // From here on a signal ends the app the default way: there is no session left to save.
  if (signalPipeWrite_) {
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
      std::signal(signal, SIG_DFL);
    }
    terminationPipe = -1;
  }
}

void AppShell::watchTerminationSignals() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    logLine(std::string("Brimble: cannot watch for termination signals: ") + std::strerror(errno));
    return;
  }
  signalPipeRead_.reset(ends[0]);
  signalPipeWrite_.reset(ends[1]);
  terminationPipe = signalPipeWrite_.get();
  signalNotifier_ = std::make_unique<QSocketNotifier>(signalPipeRead_.get(), QSocketNotifier::Read);
  connect(signalNotifier_.get(), &QSocketNotifier::activated, this, [this] {
    char bytes[16];
    while (::read(signalPipeRead_.get(), bytes, sizeof bytes) > 0) {
    }
    terminationRequested();
  });
  struct sigaction action {};
  action.sa_handler = forwardTerminationSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
    ::sigaction(signal, &action, nullptr);
  }
}

void AppShell::terminationRequested() {
  const RecordingPhase phase = state_->phase();
  if (quitting_ && phase == RecordingPhase::encoding) {
    logLine("Brimble: asked again to quit, cancelling the encode");
    state_->cancelEncoding();
    QApplication::quit();
    return;
  }
  quitting_ = true;
  logLine(fmt::format("Brimble: asked to quit while {}", phaseName(phase)));
  if (phase == RecordingPhase::recording || phase == RecordingPhase::paused) {
    // The recording is the user's: it is encoded and kept in the library, as Stop would.
    state_->stopRecording();
  } else if (phase != RecordingPhase::encoding) {
    state_->cancelSelection();
  }
  // Otherwise phaseChanged quits once the encode is over.
  if (state_->phase() == RecordingPhase::idle) {
    QApplication::quit();
  }
}

void AppShell::buildMenu() {
  menu_ = std::make_unique<QMenu>();
  menu_->addAction("Record Region", this, [this] { state_->handleRegionTrigger(); });
  menu_->addAction("Record Window", this, [this] { state_->handleWindowTrigger(); });
  menu_->addAction("Record Full Screen", this, [this] { state_->handleFullScreenTrigger(); });
  stopAction_ = menu_->addAction("Stop Recording", this, [this] { state_->stopRecording(); });
  stopAction_->setVisible(false);
  menu_->addSeparator();
  menu_->addAction("Library…", this, [this] { showLibrary(); });
  menu_->addAction("Settings…", this, [this] { showSettings(); });
  menu_->addAction("Install Command-Line Tool", this, [this] { installCommandLine(); });
  QMenu* help = menu_->addMenu("Help");
  help->addAction("Welcome…", this, [this] { showWelcome(); });
  help->addAction("Report a Problem…", this, [this] { showReportProblem(); });
  help->addAction("About Brimble", this, [this] { showAbout(); });
  menu_->addSeparator();
  menu_->addAction("Quit Brimble", qApp, &QApplication::quit);
}

void AppShell::buildMainWindow() {
  mainWindow_ = std::make_unique<QWidget>();
  mainWindow_->setObjectName("brimble-main-window");
  mainWindow_->setWindowTitle("Brimble");
  mainWindow_->setWindowIcon(appIcon(false));
  auto* column = new QVBoxLayout(mainWindow_.get());
  auto* row = new QHBoxLayout;
  const auto addButton = [&](const QString& text, auto action) {
    auto* button = new QPushButton(text, mainWindow_.get());
    connect(button, &QPushButton::clicked, this, action);
    row->addWidget(button);
  };
  addButton("Region", [this] { state_->handleRegionTrigger(); });
  addButton("Window", [this] { state_->handleWindowTrigger(); });
  addButton("Full Screen", [this] { state_->handleFullScreenTrigger(); });
  addButton("Library", [this] { showLibrary(); });
  addButton("Settings", [this] { showSettings(); });
  auto* more = new QPushButton("More", mainWindow_.get());
  more->setMenu(menu_.get());
  row->addWidget(more);
  column->addLayout(row);
  status_ = new QLabel(mainWindow_.get());
  status_->setObjectName("status");
  status_->setWordWrap(true);
  status_->setMinimumWidth(360);
  // Room for two lines, so the longest announcement never resizes or clips the window.
  status_->setMinimumHeight(status_->fontMetrics().lineSpacing() * 2 + 4);
  status_->setAlignment(Qt::AlignLeft | Qt::AlignTop);
  column->addWidget(status_);
  setStatus(
      QString("Press %1 to record a region.").arg(QString::fromStdString(settings_.load().hotkey)));
  mainWindow_->show();
}

void AppShell::registerHotkey() {
  hotkeyNotifier_.reset();
  hotkey_.reset();
  const std::string shortcut = settings_.load().hotkey;
  try {
    hotkey_ = desktop_.makeGlobalHotkey(shortcut);
  } catch (const GlobalHotkeyError& error) {
    if (error.code() == GlobalHotkeyError::Code::unavailable) {
      setStatus(
          "This desktop gives apps no global shortcut: use these buttons, or a keyboard "
          "shortcut of the desktop that runs brimble-app --toggle.");
      // A new user's welcome says why and offers the desktop's own shortcut itself.
      if (!settings_.load().firstRunCompleted || offerDesktopShortcut()) {
        return;  // the desktop's own shortcut reaches the app instead
      }
    }
    logLine(std::string("Brimble: ") + error.what());
    view_->showMessage(error.what(), MessageKind::warning);
    return;
  }
  hotkeyNotifier_ = std::make_unique<QSocketNotifier>(hotkey_->eventFd(), QSocketNotifier::Read);
  const auto drain = [this] {
    for (int presses = hotkey_->takePresses(); presses > 0; --presses) {
      state_->handleHotkeyTrigger();
    }
  };
  connect(hotkeyNotifier_.get(), &QSocketNotifier::activated, this, drain);
  // Xlib may already hold events read along with a reply; the notifier only sees new bytes.
  scheduler_.post(drain);
}

void AppShell::activate() {
  if (mainWindow_) {
    mainWindow_->show();
    mainWindow_->raise();
    mainWindow_->activateWindow();
    return;
  }
  showLibrary();
}

bool AppShell::offerDesktopShortcut() {
  return brimble::offerDesktopShortcut(
      settings_, QCoreApplication::applicationFilePath().toStdString(), mainWindow_.get());
}

void AppShell::showReportProblem() {
  // Made afresh each time, so it shows the logs and checks of now.
  reportProblem_ = std::make_unique<ReportProblemWindow>();
  reportProblem_->show();
  reportProblem_->raise();
  reportProblem_->activateWindow();
}

void AppShell::showAbout() {
  if (!about_) {
    about_ = std::make_unique<AboutWindow>();
  }
  about_->show();
  about_->raise();
  about_->activateWindow();
}

void AppShell::showWelcome() {
  if (!welcome_) {
    welcome_ = std::make_unique<FirstRunWindow>();
    welcome_->onClosed = [this] {
      AppSettings settings = settings_.load();
      if (settings.firstRunCompleted) {
        return;
      }
      settings.firstRunCompleted = true;
      try {
        settings_.save(settings);
      } catch (const std::exception& error) {
        // The welcome comes back next time; nothing else depends on it.
        logLine(std::string("Brimble: ") + error.what());
      }
    };
    if (!hotkey_) {
      // The desktop's own shortcut, added from where the user reads why it is needed.
      welcome_->shortcutActions()->addWidget(new DesktopShortcutPanel(
          settings_, QCoreApplication::applicationFilePath().toStdString(), welcome_.get()));
      welcome_->shortcutActions()->addStretch();
    }
  } else if (!welcome_->isVisible()) {
    // Opened again from the menu, perhaps after something was installed: look again.
    welcome_->checklist().refresh();
  }
  updateWelcomeShortcut();
  welcome_->show();
  welcome_->raise();
  welcome_->activateWindow();
}

void AppShell::updateWelcomeShortcut() {
  if (welcome_) {
    // Quoted where a folder's name has a space, so the line can be pasted as it stands.
    QString program = QApplication::applicationFilePath();
    if (program.contains(' ')) {
      program = '"' + program + '"';
    }
    welcome_->setShortcut(QString::fromStdString(settings_.load().hotkey), hotkey_ != nullptr,
                          program + " --toggle");
  }
}

void AppShell::showLibrary() {
  if (!library_) {
    library_ = std::make_unique<LibraryWindow>(history_, delivery_);
    library_->onEdit = [this](const fs::path& file) { showEditor(file); };
  }
  library_->reload();
  library_->show();
  library_->raise();
  library_->activateWindow();
}

void AppShell::showEditor(const fs::path& file) {
  if (!editor_) {
    editor_ = std::make_unique<EditorWindow>();
    editor_->onRecordMore = [this] {
      editor_->hide();  // out of the way of the selection; back with the new frames
      state_->beginAppendCapture({OutputFormat::gif,
                                  [this](const fs::path& segment) {
                                    // Kept in the library too, so the new frames survive an editor
                                    // closed unsaved.
                                    history_.add(segment);
                                    editor_->appendSegment(segment);
                                    editor_->show();
                                    editor_->activateWindow();
                                  },
                                  [this] { editor_->show(); }});
    };
    editor_->onSaved = [this](const fs::path& written) {
      history_.add(written);
      if (library_ && library_->isVisible()) {
        library_->reload();
      }
    };
  }
  editor_->open(file);
  editor_->show();
  editor_->raise();
  editor_->activateWindow();
}

void AppShell::installCommandLine() {
  const auto resource = [](const char* name) {
    QFile file(QString(":/brimble/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string();
  };
  try {
    const fs::path binary =
        CommandLineInstaller::findBinary(QCoreApplication::applicationDirPath().toStdString());
    const fs::path bin = userFolders::home() / ".local" / "bin";
    const fs::path link = CommandLineInstaller::install(binary, bin);
    CommandLineInstaller::installDesktopEntry(
        QCoreApplication::applicationFilePath().toStdString(), userFolders::dataHome(),
        resource("org.brimble.Brimble.desktop"), resource("brimble.svg"));
    const char* path = std::getenv("PATH");
    std::string text = "Installed the brimble command as " + link.string() + ".";
    if (!CommandLineInstaller::isOnPath(bin, path != nullptr ? path : "")) {
      text += " Add " + bin.string() + " to your PATH to run it from a terminal.";
    }
    view_->showMessage(text, MessageKind::information);
  } catch (const CommandLineInstallerError& error) {
    view_->showMessage(error.what(), MessageKind::error);
  }
}

void AppShell::showSettings() {
  if (!settingsWindow_) {
    settingsWindow_ = std::make_unique<SettingsWindow>(settings_);
    settingsWindow_->onSaved = [this](const AppSettings&) {
      registerHotkey();
      updateWelcomeShortcut();
    };
  }
  settingsWindow_->reload();
  settingsWindow_->show();
  settingsWindow_->raise();
  settingsWindow_->activateWindow();
}

void AppShell::phaseChanged(RecordingPhase phase) {
  if (quitting_ && phase == RecordingPhase::idle) {
    QApplication::quit();
  }
  if (phase == RecordingPhase::idle) {
    if (library_ && library_->isVisible()) {
      library_->reload();
    }
    // An encode leaves tens of MB free in the worker threads' heaps; between recordings the
    // app waits in the background, so hand them back.
    scheduler_.post([] { malloc_trim(0); });
  }
  const bool recording = phase == RecordingPhase::recording || phase == RecordingPhase::paused;
  if (stopAction_ != nullptr) {
    stopAction_->setVisible(recording);
  }
  if (tray_) {
    tray_->setIcon(appIcon(recording));
    tray_->setToolTip(QString("Brimble — %1").arg(QString::fromUtf8(phaseName(phase).data())));
  }
  if (mainWindow_) {
    mainWindow_->setWindowIcon(appIcon(recording));
  }
}

void AppShell::setStatus(const QString& text) {
  if (status_ != nullptr) {
    status_->setText(text);
    status_->setAccessibleName(text);
  }
}

}  // namespace brimble
