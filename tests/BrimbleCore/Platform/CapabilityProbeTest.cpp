#include "BrimbleCore/Platform/CapabilityProbe.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "BrimbleCore/Capture/PrivateSoundServer.h"
#include "BrimbleCore/MCP/MCPInstaller.h"
#include "BrimbleCore/Platform/PlatformBackend.h"
#include "BrimbleCore/Platform/Wayland/RestoreTokenFile.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Support/UniqueFd.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/WaylandSession.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::Not;

/// The check with `id`, which every checklist has.
CapabilityCheck checkOf(const std::vector<CapabilityCheck>& checks, const char* id) {
  const CapabilityCheck* check = findCheck(checks, id);
  EXPECT_NE(check, nullptr) << id;
  return check != nullptr ? *check : CapabilityCheck{};
}

/// Every missing check says what to do, and only missing ones do.
void expectFixesWhereMissing(const std::vector<CapabilityCheck>& checks) {
  for (const CapabilityCheck& check : checks) {
    EXPECT_FALSE(check.title.empty()) << check.id;
    EXPECT_FALSE(check.detail.empty()) << check.id;
    if (check.status == CapabilityStatus::missing) {
      EXPECT_FALSE(check.fix.empty()) << check.id << " is missing and says no fix";
    } else {
      EXPECT_TRUE(check.fix.empty()) << check.id;
    }
  }
}

/// No Wayland session in this process's environment; each test runs in a process of its own.
void forgetWayland() {
  ::unsetenv("WAYLAND_DISPLAY");
  ::unsetenv("XDG_SESSION_TYPE");
}

TEST(CapabilityProbe, AnXDisplayIsCapturedAndDrivenWithoutAPermissionToRemember) {
  forgetWayland();
  const auto display = x11::HeadlessDisplay::start();
  const std::vector<CapabilityCheck> checks = platform::checkCapabilities();

  const CapabilityCheck server = checkOf(checks, capability::display);
  EXPECT_EQ(server.status, CapabilityStatus::ok);
  EXPECT_EQ(server.detail, "X11 (" + display->displayName() + "): $DISPLAY names it");
  const CapabilityCheck screen = checkOf(checks, capability::screenCapture);
  EXPECT_EQ(screen.status, CapabilityStatus::ok) << screen.detail;
  EXPECT_THAT(screen.detail, HasSubstr(display->displayName()));
  EXPECT_THAT(screen.detail, HasSubstr("1920x1080"));
  EXPECT_EQ(checkOf(checks, capability::rememberedPermission).status, CapabilityStatus::notNeeded);
  EXPECT_EQ(checkOf(checks, capability::input).status, CapabilityStatus::ok);
  EXPECT_TRUE(mainJobsReady(checks));
  expectFixesWhereMissing(checks);
}

TEST(CapabilityProbe, WithoutADisplayTheSessionAndTheScreenAreMissingAndRecordingIsNotReady) {
  forgetWayland();
  ::unsetenv("DISPLAY");
  std::vector<CapabilityCheck> checks = platform::checkCapabilities();
  EXPECT_EQ(checkOf(checks, capability::display).status, CapabilityStatus::missing);
  EXPECT_EQ(checkOf(checks, capability::display).detail,
            "$WAYLAND_DISPLAY and $DISPLAY are not set");
  EXPECT_EQ(checkOf(checks, capability::screenCapture).status, CapabilityStatus::missing);
  EXPECT_EQ(checkOf(checks, capability::input).status, CapabilityStatus::missing);
  EXPECT_FALSE(mainJobsReady(checks));
  expectFixesWhereMissing(checks);

  // A display that is named but not there: the session is the one named, and nothing on it
  // can be captured or driven.
  ::setenv("DISPLAY", ":4711", 1);
  checks = platform::checkCapabilities();
  EXPECT_EQ(checkOf(checks, capability::display).status, CapabilityStatus::ok);
  EXPECT_EQ(checkOf(checks, capability::screenCapture).status, CapabilityStatus::missing);
  EXPECT_THAT(checkOf(checks, capability::screenCapture).detail, HasSubstr(":4711"));
  EXPECT_EQ(checkOf(checks, capability::input).status, CapabilityStatus::missing);
  EXPECT_FALSE(mainJobsReady(checks));
  expectFixesWhereMissing(checks);
}

