#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <QApplication>

#include "Brimble/AppShell.h"
#include "BrimbleCore/Capture/ScreenRecorder.h"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--version") == 0) {
      std::printf("brimble-app %s\n", BRIMBLE_VERSION);
      return 0;
    }
  }
  const char* display = std::getenv("DISPLAY");
  if (display == nullptr || *display == '\0') {
    // Qt would abort with its own message; say what to do instead.
    std::fprintf(stderr,
                 "brimble-app: no X11 display: run it inside an X11 session (DISPLAY is not "
                 "set)\n");
    return 1;
  }
  QApplication app(argc, argv);
  QApplication::setApplicationName("brimble");
  QApplication::setApplicationDisplayName("Brimble");
  QApplication::setDesktopFileName("brimble");
  // Lives in the tray between recordings, and keeps serving the clipboard.
  QApplication::setQuitOnLastWindowClosed(false);
  brimble::ScreenRecorder::sweepOrphanedFrameFiles();
  try {
    brimble::AppShell shell;
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
