#include "BrimbleCore/Platform/CapabilityProbe.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <fontconfig/fontconfig.h>

#include "BrimbleCore/Automation/ChromeLauncher.h"
#include "BrimbleCore/Capture/SoundServerProbe.h"
#include "BrimbleCore/MCP/MCPInstaller.h"
#include "BrimbleCore/Platform/PlatformBackend.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/RestoreTokenFile.h"
#include "BrimbleCore/Platform/Wayland/SessionBusProbe.h"
#include "BrimbleCore/Platform/X11/DisplayProbe.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble::platform {
namespace {

namespace fs = std::filesystem;

// The portal's bits for what ScreenCast shares and what RemoteDesktop drives.
constexpr unsigned kMonitorSource = 1;
constexpr unsigned kWindowSource = 2;
constexpr unsigned kKeyboardDevice = 1;
constexpr unsigned kPointerDevice = 2;

// Below this, a long recording's frames may not fit where they are kept until the encode: five
// minutes at 24 fps come to about 700 MB of JPEG frames.
constexpr std::uintmax_t kEnoughTemporarySpace = 1'000'000'000;

constexpr const char* kPortalFix =
    "install xdg-desktop-portal and the desktop's backend (Debian: xdg-desktop-portal-gnome, or "
    "xdg-desktop-portal-kde on KDE)";

CapabilityCheck ok(const char* id, const char* title, std::string detail, bool required) {
  return {id, title, CapabilityStatus::ok, std::move(detail), {}, required};
}

CapabilityCheck missing(const char* id, const char* title, std::string detail, std::string fix,
                        bool required) {
  return {id, title, CapabilityStatus::missing, std::move(detail), std::move(fix), required};
}

CapabilityCheck notNeeded(const char* id, const char* title, std::string detail, bool required) {
  return {id, title, CapabilityStatus::notNeeded, std::move(detail), {}, required};
}

std::string serverLabel(const DesktopSession& session) {
  return std::string(session.server == DesktopSession::Server::wayland ? "Wayland" : "X11") + " (" +
         session.name + ")";
}

CapabilityCheck displayCheck(const std::optional<DesktopSession>& session) {
  constexpr const char* title = "Display server";
  if (!session) {
    return missing(capability::display, title, texts().sessionMissing,
                   "run Brimble inside a desktop session (Wayland or X11); scripts and assistants "
                   "can use Brimble's own display (--headless)",
                   true);
  }
  // Which desktop, where it says: fixes and behaviour differ between GNOME and KDE.
  const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
  const std::string on = desktop != nullptr && *desktop != '\0' && !session->embedded
                             ? std::string(" on ") + desktop
                             : std::string();
  return ok(capability::display, title, serverLabel(*session) + on + ": " + session->reason, true);
}

struct X11Findings {
  std::string name;
  x11::DisplayOffer offer;
  /// Why nothing was found: the server took longer than the timeout.
  std::string stuck;
};

/// Asks the display on a thread of its own: Xlib waits without end for a server that accepts
/// the connection but never answers it, and a checklist must come back. A probe that does not
/// finish in time is left to finish (or not) by itself; it touches nothing of ours.
X11Findings probeX11(const std::string& name, std::chrono::milliseconds timeout) {
  auto answer = std::make_shared<std::promise<x11::DisplayOffer>>();
  std::future<x11::DisplayOffer> offer = answer->get_future();
  std::thread([answer, name] { answer->set_value(x11::probeDisplay(name)); }).detach();
  if (offer.wait_for(timeout) != std::future_status::ready) {
    return {name,
            {},
            "the X11 display " + name + " does not answer within " +
                std::to_string(timeout.count()) + " ms"};
  }
  return {name, offer.get(), {}};
}

CapabilityCheck x11ScreenCheck(const X11Findings& x11) {
  constexpr const char* title = "Screen capture";
  if (!x11.stuck.empty()) {
    return missing(capability::screenCapture, title, x11.stuck,
                   "restart the X server of " + x11.name +
                       ", or record in Brimble's own display with --headless",
                   true);
  }
  if (!x11.offer.reachable) {
    return missing(capability::screenCapture, title,
                   "the X11 display " + x11.name + " does not accept a connection",
                   "run Brimble inside the X11 session ($DISPLAY names it, with its "
                   "$XAUTHORITY), or record in Brimble's own display with --headless",
                   true);
  }
  if (!x11.offer.captures) {
    return missing(capability::screenCapture, title,
                   "the X11 display " + x11.name + " answers but gives no pixels back",
                   "use an X server that lets its clients read the screen (Xorg, Xvfb), or "
                   "record in Brimble's own display with --headless",
                   true);
  }
  return ok(capability::screenCapture, title,
            "the X11 display " + x11.name + " can be captured (" +
                std::to_string(x11.offer.size.width) + "x" + std::to_string(x11.offer.size.height) +
                ")",
            true);
}

CapabilityCheck x11InputCheck(const X11Findings& x11) {
  constexpr const char* title = "Input for scripts and assistants";
  if (!x11.stuck.empty()) {
    return missing(capability::input, title, x11.stuck, "restart the X server of " + x11.name,
                   false);
  }
  if (!x11.offer.reachable) {
    return missing(capability::input, title,
                   "the X11 display " + x11.name + " does not accept a connection",
                   "run Brimble inside the X11 session ($DISPLAY names it)", false);
  }
  if (!x11.offer.xtest) {
    return missing(
        capability::input, title, "the X11 display " + x11.name + " has no XTest extension",
        "use an X server with the XTest extension (Debian: xserver-xorg-core or xvfb)", false);
  }
  return ok(capability::input, title,
            "keys and clicks go in through the XTest extension of " + x11.name, false);
}

CapabilityCheck portalScreenCheck(const wayland::SessionBusProbe::PortalInterface& screenCast) {
  constexpr const char* title = "Screen capture";
  if (screenCast.version == 0) {
    return missing(capability::screenCapture, title, screenCast.problem, kPortalFix, true);
  }
  std::vector<std::string> shares;
  if ((screenCast.types & kMonitorSource) != 0) {
    shares.emplace_back("screens");
  }
  if ((screenCast.types & kWindowSource) != 0) {
    shares.emplace_back("windows");
  }
  return ok(capability::screenCapture, title,
            "the desktop portal's ScreenCast (version " + std::to_string(screenCast.version) + ")" +
                (shares.empty() ? std::string() : " shares " + listedInWords(shares)),
            true);
}

CapabilityCheck portalInputCheck(const wayland::SessionBusProbe::PortalInterface& remote) {
  constexpr const char* title = "Input for scripts and assistants";
  if (remote.version == 0) {
    return missing(capability::input, title, remote.problem, kPortalFix, false);
  }
  std::vector<std::string> drives;
  if ((remote.types & kKeyboardDevice) != 0) {
    drives.emplace_back("the keyboard");
  }
  if ((remote.types & kPointerDevice) != 0) {
    drives.emplace_back("the pointer");
  }
  return ok(capability::input, title,
            "the desktop portal's RemoteDesktop (version " + std::to_string(remote.version) + ")" +
                (drives.empty() ? std::string() : " drives " + listedInWords(drives)),
            false);
}

CapabilityCheck rememberedPermissionCheck(const std::optional<DesktopSession>& session) {
  constexpr const char* title = "Remembered permission";
  if (!session) {
    return notNeeded(capability::rememberedPermission, title, "no desktop session to share", false);
  }
  if (session->server == DesktopSession::Server::x11) {
    return notNeeded(capability::rememberedPermission, title,
                     "X11 lets its clients capture the screen without asking", false);
  }
  const fs::path file = screenCastTokenFile();
  if (wayland::RestoreTokenFile(file, "the screen-sharing permission").read().empty()) {
    return missing(capability::rememberedPermission, title,
                   "the desktop has not been asked yet (nothing kept in " + file.string() + ")",
                   "record once and choose the screen in the desktop's sharing dialog: the "
                   "choice is remembered from then on",
                   false);
  }
  return ok(capability::rememberedPermission, title,
            "the desktop's answer is kept in " + file.string() + ", so it does not ask again",
            false);
}

CapabilityCheck accessibilityCheck(wayland::SessionBusProbe& bus) {
  constexpr const char* title = "Accessibility bus";
  const wayland::SessionBusProbe::AccessibilityBus answer = bus.accessibilityBus();
  if (!answer.answers) {
    return missing(capability::accessibility, title, answer.detail,
                   "install at-spi2-core (Debian: at-spi2-core) and run Brimble in a desktop "
                   "session with a session bus",
                   false);
  }
  return ok(capability::accessibility, title, "AT-SPI answers, so scripts can find elements",
            false);
}

CapabilityCheck soundCheck(std::chrono::milliseconds timeout) {
  constexpr const char* title = "Sound server";
  const SoundServerAnswer answer = probeSoundServer(timeout);
  if (!answer.server) {
    return missing(capability::soundServer, title,
                   "no PulseAudio or PipeWire server answers (" + answer.problem + ")",
                   "install PipeWire's PulseAudio service (Debian: pipewire-pulse and wireplumber) "
                   "or pulseaudio; until then MP4s are recorded without sound",
                   false);
  }
  return ok(capability::soundServer, title, *answer.server + " answers, for MP4 sound", false);
}

CapabilityCheck commandLineCheck() {
  constexpr const char* title = "Command line on PATH";
  if (const auto program = findProgram("brimble")) {
    return ok(capability::commandLine, title, "brimble is " + program->string(), false);
  }
  return missing(capability::commandLine, title, "no folder of $PATH holds brimble",
                 "choose Install Command-Line Tool in brimble-app's menu (a link in "
                 "~/.local/bin), and have ~/.local/bin on $PATH",
                 false);
}

CapabilityCheck chromiumCheck() {
  constexpr const char* title = "Chromium for page targets";
  const std::string browser = ChromeLauncher::findBrowser();
  if (browser.empty()) {
    return missing(capability::chromium, title, "no Chromium or Google Chrome on $PATH",
                   "install chromium (Debian: chromium) for scripts that drive web pages", false);
  }
  return ok(capability::chromium, title,
            browser + " is " + findProgram(browser).value_or(browser).string(), false);
}

CapabilityCheck tesseractCheck() {
  constexpr const char* title = "Tesseract for reading windows";
  if (const auto program = findProgram("tesseract")) {
    return ok(capability::tesseract, title, "tesseract is " + program->string(), false);
  }
  return missing(capability::tesseract, title, "no tesseract on $PATH",
                 "install tesseract-ocr and tesseract-ocr-eng (Debian), which wait-for-text needs "
                 "for windows other than terminals",
                 false);
}

CapabilityCheck ownDisplayCheck() {
  constexpr const char* title = "Brimble's own display";
  std::vector<std::string> absent;
  std::vector<std::string> packages;
  for (const auto& [program, package] :
       {std::pair{"Xvfb", "xvfb"}, std::pair{"openbox", "openbox"}, std::pair{"xterm", "xterm"}}) {
    if (!findProgram(program)) {
      absent.emplace_back(program);
      packages.emplace_back(package);
    }
  }
  if (!absent.empty()) {
    return missing(capability::ownDisplay, title, "no " + listedInWords(absent) + " on $PATH",
                   "install " + listedInWords(packages) +
                       " (Debian), which brimble run and --headless record in",
                   true);
  }
  return ok(capability::ownDisplay, title,
            "Xvfb, openbox and xterm are there for brimble run and --headless", true);
}

using FontPattern = std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)>;