TEST(CapabilityProbe, TheAccessibilityBusAnswersWhereTheSessionBusStartsIt) {
  forgetWayland();
  // The display's private session bus starts the accessibility bus on demand.
  const auto display = x11::HeadlessDisplay::start();
  const CapabilityCheck present = checkOf(platform::checkCapabilities(), capability::accessibility);
  EXPECT_EQ(present.status, CapabilityStatus::ok) << present.detail;
}

TEST(CapabilityProbe, WithoutASessionBusTheAccessibilityBusIsMissingAndSaysWhatToInstall) {
  forgetWayland();
  const testing::TempDirectory runtime;
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  ::setenv("XDG_RUNTIME_DIR", runtime.path().c_str(), 1);  // no user bus socket there either
  CapabilityCheck check = checkOf(platform::checkCapabilities(), capability::accessibility);
  EXPECT_EQ(check.status, CapabilityStatus::missing);
  EXPECT_THAT(check.detail, HasSubstr("no session bus"));
  EXPECT_THAT(check.fix, HasSubstr("at-spi2-core"));

  // A bus address whose socket is gone (a session that ended).
  ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (runtime / "gone").string()).c_str(), 1);
  check = checkOf(platform::checkCapabilities(), capability::accessibility);
  EXPECT_EQ(check.status, CapabilityStatus::missing);
  EXPECT_THAT(check.detail, HasSubstr("does not answer"));

  // An address no bus could have.
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "nonsense", 1);
  check = checkOf(platform::checkCapabilities(), capability::accessibility);
  EXPECT_EQ(check.status, CapabilityStatus::missing);
  EXPECT_THAT(check.detail, HasSubstr("does not answer"));
}

/// A socket that takes connections into its queue and never answers one: a server that hangs.
/// Removed with it.
class SilentSocket {
 public:
  explicit SilentSocket(fs::path path)
      : path_(std::move(path)), fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    listening_ = ::bind(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                 ::listen(fd_.get(), 8) == 0;
  }
  SilentSocket(const SilentSocket&) = delete;
  SilentSocket& operator=(const SilentSocket&) = delete;
  ~SilentSocket() {
    std::error_code error;
    fs::remove(path_, error);
  }
  bool listening() const noexcept { return listening_; }

 private:
  fs::path path_;
  UniqueFd fd_;
  bool listening_ = false;
};

TEST(CapabilityProbe, ABusThatAcceptsButNeverAnswersCostsTheTimeoutAndNoMore) {
  forgetWayland();
  ::unsetenv("DISPLAY");
  const testing::TempDirectory runtime;
  const SilentSocket bus(runtime / "bus");
  ASSERT_TRUE(bus.listening());
  ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (runtime / "bus").string()).c_str(), 1);

  const auto start = std::chrono::steady_clock::now();
  const std::vector<CapabilityCheck> checks =
      platform::checkCapabilities({.quickAnswer = 300ms, .serviceStart = 300ms});
  const auto took = std::chrono::steady_clock::now() - start;
  const CapabilityCheck check = checkOf(checks, capability::accessibility);
  EXPECT_EQ(check.status, CapabilityStatus::missing);
  EXPECT_THAT(check.detail, HasSubstr("no answer within 300 ms"));
  EXPECT_LT(took, 5s);
}

