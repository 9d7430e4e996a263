#pragma once

#include <chrono>
#include <vector>

#include "BrimbleCore/Platform/CapabilityCheck.h"

/// The checklist of what this machine offers Brimble, probed where the platform's backends
/// connect: the same checks for `brimble doctor`, the MCP permission tool and the app's
/// first-run window and Permissions page. Safe from any thread but one at a time; never shows
/// the user anything (no portal session is started, so no dialog).
namespace brimble::platform {

struct CheckOptions {
  /// How long a service that should already be running may take to answer.
  std::chrono::milliseconds quickAnswer{2000};
  /// How long a service the session bus starts on demand (the desktop portal, the
  /// accessibility bus) may take to come up and answer.
  std::chrono::milliseconds serviceStart{5000};
  /// Also what only scripts and assistants use (Brimble's own display, Chromium for pages,
  /// Tesseract for reading windows, the fonts of cards, the AI tools Brimble is registered
  /// with), which a desktop's recording by hand does without.
  bool scriptTools = false;
};

/// One check per capability, in the order they are shown: the display server, screen capture,
/// the remembered permission, input, the accessibility bus, (with `scriptTools`) Brimble's own
/// display, Chromium, Tesseract, fonts and the MCP hosts, the sound server, the command line,
/// and free temporary space.
/// Each is bounded by the options' timeouts, so a missing or stuck service costs seconds at
/// most.
std::vector<CapabilityCheck> checkCapabilities(const CheckOptions& options = {});

}  // namespace brimble::platform