/// The font fontconfig gives for `pattern` ("Sans", "monospace"), as its family name, and
/// whether it draws in colour; no value when the machine has no font at all.
struct FontMatch {
  std::string family;
  bool colour = false;
};
std::optional<FontMatch> matchFont(const char* pattern) {
  FontPattern wanted(FcNameParse(reinterpret_cast<const FcChar8*>(pattern)), FcPatternDestroy);
  if (!wanted) {
    return std::nullopt;
  }
  FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
  FcDefaultSubstitute(wanted.get());
  FcResult result = FcResultNoMatch;
  FontPattern found(FcFontMatch(nullptr, wanted.get(), &result), FcPatternDestroy);
  FcChar8* family = nullptr;
  if (!found || FcPatternGetString(found.get(), FC_FAMILY, 0, &family) != FcResultMatch) {
    return std::nullopt;
  }
  FcBool colour = FcFalse;
  FcPatternGetBool(found.get(), FC_COLOR, 0, &colour);
  return FontMatch{reinterpret_cast<const char*>(family), colour == FcTrue};
}

CapabilityCheck fontsCheck() {
  constexpr const char* title = "Fonts";
  const auto sans = matchFont("Sans");
  const auto mono = matchFont("monospace");
  if (!sans || !mono) {
    return missing(capability::fonts, title, "fontconfig finds no font",
                   "install fonts-dejavu-core (Debian) for cards, captions and terminals", true);
  }
  std::string detail = "cards in " + sans->family + ", terminals in " + mono->family;
  const auto emoji = matchFont("emoji");
  if (!emoji || !emoji->colour) {
    return missing(capability::fonts, title, detail + "; no colour emoji font",
                   "install fonts-noto-color-emoji (Debian) for emoji in cards and captions",
                   false);
  }
  return ok(capability::fonts, title, detail + ", emoji in " + emoji->family, false);
}