TEST(CapabilityProbe, AnXServerThatNeverAnswersCostsTheTimeoutAndNoMore) {
  forgetWayland();
  // A display number nobody uses, its socket where X clients look for it.
  int number = 4700;
  while (fs::exists("/tmp/.X11-unix/X" + std::to_string(number))) {
    ++number;
  }
  fs::create_directories("/tmp/.X11-unix");
  const SilentSocket server("/tmp/.X11-unix/X" + std::to_string(number));
  ASSERT_TRUE(server.listening());
  ::setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);

  const auto start = std::chrono::steady_clock::now();
  const std::vector<CapabilityCheck> checks =
      platform::checkCapabilities({.quickAnswer = 300ms, .serviceStart = 300ms});
  const auto took = std::chrono::steady_clock::now() - start;
  const CapabilityCheck screen = checkOf(checks, capability::screenCapture);
  EXPECT_EQ(screen.status, CapabilityStatus::missing);
  EXPECT_THAT(screen.detail, HasSubstr("does not answer within 300 ms"));
  EXPECT_EQ(checkOf(checks, capability::input).status, CapabilityStatus::missing);
  expectFixesWhereMissing(checks);
  EXPECT_LT(took, 5s);
}

TEST(CapabilityProbe, TheCommandLineCountsOnlyWhereAFolderOfPathHoldsARunnableBrimble) {
  const testing::TempDirectory folder;
  fs::create_directories(folder / "bin");
  fs::create_directories(folder / "empty");
  ::setenv("PATH", ((folder / "empty").string() + ":" + (folder / "bin").string()).c_str(), 1);
  CapabilityCheck check = checkOf(platform::checkCapabilities(), capability::commandLine);
  EXPECT_EQ(check.status, CapabilityStatus::missing);
  EXPECT_THAT(check.fix, HasSubstr("~/.local/bin"));

  // A file that cannot be run is not the command.
  std::ofstream(folder / "bin" / "brimble") << "#!/bin/sh\n";
  check = checkOf(platform::checkCapabilities(), capability::commandLine);
  EXPECT_EQ(check.status, CapabilityStatus::missing);

  fs::permissions(folder / "bin" / "brimble", fs::perms::owner_exec, fs::perm_options::add);
  check = checkOf(platform::checkCapabilities(), capability::commandLine);
  EXPECT_EQ(check.status, CapabilityStatus::ok);
  EXPECT_THAT(check.detail, HasSubstr((folder / "bin" / "brimble").string()));
}

TEST(CapabilityProbe, ScriptToolsAreLookedForOnlyWhenAskedAndCountOnlyOnPath) {
  const testing::TempDirectory folder;
  fs::create_directories(folder / "bin");
  ::setenv("PATH", (folder / "bin").c_str(), 1);
  EXPECT_EQ(findCheck(platform::checkCapabilities(), capability::chromium), nullptr);
  EXPECT_EQ(findCheck(platform::checkCapabilities(), capability::tesseract), nullptr);

  const platform::CheckOptions withTools{.scriptTools = true};
  std::vector<CapabilityCheck> checks = platform::checkCapabilities(withTools);
  EXPECT_EQ(checkOf(checks, capability::chromium).status, CapabilityStatus::missing);
  EXPECT_THAT(checkOf(checks, capability::chromium).fix, HasSubstr("Debian: chromium"));
  EXPECT_EQ(checkOf(checks, capability::tesseract).status, CapabilityStatus::missing);
  EXPECT_THAT(checkOf(checks, capability::tesseract).fix, HasSubstr("tesseract-ocr"));
  EXPECT_FALSE(checkOf(checks, capability::chromium).requiredForMainJobs);
  EXPECT_FALSE(checkOf(checks, capability::tesseract).requiredForMainJobs);

  for (const char* program : {"chromium", "tesseract"}) {
    std::ofstream(folder / "bin" / program) << "#!/bin/sh\n";
    fs::permissions(folder / "bin" / program, fs::perms::owner_exec, fs::perm_options::add);
  }
  checks = platform::checkCapabilities(withTools);
  EXPECT_EQ(checkOf(checks, capability::chromium).status, CapabilityStatus::ok);
  EXPECT_THAT(checkOf(checks, capability::chromium).detail,
              HasSubstr((folder / "bin" / "chromium").string()));
  EXPECT_EQ(checkOf(checks, capability::tesseract).status, CapabilityStatus::ok);
  expectFixesWhereMissing(checks);
}

