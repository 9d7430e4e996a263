#include "BrimbleCore/Scripting/ScriptLibrary.h"

#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

void write(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::string failure(const ScriptLibrary& library, const std::string& name,
                    ScriptLibraryError::Code expected) {
  try {
    library.read(name);
  } catch (const ScriptLibraryError& error) {
    EXPECT_EQ(error.code(), expected) << name;
    return error.what();
  }
  ADD_FAILURE() << "read " << name;
  return {};
}

// Sets an environment variable for one test and restores it afterwards.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) {
      old_ = old;
    }
    ::setenv(name, value, 1);
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ScopedEnvironment(ScopedEnvironment&&) = delete;
  ScopedEnvironment& operator=(ScopedEnvironment&&) = delete;
  ~ScopedEnvironment() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

TEST(ScriptLibrary, ReadsByNameWithOrWithoutTheExtension) {
  testing::TempDirectory directory;
  write(directory / "demo.brim", "record $w\r\n# kept exactly\n");
  const ScriptLibrary library(directory.path());
  EXPECT_EQ(library.read("demo"), "record $w\r\n# kept exactly\n");
  EXPECT_EQ(library.read("demo.brim"), library.read("demo"));
}

TEST(ScriptLibrary, RefusesNamesThatLeaveTheFolder) {
  testing::TempDirectory directory;
  write(directory.path().parent_path() / "x.brim", "outside");
  const ScriptLibrary library(directory.path());
  EXPECT_EQ(failure(library, "../x", ScriptLibraryError::Code::invalidName),
            "Invalid script name: ../x");
  EXPECT_EQ(failure(library, "sub/x", ScriptLibraryError::Code::invalidName),
            "Invalid script name: sub/x");
  EXPECT_EQ(failure(library, "..", ScriptLibraryError::Code::invalidName),
            "Invalid script name: ..");
  EXPECT_EQ(failure(library, "", ScriptLibraryError::Code::invalidName), "Invalid script name: ");
  std::filesystem::remove(directory.path().parent_path() / "x.brim");
}

TEST(ScriptLibrary, AMissingScriptNamesTheOnesThatExist) {
  testing::TempDirectory directory;
  const ScriptLibrary library(directory.path());
  EXPECT_EQ(failure(library, "demo", ScriptLibraryError::Code::notFound),
            "Script 'demo' not found. No scripts in " + directory.path().string());
  write(directory / "zeta.brim", "");
  write(directory / "alpha.brim", "");
  write(directory / "notes.txt", "");
  EXPECT_EQ(failure(library, "demo", ScriptLibraryError::Code::notFound),
            "Script 'demo' not found. Available: alpha, zeta");
}

TEST(ScriptLibrary, AnUnreadableScriptSaysWhy) {
  testing::TempDirectory directory;
  std::filesystem::create_directory(directory / "folder.brim");
  const ScriptLibrary library(directory.path());
  EXPECT_EQ(failure(library, "folder", ScriptLibraryError::Code::readFailed),
            "Failed to read script 'folder': Is a directory");
}

TEST(ScriptLibrary, ListsBrimFilesSortedWithSizeAndDate) {
  testing::TempDirectory directory;
  write(directory / "b.brim", "12345");
  write(directory / "a.brim", "1");
  write(directory / "c.txt", "");
  std::filesystem::create_directory(directory / "d.brim");
  const std::vector<ScriptLibrary::Entry> entries = ScriptLibrary(directory.path()).list();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, "a");
  EXPECT_EQ(entries[0].path, directory / "a.brim");
  EXPECT_EQ(entries[0].sizeBytes, 1u);
  EXPECT_EQ(entries[1].name, "b");
  EXPECT_EQ(entries[1].sizeBytes, 5u);
  EXPECT_EQ(entries[1].modifiedAt, std::filesystem::last_write_time(directory / "b.brim"));
  EXPECT_TRUE(ScriptLibrary(directory / "missing").list().empty());
}

TEST(ScriptLibrary, TheFolderComesFromTheEnvironmentOrTheHomeFolder) {
  {
    ScopedEnvironment home("HOME", "/home/ada");
    ScopedEnvironment unset("BRIMBLE_SCRIPT_DIR", "");
    EXPECT_EQ(ScriptLibrary::defaultDirectory(), "/home/ada/.brimble/scripts");
  }
  {
    ScopedEnvironment dir("BRIMBLE_SCRIPT_DIR", "/srv/scripts");
    EXPECT_EQ(ScriptLibrary().directory(), "/srv/scripts");
  }
  {
    ScopedEnvironment home("HOME", "/home/ada");
    ScopedEnvironment dir("BRIMBLE_SCRIPT_DIR", "~/demos");
    EXPECT_EQ(ScriptLibrary::defaultDirectory(), "/home/ada/demos");
  }
}

}  // namespace
}  // namespace brimble
