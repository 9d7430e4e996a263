#include "Brimble/Settings/DesktopShortcut.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "BrimbleCore/Automation/GlobalHotkey.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

struct GSettingsRun {
  int exitCode = -1;
  std::string output;
};

/// Runs gsettings with `arguments` (shell words, quoted by the caller) as the user would.
GSettingsRun runGSettings(const std::string& arguments) {
  GSettingsRun run;
  FILE* pipe = ::popen(("gsettings " + arguments + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  char buffer[4096];
  while (const std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe)) {
    run.output.append(buffer, got);
  }
  const int status = ::pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

/// `text` as one shell word.
std::string gsettingsWord(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

constexpr const char* kUsersKeybinding =
    "/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/custom0/";

/// GNOME's settings in a keyfile of a folder of the test's own, as `gsettings` reads and writes
/// them; the real user's settings are never touched.
class KeyfileGSettings {
 public:
  KeyfileGSettings() {
    ::setenv("GSETTINGS_BACKEND", "keyfile", 1);
    ::setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
  }
  ~KeyfileGSettings() { ::unsetenv("GSETTINGS_BACKEND"); }

  /// What `gsettings get` prints for `key` of `schema`, without the line feed.
  std::string get(const std::string& schema, const std::string& key) const {
    std::string output = runGSettings("get " + gsettingsWord(schema) + " " + key).output;
    if (!output.empty() && output.back() == '\n') {
      output.pop_back();
    }
    return output;
  }
  void set(const std::string& schema, const std::string& key, const std::string& value) const {
    ASSERT_EQ(runGSettings("set " + gsettingsWord(schema) + " " + key + " " + gsettingsWord(value))
                  .exitCode,
              0);
  }
  std::string ours(const std::string& key) const {
    return get(
        std::string(DesktopShortcut::kKeybindingSchema) + ":" + DesktopShortcut::kKeybindingPath,
        key);
  }
  std::string usersOwn(const std::string& key) const {
    return get(std::string(DesktopShortcut::kKeybindingSchema) + ":" + kUsersKeybinding, key);
  }
  std::string list() const { return get(DesktopShortcut::kMediaKeysSchema, "custom-keybindings"); }

  /// The user's own custom shortcut, as GNOME's Settings would have written it.
  void addUsersOwn() const {
    const std::string schema =
        std::string(DesktopShortcut::kKeybindingSchema) + ":" + kUsersKeybinding;
    set(schema, "name", "Terminal");
    set(schema, "command", "gnome-terminal");
    set(schema, "binding", "<Super>t");
    set(DesktopShortcut::kMediaKeysSchema, "custom-keybindings",
        std::string("['") + kUsersKeybinding + "']");
  }

 private:
  testing::TempDirectory folder_;
};

bool haveGSettingsSchema() {
  if (!findProgram("gsettings")) {
    return false;
  }
  const std::string schemas = runGSettings("list-schemas").output;
  return schemas.find(std::string(DesktopShortcut::kMediaKeysSchema) + "\n") != std::string::npos;
}

TEST(DesktopShortcut, OnGNOMEOursJoinsTheUsersKeybindingsOnceIsUpdatedInPlaceAndGoesAlone) {
  if (!haveGSettingsSchema()) {
    GTEST_SKIP() << "no gsettings or GNOME's media-keys schema on this machine";
  }
  KeyfileGSettings settings;
  settings.addUsersOwn();
  const DesktopShortcut shortcut("ubuntu:GNOME");
  ASSERT_EQ(shortcut.kind(), DesktopShortcut::Kind::gnome);
  ASSERT_TRUE(shortcut.canAdd());
  EXPECT_EQ(shortcut.state("Ctrl+Shift+G", "/opt/brimble/brimble-app"),
            DesktopShortcut::State::absent);

  shortcut.add("Ctrl+Shift+G", "/opt/brimble/brimble-app");
  EXPECT_EQ(settings.list(), std::string("['") + kUsersKeybinding + "', '" +
                                 DesktopShortcut::kKeybindingPath + "']");
  EXPECT_EQ(settings.ours("name"), "'Brimble'");
  EXPECT_EQ(settings.ours("command"), "'/opt/brimble/brimble-app --toggle'");
  EXPECT_EQ(settings.ours("binding"), "'<Control><Shift>g'");
  EXPECT_EQ(shortcut.state("Ctrl+Shift+G", "/opt/brimble/brimble-app"),
            DesktopShortcut::State::current);

  // Another shortcut, and the app moved: the same keybinding changes, none is added.
  EXPECT_EQ(shortcut.state("Ctrl+Alt+R", "/home/u/My Apps/brimble-app"),
            DesktopShortcut::State::outdated);
  shortcut.add("Ctrl+Alt+R", "/home/u/My Apps/brimble-app");
  EXPECT_EQ(settings.list(), std::string("['") + kUsersKeybinding + "', '" +
                                 DesktopShortcut::kKeybindingPath + "']");
  EXPECT_EQ(settings.ours("binding"), "'<Control><Alt>r'");
  EXPECT_EQ(settings.ours("command"), "\"'/home/u/My Apps/brimble-app' --toggle\"");
  EXPECT_EQ(shortcut.state("Ctrl+Alt+R", "/home/u/My Apps/brimble-app"),
            DesktopShortcut::State::current);

  shortcut.remove();
  EXPECT_EQ(settings.list(), std::string("['") + kUsersKeybinding + "']");
  EXPECT_EQ(settings.ours("command"), "''");
  EXPECT_EQ(settings.usersOwn("name"), "'Terminal'");
  EXPECT_EQ(settings.usersOwn("command"), "'gnome-terminal'");
  EXPECT_EQ(settings.usersOwn("binding"), "'<Super>t'");
  EXPECT_EQ(shortcut.state("Ctrl+Alt+R", "/home/u/My Apps/brimble-app"),
            DesktopShortcut::State::absent);
  EXPECT_NO_THROW(shortcut.remove());

  // With no keybinding of the user's, ours is the list, and removing it empties it.
  settings.set(DesktopShortcut::kMediaKeysSchema, "custom-keybindings", "@as []");
  shortcut.add("Meta+F9", "/opt/brimble/brimble-app");
  EXPECT_EQ(settings.list(), std::string("['") + DesktopShortcut::kKeybindingPath + "']");
  EXPECT_EQ(settings.ours("binding"), "'<Super>F9'");
  shortcut.remove();
  EXPECT_EQ(settings.list(), "@as []");
}

TEST(DesktopShortcut, ANonsenseShortcutChangesNothing) {
  if (!haveGSettingsSchema()) {
    GTEST_SKIP() << "no gsettings or GNOME's media-keys schema on this machine";
  }
  KeyfileGSettings settings;
  settings.addUsersOwn();
  const DesktopShortcut shortcut("GNOME");
  EXPECT_EQ(testing::errorText<GlobalHotkeyError>(
                [&] { shortcut.add("Ctrl+Shfit+G", "/opt/brimble/brimble-app"); }),
            "\"Ctrl+Shfit+G\" is not a shortcut: give modifiers and one key, such as "
            "Ctrl+Shift+G.");
  EXPECT_EQ(settings.list(), std::string("['") + kUsersKeybinding + "']");
  EXPECT_EQ(settings.ours("command"), "''");
}

TEST(DesktopShortcut, WhereItCannotAddItItSaysWhereWhatAndWhichKeys) {
  const fs::path app = "/opt/brimble/brimble-app";
  const DesktopShortcut kde("KDE");
  EXPECT_EQ(kde.kind(), DesktopShortcut::Kind::kde);
  EXPECT_FALSE(kde.canAdd());
  EXPECT_EQ(kde.state("Ctrl+Shift+G", app), DesktopShortcut::State::absent);
  EXPECT_EQ(kde.instructions("Ctrl+Shift+G", app),
            "Open System Settings → Keyboard → Shortcuts, choose Add New → Command or Script (on "
            "Plasma 5: Custom Shortcuts → Edit → New → Global Shortcut → Command/URL), enter the "
            "command /opt/brimble/brimble-app --toggle and give it the shortcut Ctrl+Shift+G.");
  try {
    kde.add("Ctrl+Shift+G", app);
    FAIL() << "added a shortcut where it cannot";
  } catch (const DesktopShortcutError& error) {
    EXPECT_EQ(error.code(), DesktopShortcutError::Code::unsupported);
    EXPECT_EQ(error.what(), kde.instructions("Ctrl+Shift+G", app));
  }

  const DesktopShortcut sway("sway");
  EXPECT_EQ(sway.kind(), DesktopShortcut::Kind::other);
  EXPECT_EQ(sway.instructions("Ctrl+Shift+G", "/home/u/My Apps/brimble-app"),
            "In your desktop's keyboard settings, add a custom shortcut that runs '/home/u/My "
            "Apps/brimble-app' --toggle on Ctrl+Shift+G (on sway: bindsym Ctrl+Shift+G exec "
            "'/home/u/My Apps/brimble-app' --toggle in ~/.config/sway/config).");

  // GNOME without gsettings (a minimal install): told how by hand, in GNOME's own settings.
  const char* path = std::getenv("PATH");
  const std::string savedPath = path != nullptr ? path : "";
  testing::TempDirectory empty;
  ::setenv("PATH", empty.path().c_str(), 1);
  const DesktopShortcut gnome("GNOME");
  const bool canAdd = gnome.canAdd();
  ::setenv("PATH", savedPath.c_str(), 1);
  EXPECT_FALSE(canAdd);
  EXPECT_EQ(gnome.instructions("Ctrl+Shift+G", app),
            "Open Settings → Keyboard → View and Customize Shortcuts → Custom Shortcuts, add a "
            "shortcut named Brimble, with the command /opt/brimble/brimble-app --toggle and the "
            "shortcut Ctrl+Shift+G.");
}

}  // namespace
}  // namespace brimble