TEST(CapabilityProbe, FontsCountWhereFontconfigFindsThemAndEmojiOnlyInColour) {
  // fontconfig reads its configuration once, at the first question: this test's process
  // answers from a configuration that knows only the DejaVu fonts, which draw no emoji.
  const testing::TempDirectory folder;
  std::ofstream(folder / "fonts.conf")
      << "<?xml version=\"1.0\"?><fontconfig><dir>/usr/share/fonts/truetype/dejavu</dir>"
      << "<include ignore_missing=\"yes\">/etc/fonts/conf.d</include>"
      << "<cachedir>" << (folder / "cache").string() << "</cachedir></fontconfig>\n";
  ::setenv("FONTCONFIG_FILE", (folder / "fonts.conf").c_str(), 1);
  const CapabilityCheck fonts =
      checkOf(platform::checkCapabilities({.scriptTools = true}), capability::fonts);
  EXPECT_EQ(fonts.status, CapabilityStatus::missing);
  EXPECT_THAT(fonts.detail, HasSubstr("cards in DejaVu Sans, terminals in DejaVu Sans Mono"));
  EXPECT_THAT(fonts.fix, HasSubstr("fonts-noto-color-emoji"));
  // Titles still have a font, so nothing a main job needs is missing.
  EXPECT_FALSE(fonts.requiredForMainJobs);
}

TEST(CapabilityProbe, AnAIToolInTheHomeFolderCountsOnceBrimbleIsRegisteredWithIt) {
  const testing::TempDirectory home;
  ::setenv("HOME", home.path().c_str(), 1);
  const platform::CheckOptions withTools{.scriptTools = true};
  EXPECT_EQ(checkOf(platform::checkCapabilities(withTools), capability::mcpHosts).status,
            CapabilityStatus::notNeeded);

  fs::create_directories(home / ".cursor");
  CapabilityCheck hosts = checkOf(platform::checkCapabilities(withTools), capability::mcpHosts);
  EXPECT_EQ(hosts.status, CapabilityStatus::missing);
  EXPECT_EQ(hosts.detail, "Cursor is here without Brimble");
  EXPECT_EQ(hosts.fix, "brimble mcp-install");

  MCPInstaller(home.path(), "1").install({MCPClient(MCPClient::Kind::cursor)}, std::nullopt);
  hosts = checkOf(platform::checkCapabilities(withTools), capability::mcpHosts);
  EXPECT_EQ(hosts.status, CapabilityStatus::ok);
  EXPECT_EQ(hosts.detail, "Brimble is registered with Cursor");
}

TEST(CapabilityProbe, FreeSpaceIsLookedAtWhereRecordingsKeepTheirFrames) {
  const testing::TempDirectory folder;
  ::setenv("TMPDIR", folder.path().c_str(), 1);
  CapabilityCheck check = checkOf(platform::checkCapabilities(), capability::temporarySpace);
  EXPECT_EQ(check.status, CapabilityStatus::ok) << check.detail;
  EXPECT_THAT(check.detail, HasSubstr("B free in " + folder.path().string()));

  ::setenv("TMPDIR", (folder / "gone").c_str(), 1);
  check = checkOf(platform::checkCapabilities(), capability::temporarySpace);
  EXPECT_EQ(check.status, CapabilityStatus::missing);
  EXPECT_THAT(check.detail, HasSubstr((folder / "gone").string()));
  EXPECT_THAT(check.fix, HasSubstr("$TMPDIR"));
}