CapabilityCheck mcpHostsCheck() {
  constexpr const char* title = "AI tools (MCP)";
  std::vector<std::string> registered;
  std::vector<std::string> detected;
  try {
    const MCPInstaller installer(MCPInstaller::userHomeDirectory(), "");
    for (const MCPClientStatus& status : installer.detectClients()) {
      const std::string name(status.client.displayName());
      if (status.registered) {
        registered.push_back(name);
      } else if (status.detected) {
        detected.push_back(name);
      }
    }
  } catch (const std::exception& error) {
    return missing(capability::mcpHosts, title, error.what(), "set $HOME to your home folder",
                   false);
  }
  if (!registered.empty()) {
    return ok(capability::mcpHosts, title,
              "Brimble is registered with " + listedInWords(registered), false);
  }
  if (detected.empty()) {
    return notNeeded(capability::mcpHosts, title, "no AI tool that Brimble can register with",
                     false);
  }
  return missing(
      capability::mcpHosts, title,
      listedInWords(detected) + (detected.size() == 1 ? " is" : " are") + " here without Brimble",
      "brimble mcp-install", false);
}

/// "640 MB", "66.7 GB".
std::string spaceText(std::uintmax_t bytes) {
  if (bytes < 1'000'000'000) {
    return std::to_string(bytes / 1'000'000) + " MB";
  }
  const std::uintmax_t tenths = bytes / 100'000'000;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " GB";
}

