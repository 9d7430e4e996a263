// brimble doctor and brimble report, run as a user runs them, against real servers.

#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Capture/PrivateSoundServer.h"
#include "BrimbleCore/Diagnostics/ProblemReport.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::brimbleCommand;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::runCommand;
using testing::shellQuote;

struct DoctorResult {
  int exitCode = -1;
  nlohmann::json json;
};

/// `brimble doctor --json` with `environment` (shell assignments) before it.
DoctorResult doctorJSON(const std::string& environment, const std::string& options = "") {
  const testing::CommandResult result =
      runCommand(environment + " " + brimbleCommand("doctor --json " + options));
  return {result.exitCode, nlohmann::json::parse(result.output)};
}

nlohmann::json checkOf(const nlohmann::json& doctor, const std::string& id) {
  for (const nlohmann::json& check : doctor["checks"]) {
    if (check["id"] == id) {
      return check;
    }
  }
  ADD_FAILURE() << "no check " << id;
  return nlohmann::json::object();
}

void expectMissingWithFix(const nlohmann::json& doctor, const std::string& id,
                          const std::string& fixMentions) {
  const nlohmann::json check = checkOf(doctor, id);
  EXPECT_EQ(check.value("status", ""), "missing") << check.dump();
  EXPECT_THAT(check.value("fix", ""), HasSubstr(fixMentions)) << id;
}

TEST(BrimbleDoctor, EachMissingServerFailsItsOwnCheckWithItsFixAndTheExitStatusFollowsTheMainJobs) {
  const testing::TempDirectory home;
  // Nothing of a desktop: no display, no session bus, no sound server.
  const std::string bare =
      "env -u DISPLAY -u WAYLAND_DISPLAY -u DBUS_SESSION_BUS_ADDRESS "
      "-u XDG_SESSION_TYPE HOME=" +
      shellQuote(home.path()) + " XDG_RUNTIME_DIR=" + shellQuote(home.path()) +
      " PULSE_SERVER=unix:" + shellQuote((home / "no-sound").string());
  DoctorResult doctor = doctorJSON(bare);
  EXPECT_EQ(doctor.exitCode, 1);
  EXPECT_FALSE(doctor.json["ready"]);
  expectMissingWithFix(doctor.json, "display", "desktop session");
  expectMissingWithFix(doctor.json, "screen-capture", "--headless");
  expectMissingWithFix(doctor.json, "accessibility", "at-spi2-core");
  expectMissingWithFix(doctor.json, "sound-server", "pipewire-pulse");
  EXPECT_EQ(checkOf(doctor.json, "own-display")["status"], "ok");
  // A fresh home has no AI tool to register with.
  EXPECT_EQ(checkOf(doctor.json, "mcp-hosts")["status"], "not needed");

  // brimble run needs none of the desktop's pieces.
  doctor = doctorJSON(bare, "--headless");
  EXPECT_EQ(doctor.exitCode, 0);
  EXPECT_TRUE(doctor.json["ready"]);

  // Without Xvfb, not even that.
  doctor = doctorJSON(bare + " PATH=/nonexistent", "--headless");
  EXPECT_EQ(doctor.exitCode, 1);
  expectMissingWithFix(doctor.json, "own-display", "xvfb, openbox and xterm");

  // The same machine with each server there: the display with its session bus (which starts
  // the accessibility bus), and a sound server.
  const auto display = x11::HeadlessDisplay::start();
  const PrivateSoundServer sound;
  const std::string desktop =
      "env -u WAYLAND_DISPLAY -u XDG_SESSION_TYPE HOME=" + shellQuote(home.path()) +
      " PULSE_SERVER=" + shellQuote(sound.address());
  doctor = doctorJSON(desktop);
  EXPECT_EQ(doctor.exitCode, 0) << doctor.json.dump(2);
  EXPECT_TRUE(doctor.json["ready"]);
  for (const char* id : {"display", "screen-capture", "input", "accessibility", "sound-server"}) {
    EXPECT_EQ(checkOf(doctor.json, id)["status"], "ok") << id;
  }

  // The text says the same, each fix under its check, and what to do next.
  const testing::CommandResult text = runCommand(bare + " " + brimbleCommand("doctor"));
  EXPECT_EQ(text.exitCode, 1);
  EXPECT_THAT(text.output, HasSubstr("missing    Sound server"));
  EXPECT_THAT(text.output, HasSubstr("fix: install PipeWire's PulseAudio service"));
  EXPECT_THAT(text.output, HasSubstr("Not ready: Display server and Screen capture are missing"));
  EXPECT_THAT(text.output, HasSubstr("brimble doctor --headless"));
}

