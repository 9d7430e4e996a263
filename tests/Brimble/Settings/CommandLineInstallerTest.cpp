#include "Brimble/Settings/CommandLineInstaller.h"

#include <fstream>

#include <gtest/gtest.h>

#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

TEST(CommandLineInstaller, LinksTheCommandAndReplacesOnlyItsOwnLink) {
  testing::TempDirectory folder;
  fs::create_directories(folder / "app" / "cli");
  fs::create_directories(folder / "app" / "Brimble");
  std::ofstream(folder / "app" / "cli" / "brimble") << "#!/bin/sh\n";
  // In the build tree the command sits in cli/ beside the app's folder.
  const fs::path binary = CommandLineInstaller::findBinary(folder / "app" / "Brimble");
  EXPECT_EQ(binary, fs::canonical(folder / "app" / "cli" / "brimble"));
  EXPECT_EQ(testing::errorText<CommandLineInstallerError>(
                [&] { CommandLineInstaller::findBinary(folder / "nowhere"); }),
            "The brimble command was not found next to the app in " +
                (folder / "nowhere").string() + ".");

  const fs::path bin = folder / "home" / ".local" / "bin";
  const fs::path link = CommandLineInstaller::install(binary, bin);
  EXPECT_EQ(link, bin / "brimble");
  EXPECT_EQ(fs::read_symlink(link), binary);
  // Again, from elsewhere: the old link is replaced.
  std::ofstream(folder / "other") << "x";
  CommandLineInstaller::install(folder / "other", bin);
  EXPECT_EQ(fs::read_symlink(link), folder / "other");
  // A real file of that name is the user's: left alone.
  fs::remove(link);
  std::ofstream(link) << "mine";
  EXPECT_EQ(testing::errorText<CommandLineInstallerError>(
                [&] { CommandLineInstaller::install(binary, bin); }),
            link.string() +
                " already exists and is not a link to Brimble; move it away and try "
                "again.");
  EXPECT_EQ(testing::readFile(link), "mine");

  EXPECT_TRUE(CommandLineInstaller::isOnPath("/home/u/.local/bin", "/usr/bin:/home/u/.local/bin/"));
  EXPECT_FALSE(CommandLineInstaller::isOnPath("/home/u/.local/bin", "/usr/bin:/home/u/bin"));
}

TEST(CommandLineInstaller, DesktopEntryStartsThisAppAndTheIconGoesWhereMenusLook) {
  testing::TempDirectory folder;
  CommandLineInstaller::installDesktopEntry("/opt/my apps/brimble-app", folder.path(),
                                            "[Desktop Entry]\nName=Brimble\nExec=brimble-app\n"
                                            "Icon=brimble\n",
                                            "<svg/>");
  // Named by the app's id, which the desktop portal reads to know which app is asking.
  EXPECT_EQ(testing::readFile(folder / "applications" / "org.brimble.Brimble.desktop"),
            "[Desktop Entry]\nName=Brimble\nExec=\"/opt/my apps/brimble-app\"\nIcon=brimble\n");
  EXPECT_FALSE(fs::exists(folder / "applications" / "brimble.desktop"));
  EXPECT_EQ(testing::readFile(folder / "icons" / "hicolor" / "scalable" / "apps" / "brimble.svg"),
            "<svg/>");
}

TEST(CommandLineInstaller, TheEntryAnEarlierVersionWroteGoesButAUsersFileOfThatNameStays) {
  const std::string packaged = "[Desktop Entry]\nName=Brimble\nExec=brimble-app\nIcon=brimble\n";
  testing::TempDirectory folder;
  const fs::path older = folder / "applications" / "brimble.desktop";
  fs::create_directories(older.parent_path());

  // What the installer wrote under the old name, for a copy of the app elsewhere.
  testing::writeFile(older,
                     "[Desktop Entry]\nName=Brimble\nExec=\"/home/u/old/brimble-app\"\n"
                     "Icon=brimble\n");
  CommandLineInstaller::installDesktopEntry("/opt/brimble/brimble-app", folder.path(), packaged,
                                            "<svg/>");
  EXPECT_FALSE(fs::exists(older));
  EXPECT_TRUE(fs::exists(folder / "applications" / "org.brimble.Brimble.desktop"));

  // Edited by the user, or their own entry for something else: theirs, left as it is.
  for (const std::string users :
       {"[Desktop Entry]\nName=Brimble (dev)\nExec=\"/home/u/old/brimble-app\"\nIcon=brimble\n",
        "[Desktop Entry]\nName=Brimble\nExec=\"/home/u/bin/brimble-wrapper\"\nIcon=brimble\n",
        "[Desktop Entry]\nName=Brimble\nExec=brimble-app --verbose\nIcon=brimble\n"}) {
    testing::writeFile(older, users);
    CommandLineInstaller::installDesktopEntry("/opt/brimble/brimble-app", folder.path(), packaged,
                                              "<svg/>");
    EXPECT_EQ(testing::readFile(older), users);
  }
}

}  // namespace
}  // namespace brimble
