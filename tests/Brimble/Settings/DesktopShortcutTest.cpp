#include "Brimble/Settings/DesktopShortcut.h"

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/GlobalHotkey.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/KeyfileGSettings.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

TEST(DesktopShortcut, OnGNOMEOursJoinsTheUsersKeybindingsOnceIsUpdatedInPlaceAndGoesAlone) {
  if (!testing::KeyfileGSettings::available()) {
    GTEST_SKIP() << "no gsettings or GNOME's media-keys schema on this machine";
  }
  testing::KeyfileGSettings settings;
  settings.addUsersOwn();
  const DesktopShortcut shortcut("ubuntu:GNOME");
  ASSERT_EQ(shortcut.kind(), DesktopShortcut::Kind::gnome);
  ASSERT_TRUE(shortcut.canAdd());
  EXPECT_EQ(shortcut.state("Ctrl+Shift+G", "/opt/brimble/brimble-app"),
            DesktopShortcut::State::absent);

  shortcut.add("Ctrl+Shift+G", "/opt/brimble/brimble-app");
  EXPECT_EQ(settings.list(), std::string("['") + testing::KeyfileGSettings::kUsersKeybinding +
                                 "', '" + DesktopShortcut::kKeybindingPath + "']");
  EXPECT_EQ(settings.ours("name"), "'Brimble'");
  EXPECT_EQ(settings.ours("command"), "'/opt/brimble/brimble-app --toggle'");
  EXPECT_EQ(settings.ours("binding"), "'<Control><Shift>g'");
  EXPECT_EQ(shortcut.state("Ctrl+Shift+G", "/opt/brimble/brimble-app"),
            DesktopShortcut::State::current);

  // Another shortcut, and the app moved: the same keybinding changes, none is added.
  EXPECT_EQ(shortcut.state("Ctrl+Alt+R", "/home/u/My Apps/brimble-app"),
            DesktopShortcut::State::outdated);
  shortcut.add("Ctrl+Alt+R", "/home/u/My Apps/brimble-app");
  EXPECT_EQ(settings.list(), std::string("['") + testing::KeyfileGSettings::kUsersKeybinding +
                                 "', '" + DesktopShortcut::kKeybindingPath + "']");
  EXPECT_EQ(settings.ours("binding"), "'<Control><Alt>r'");
  EXPECT_EQ(settings.ours("command"), "\"'/home/u/My Apps/brimble-app' --toggle\"");
  EXPECT_EQ(shortcut.state("Ctrl+Alt+R", "/home/u/My Apps/brimble-app"),
            DesktopShortcut::State::current);

  shortcut.remove();
  EXPECT_EQ(settings.list(),
            std::string("['") + testing::KeyfileGSettings::kUsersKeybinding + "']");
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
  if (!testing::KeyfileGSettings::available()) {
    GTEST_SKIP() << "no gsettings or GNOME's media-keys schema on this machine";
  }
  testing::KeyfileGSettings settings;
  settings.addUsersOwn();
  const DesktopShortcut shortcut("GNOME");
  EXPECT_EQ(testing::errorText<GlobalHotkeyError>(
                [&] { shortcut.add("Ctrl+Shfit+G", "/opt/brimble/brimble-app"); }),
            "\"Ctrl+Shfit+G\" is not a shortcut: give modifiers and one key, such as "
            "Ctrl+Shift+G.");
  EXPECT_EQ(settings.list(),
            std::string("['") + testing::KeyfileGSettings::kUsersKeybinding + "']");
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
