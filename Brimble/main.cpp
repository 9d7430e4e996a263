#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include <QApplication>
#include <QCoreApplication>
#include <QTimer>
#include <fmt/format.h>
#include <unistd.h>

#include "Brimble/AppInstance.h"
#include "Brimble/AppOptions.h"
#include "Brimble/AppShell.h"
#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Diagnostics/ProgramDiagnostics.h"
#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Platform/PlatformBackend.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Version.h"

namespace {

// `text` broken into lines of at most `width` columns, each after `indent` spaces but the first.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t width) {
  std::string out;
  std::size_t column = indent;
  while (!text.empty()) {
    const std::size_t end = text.find(' ');
    const std::string_view word = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (column > indent && column + 1 + word.size() > width) {
      out += "\n" + std::string(indent, ' ');
      column = indent;
    } else if (column > indent) {
      out += ' ';
      ++column;
    }
    out += word;
    column += word.size();
  }
  return out;
}

std::string usage() {
  constexpr std::size_t kWidth = 88;
  constexpr std::size_t kNameColumn = 14;
  std::string text = "Usage: brimble-app [--toggle]\n\n" +
                     wrapped(brimble::appOptions::kSummary, 0, kWidth) + "\n\nOptions:\n";
  for (const brimble::appOptions::AppOption& option : brimble::appOptions::kOptions) {
    std::string name = "  " + std::string(option.name);
    name.resize(kNameColumn, ' ');
    text += name + wrapped(option.help, kNameColumn, kWidth) + "\n";
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  brimble::startDiagnostics("brimble-app", brimble::kVersion, argc, argv);
  bool toggle = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--version") {
      std::printf("brimble-app %s\n", brimble::kVersion);
      return 0;
    }
    if (argument == "--help" || argument == "-h") {
      std::fputs(usage().c_str(), stdout);
      return 0;
    }
    if (argument == "--toggle") {
      toggle = true;
    } else {
      std::fprintf(stderr, "brimble-app: unknown option %s (see brimble-app --help)\n", argv[i]);
      return 2;
    }
  }
  // A desktop shortcut runs this: handing the press over must not wait for a whole GUI start.
  constexpr const char* kBecomeTheApp = "BRIMBLE_APP_TOGGLE_STARTS";
  if (toggle && std::getenv(kBecomeTheApp) == nullptr) {
    {
      QCoreApplication messenger(argc, argv);
      if (brimble::AppInstance::forward(brimble::AppInstance::Request::toggle)) {
        return 0;
      }
    }
    // None runs: this becomes the app, in a fresh process, since Qt takes one application
    // object per process.
    ::setenv(kBecomeTheApp, "1", 1);
    ::execv("/proc/self/exe", argv);
    std::fprintf(stderr, "brimble-app: cannot start itself: %s\n", std::strerror(errno));
    return 1;
  }
  ::unsetenv(kBecomeTheApp);  // not for the programs the app starts
  // Opened before Qt, which would abort with its own message where there is no session.
  std::unique_ptr<brimble::Desktop> desktop;
  try {
    desktop = brimble::platform::openDesktop(brimble::platform::DesktopChoice::user);
  } catch (const brimble::DesktopError& error) {
    std::fprintf(stderr, "brimble-app: %s: run it inside a desktop session (Wayland or X11)\n",
                 error.what());
    return 1;
  }
  // The app's windows live on the session it records: a Wayland client on Wayland, where an
  // XWayland window could not grab the keyboard for the overlay's keys.
  const bool wayland = desktop->session().server == brimble::DesktopSession::Server::wayland;
  ::setenv("QT_QPA_PLATFORM", wayland ? "wayland" : "xcb", 0);
  QApplication app(argc, argv);
  QApplication::setApplicationName("brimble");
  QApplication::setApplicationVersion(brimble::kVersion);
  QApplication::setApplicationDisplayName("Brimble");
  QApplication::setDesktopFileName(brimble::AppInstance::kAppId);

  brimble::AppInstance instance;
  if (!instance.claim()) {
    using Request = brimble::AppInstance::Request;
    if (brimble::AppInstance::forward(toggle ? Request::toggle : Request::activate)) {
      if (!toggle) {
        std::fputs("brimble-app: already running; showed it\n", stderr);
      }
      return 0;
    }
    std::fputs(
        "brimble-app: another brimble-app holds its name on the session bus but does not "
        "answer\n",
        stderr);
    return 1;
  }
  // Lives in the tray between recordings, and keeps serving the clipboard.
  QApplication::setQuitOnLastWindowClosed(false);
  brimble::ScreenRecorder::sweepOrphanedFrameFiles();
  // An encode the app did not live to finish leaves its empty temporary beside the clips.
  brimble::DiskFrameWriter::sweepOrphans(brimble::AppShell::captureDirectory(),
                                         brimble::ScreenRecorder::kOrphanedFrameFileAge);
  try {
    brimble::AppShell shell(*desktop);
    instance.onToggle = [&shell] { shell.session().handleHotkeyTrigger(); };
    instance.onActivate = [&shell] { shell.activate(); };
    shell.registerHotkey();
    if (shell.mainWindow() != nullptr) {
      QObject::connect(&app, &QApplication::lastWindowClosed, &app, &QApplication::quit);
    }
    const brimble::DesktopSession& session = desktop->session();
    brimble::logLine(fmt::format("Brimble: ready on the {} session {} ({})",
                                 brimble::serverName(session.server), session.name,
                                 session.reason));
    if (toggle) {
      // Started by the shortcut itself: that press asks for a recording too.
      QTimer::singleShot(0, &app, [&shell] { shell.session().handleHotkeyTrigger(); });
    }
    return QApplication::exec();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "brimble-app: %s\n", error.what());
    return 1;
  }
}
