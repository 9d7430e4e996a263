#include "BrimbleCore/Scripting/ScriptLibrary.h"

#include <cstdlib>
#include <optional>
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
  const std::vector<ScriptLibrary::Entry> entries = library_.list();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, "alpha");
  EXPECT_EQ(entries[0].path, directory_ / "alpha.brim");
  EXPECT_EQ(entries[0].sizeBytes, 1u);
  EXPECT_EQ(entries[1].name, "zeta");
  EXPECT_EQ(entries[1].sizeBytes, 26u);
  EXPECT_EQ(entries[1].modifiedAt, std::filesystem::last_write_time(directory_ / "zeta.brim"));
  EXPECT_TRUE(ScriptLibrary(directory_ / "missing").list().empty());
}

TEST(ScriptLibrary, TheFolderComesFromTheEnvironmentOrTheHomeFolder) {
  const auto folderWith = [](const char* home, const char* scriptDirectory) {
    std::optional<std::string> old[2];
    const char* names[2] = {"HOME", "BRIMBLE_SCRIPT_DIR"};
    const char* values[2] = {home, scriptDirectory};
    for (int i = 0; i < 2; ++i) {
      if (const char* value = std::getenv(names[i])) {
        old[i] = value;
      }
      ::setenv(names[i], values[i], 1);
    }
    const std::filesystem::path folder = ScriptLibrary().directory();
    for (int i = 0; i < 2; ++i) {
      old[i] ? ::setenv(names[i], old[i]->c_str(), 1) : ::unsetenv(names[i]);
    }
    return folder;
  };
  EXPECT_EQ(folderWith("/home/ada", ""), "/home/ada/.brimble/scripts");
  EXPECT_EQ(folderWith("/home/ada", "/srv/scripts"), "/srv/scripts");
  EXPECT_EQ(folderWith("/home/ada", "~/demos"), "/home/ada/demos");
}

}  // namespace
}  // namespace brimble