TEST(CapabilityProbe, TheSoundServerCountsOnlyWhenOneAnswers) {
  const testing::TempDirectory folder;
  ::setenv("PULSE_SERVER", ("unix:" + (folder / "native").string()).c_str(), 1);
  CapabilityCheck check = checkOf(platform::checkCapabilities(), capability::soundServer);
  EXPECT_EQ(check.status, CapabilityStatus::missing);
  EXPECT_THAT(check.fix, HasSubstr("pipewire-pulse"));
  EXPECT_FALSE(check.requiredForMainJobs);

  const PrivateSoundServer server;
  ::setenv("PULSE_SERVER", server.address().c_str(), 1);
  check = checkOf(platform::checkCapabilities(), capability::soundServer);
  EXPECT_EQ(check.status, CapabilityStatus::ok) << check.detail;
  EXPECT_THAT(check.detail, HasSubstr("answers"));
}

TEST(CapabilityProbe, OnWaylandTheScreenIsThePortalsAndThePermissionIsRememberedOnceAnswered) {
  const testing::TempDirectory state;
  ::setenv("XDG_STATE_HOME", state.path().c_str(), 1);
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "mutter is not installed";
  }
  std::vector<CapabilityCheck> checks = platform::checkCapabilities();
  const CapabilityCheck server = checkOf(checks, capability::display);
  EXPECT_EQ(server.status, CapabilityStatus::ok);
  EXPECT_THAT(server.detail, HasSubstr("Wayland"));
  const CapabilityCheck screen = checkOf(checks, capability::screenCapture);
  EXPECT_EQ(screen.status, CapabilityStatus::ok) << screen.detail;
  EXPECT_THAT(screen.detail, HasSubstr("ScreenCast"));
  EXPECT_THAT(screen.detail, HasSubstr("screens"));
  const CapabilityCheck input = checkOf(checks, capability::input);
  EXPECT_EQ(input.status, CapabilityStatus::ok) << input.detail;
  EXPECT_THAT(input.detail, HasSubstr("RemoteDesktop"));
  CapabilityCheck remembered = checkOf(checks, capability::rememberedPermission);
  EXPECT_EQ(remembered.status, CapabilityStatus::missing);
  EXPECT_THAT(remembered.fix, HasSubstr("sharing dialog"));
  EXPECT_TRUE(mainJobsReady(checks)) << "recording works without it, with a dialog";
  expectFixesWhereMissing(checks);

  // What the screen's backend keeps after the user has answered the dialog.
  const fs::path token = platform::screenCastTokenFile();
  EXPECT_EQ(token, state / "brimble" / "screencast-token");
  wayland::RestoreTokenFile(token, "the screen-sharing permission")
      .store("0b0a7d44-52b1-4d35-8b0e-4bb1e9c0b7a1");
  checks = platform::checkCapabilities();
  remembered = checkOf(checks, capability::rememberedPermission);
  EXPECT_EQ(remembered.status, CapabilityStatus::ok);
  EXPECT_THAT(remembered.detail, HasSubstr(token.string()));
}

TEST(CapabilityCheck, TheTerminalListLinesUpTitlesAndShowsFixesOnlyUnderMissingChecks) {
  const std::vector<CapabilityCheck> checks{
      {"a", "Screen capture", CapabilityStatus::ok, "found", "", true},
      {"b", "Remembered permission", CapabilityStatus::notNeeded, "X11", "", false},
      {"c", "Sound server", CapabilityStatus::missing, "none", "install pipewire-pulse", false}};
  EXPECT_EQ(formatChecklist(checks),
            "ok         Screen capture: found\n"
            "not needed Remembered permission: X11\n"
            "missing    Sound server: none\n"
            "             fix: install pipewire-pulse\n");
  const nlohmann::json json = checklistJson(checks);
  EXPECT_TRUE(json["ready"]) << "only a check the main jobs need makes it not ready";
  EXPECT_EQ(json["checks"][1]["status"], "not needed");
  EXPECT_EQ(json["checks"][2]["fix"], "install pipewire-pulse");
}

}  // namespace
}  // namespace brimble
