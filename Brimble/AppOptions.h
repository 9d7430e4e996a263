#pragma once

#include <array>
#include <string_view>

// The command line of brimble-app, read by its --help and by the manual page `brimble manual`
// writes for it; plain data, with no Qt, so that the `brimble` command can read it too.
namespace brimble::appOptions {

struct AppOption {
  std::string_view name;
  std::string_view help;
};

inline constexpr std::string_view kSummary =
    "Brimble's desktop app: records a region, a window or the screen to a GIF, from the tray "
    "(or a small window where the desktop has no tray) and a global shortcut.";

inline constexpr std::array kOptions = {
    AppOption{"--toggle",
              "start a recording, or stop the one running, in the app already running (what a "
              "desktop keyboard shortcut runs); starts the app if none runs"},
    AppOption{"--version", "print the version and exit"},
    AppOption{"--help", "print this help and exit"},
};

}  // namespace brimble::appOptions