TEST(BrimbleReport, TheArchiveHoldsTheChecksTheLogsAndTheCrashesWithTheHomeFolderShortened) {
  const testing::TempDirectory home;
  const fs::path state = home / "state";
  fs::create_directories(state / "brimble" / "logs");
  fs::create_directories(state / "brimble" / "crashes");
  std::ofstream(state / "brimble" / "logs" / "brimble.log")
      << "2026-11-26 opened " << (home / "demo.brim").string() << "\n";
  std::ofstream(state / "brimble" / "crashes" / "crash-1.txt") << "signal: SIGSEGV\n";
  std::ofstream(state / "brimble" / "crashes" / ".seen") << "kept out\n";
  std::ofstream(home / "recording.gif") << "GIF89a of the user's";
  const std::string environment = "cd " + shellQuote(home.path()) +
                                  " && HOME=" + shellQuote(home.path()) +
                                  " XDG_STATE_HOME=" + shellQuote(state.string()) + " ";

  const testing::CommandResult saved =
      runCommand(environment + brimbleCommand("report -o report.tar.gz </dev/null"));
  ASSERT_EQ(saved.exitCode, 0) << saved.output;
  // What goes in is listed before the archive is saved, and where to send it after.
  EXPECT_LT(saved.output.find("logs/brimble.log"), saved.output.find("Saved report.tar.gz"));
  EXPECT_THAT(saved.output, HasSubstr(kIssueTracker));

  // Read by tar, not by us.
  const testing::CommandResult listing =
      runCommand("tar -tzf " + shellQuote((home / "report.tar.gz").string()));
  ASSERT_EQ(listing.exitCode, 0);
  EXPECT_EQ(listing.output,
            "doctor.txt\ndoctor.json\nsystem.txt\nlogs/brimble.log\ncrashes/crash-1.txt\n");
  const testing::CommandResult log = runCommand(
      "tar -xzOf " + shellQuote((home / "report.tar.gz").string()) + " logs/brimble.log");
  EXPECT_EQ(log.output, "2026-11-26 opened ~/demo.brim\n");
  const testing::CommandResult doctor =
      runCommand("tar -xzOf " + shellQuote((home / "report.tar.gz").string()) + " doctor.json");
  EXPECT_NO_THROW(nlohmann::json::parse(doctor.output)) << doctor.output;
  EXPECT_THAT(doctor.output, Not(HasSubstr(home.path().string())));

  // A second report under the same name, or through a link, is refused and changes nothing.
  const auto before = fs::file_size(home / "report.tar.gz");
  testing::CommandResult again =
      runCommand(environment + brimbleCommand("report -y -o report.tar.gz 2>&1"));
  EXPECT_EQ(again.exitCode, 1);
  EXPECT_THAT(again.output, HasSubstr("report.tar.gz already exists"));
  EXPECT_EQ(fs::file_size(home / "report.tar.gz"), before);
  fs::create_symlink(home / "recording.gif", home / "link.tar.gz");
  again = runCommand(environment + brimbleCommand("report -y -o link.tar.gz 2>&1"));
  EXPECT_EQ(again.exitCode, 1);
  std::ifstream recording(home / "recording.gif");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(recording), {}), "GIF89a of the user's");

  // --show prints it all and saves nothing.
  const testing::CommandResult shown =
      runCommand(environment + brimbleCommand("report --show -o shown.tar.gz"));
  EXPECT_EQ(shown.exitCode, 0);
  EXPECT_THAT(shown.output, HasSubstr("==> crashes/crash-1.txt <==\nsignal: SIGSEGV\n"));
  EXPECT_FALSE(fs::exists(home / "shown.tar.gz"));
}

TEST(BrimbleReport, OnlyPathsInsideTheHomeFolderAreShortened) {
  EXPECT_EQ(shortenHome("/home/ann/a.gif and /home/ann", "/home/ann"), "~/a.gif and ~");
  EXPECT_EQ(shortenHome("/home/anna/a.gif", "/home/ann"), "/home/anna/a.gif");
  EXPECT_EQ(shortenHome("\"/home/ann/x\",/home/ann:", "/home/ann/"), "\"~/x\",~:");
  EXPECT_EQ(shortenHome("/srv/home/ann/x", "/home/ann"), "/srv/home/ann/x");
  // A home of / would shorten every path into nonsense.
  EXPECT_EQ(shortenHome("/etc/passwd", "/"), "/etc/passwd");
}

}  // namespace
}  // namespace brimble
