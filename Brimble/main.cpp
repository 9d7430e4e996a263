#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include <QApplication>

#include "Brimble/AppShell.h"
#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Platform/PlatformBackend.h"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--version") == 0) {
      std::printf("brimble-app %s\n", BRIMBLE_VERSION);
      return 0;
    }
  }
  // Opened before Qt, which would abort with its own message where there is no session.
  std::unique_ptr<brimble::Desktop> desktop;
  try {
    desktop = brimble::platform::openDesktop(brimble::platform::DesktopChoice::userX11);
  } catch (const brimble::DesktopError& error) {
    std::fprintf(stderr,
                 "brimble-app: %s: the app needs an X11 display (on a Wayland desktop, its "
                 "XWayland)\n",
                 error.what());
    return 1;
  }
  QApplication app(argc, argv);
  QApplication::setApplicationName("brimble");
  QApplication::setApplicationDisplayName("Brimble");
  QApplication::setDesktopFileName("brimble");
  // Lives in the tray between recordings, and keeps serving the clipboard.
  QApplication::setQuitOnLastWindowClosed(false);
  brimble::ScreenRecorder::sweepOrphanedFrameFiles();
  // An encode the app did not live to finish leaves its empty temporary beside the clips.
  brimble::DiskFrameWriter::sweepOrphans(brimble::AppShell::captureDirectory(),
                                         brimble::ScreenRecorder::kOrphanedFrameFileAge);
  try {
    brimble::AppShell shell(*desktop);
    shell.registerHotkey();
    if (shell.mainWindow() != nullptr) {
      QObject::connect(&app, &QApplication::lastWindowClosed, &app, &QApplication::quit);
    }
    return QApplication::exec();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "brimble-app: %s\n", error.what());
    return 1;
  }
}
