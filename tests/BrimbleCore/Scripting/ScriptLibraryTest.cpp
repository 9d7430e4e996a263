#include "BrimbleCore/Scripting/ScriptLibrary.h"

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::writeFile;

/// "<code> <text>" of the error reading `name` throws.
std::string failure(const ScriptLibrary& library, const std::string& name) {
  try {
    library.read(name);
  } catch (const ScriptLibraryError& error) {
    return std::to_string(static_cast<int>(error.code())) + " " + error.what();
  }
  return "read " + name;
}

/// A folder with the scripts alpha and zeta, a text file and a folder named like a script.
class ScriptLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(directory_ / "zeta.brim", "record $w\r\n# kept exactly\n");
    writeFile(directory_ / "alpha.brim", "1");
    writeFile(directory_ / "notes.txt", "");
    std::filesystem::create_directory(directory_ / "folder.brim");
  }

  testing::TempDirectory directory_;
  ScriptLibrary library_{directory_.path()};
};

TEST_F(ScriptLibraryTest, ReadsByNameWithOrWithoutTheExtensionOrSaysWhyNot) {
  EXPECT_EQ(library_.read("zeta"), "record $w\r\n# kept exactly\n");
  EXPECT_EQ(library_.read("zeta.brim"), "record $w\r\n# kept exactly\n");
  writeFile(directory_.path().parent_path() / "x.brim", "outside");
  for (const char* name : {"../x", "sub/x", "..", ""}) {
    EXPECT_EQ(failure(library_, name), std::string("0 Invalid script name: ") + name);
  }
  std::filesystem::remove(directory_.path().parent_path() / "x.brim");
  EXPECT_EQ(failure(library_, "demo"), "1 Script 'demo' not found. Available: alpha, zeta");
  EXPECT_EQ(failure(library_, "folder"), "2 Failed to read script 'folder': Is a directory");
  EXPECT_EQ(failure(ScriptLibrary(directory_ / "none"), "demo"),
            "1 Script 'demo' not found. No scripts in " + (directory_ / "none").string());
}

TEST_F(ScriptLibraryTest, ListsBrimFilesSortedWithSizeAndDate) {
  std::string listed;
  for (const ScriptLibrary::Entry& entry : library_.list()) {
    listed += entry.name + " " + entry.path.string() + " " + std::to_string(entry.sizeBytes) +
              (entry.modifiedAt == std::filesystem::last_write_time(entry.path) ? "\n" : " ?\n");
  }
  EXPECT_EQ(listed, "alpha " + (directory_ / "alpha.brim").string() + " 1\nzeta " +
                        (directory_ / "zeta.brim").string() + " 26\n");
  EXPECT_TRUE(ScriptLibrary(directory_ / "missing").list().empty());
}

TEST(ScriptLibrary, TheFolderComesFromTheEnvironmentOrTheHomeFolder) {
  const char* oldHome = std::getenv("HOME");
  const std::string home = oldHome != nullptr ? oldHome : "";
  const auto folderWith = [](const char* scriptDirectory) {
    ::setenv("HOME", "/home/ada", 1);
    ::setenv("BRIMBLE_SCRIPT_DIR", scriptDirectory, 1);
    return ScriptLibrary().directory();
  };
  EXPECT_EQ(folderWith(""), "/home/ada/.brimble/scripts");
  EXPECT_EQ(folderWith("/srv/scripts"), "/srv/scripts");
  EXPECT_EQ(folderWith("~/demos"), "/home/ada/demos");
  ::unsetenv("BRIMBLE_SCRIPT_DIR");
  oldHome != nullptr ? ::setenv("HOME", home.c_str(), 1) : ::unsetenv("HOME");
}

}  // namespace
}  // namespace brimble