CapabilityCheck temporarySpaceCheck() {
  constexpr const char* title = "Free temporary space";
  const fs::path folder = temporaryDirectory();
  std::error_code error;
  const fs::space_info space = fs::space(folder, error);
  if (error) {
    return missing(capability::temporarySpace, title,
                   folder.string() + " cannot be used (" + error.message() + ")",
                   "point $TMPDIR at a folder you can write to", false);
  }
  if (space.available < kEnoughTemporarySpace) {
    return missing(capability::temporarySpace, title,
                   "only " + spaceText(space.available) + " free in " + folder.string() +
                       ", where recordings keep their frames",
                   "free space in " + folder.string() + ", or point $TMPDIR at a folder with more",
                   false);
  }
  return ok(capability::temporarySpace, title,
            spaceText(space.available) + " free in " + folder.string(), false);
}

}  // namespace

std::vector<CapabilityCheck> checkCapabilities(const CheckOptions& options) {
  const std::optional<DesktopSession> session = userSession();
  std::vector<CapabilityCheck> checks{displayCheck(session)};
  wayland::SessionBusProbe bus(options.serviceStart);
  if (!session) {
    const std::string none = "no desktop session (" + texts().sessionMissing + ")";
    const std::string fix = "run Brimble inside a desktop session (Wayland or X11)";
    checks.push_back(missing(capability::screenCapture, "Screen capture", none,
                             fix + ", or record in Brimble's own display with --headless", true));
    checks.push_back(rememberedPermissionCheck(session));
    checks.push_back(
        missing(capability::input, "Input for scripts and assistants", none, fix, false));
  } else if (session->server == DesktopSession::Server::x11) {
    const X11Findings x11 = probeX11(session->name, options.quickAnswer);
    checks.push_back(x11ScreenCheck(x11));
    checks.push_back(rememberedPermissionCheck(session));
    checks.push_back(x11InputCheck(x11));
  } else {
    checks.push_back(portalScreenCheck(
        bus.portalInterface(wayland::DesktopPortal::kScreenCast, "AvailableSourceTypes")));
    checks.push_back(rememberedPermissionCheck(session));
    checks.push_back(portalInputCheck(
        bus.portalInterface(wayland::DesktopPortal::kRemoteDesktop, "AvailableDeviceTypes")));
  }
  checks.push_back(accessibilityCheck(bus));
  if (options.scriptTools) {
    checks.push_back(ownDisplayCheck());
    checks.push_back(chromiumCheck());
    checks.push_back(tesseractCheck());
    checks.push_back(fontsCheck());
    checks.push_back(mcpHostsCheck());
  }
  checks.push_back(soundCheck(options.quickAnswer));
  checks.push_back(commandLineCheck());
  checks.push_back(temporarySpaceCheck());
  return checks;
}

}  // namespace brimble::platform
