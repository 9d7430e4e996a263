#include "BrimbleCore/Support/AtomicFile.h"

#include <system_error>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "BrimbleCore/Support/FileIO.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::readFile;
using testing::TempDirectory;

TEST(AtomicFile, ReplacesTheTargetOnlyOnCommitKeepingItsModeAndLinks) {
  TempDirectory directory;
  const auto target = directory / "target.gif";
  testing::writeFile(target, "old");
  ::chmod(target.c_str(), 0640);
  std::filesystem::create_symlink(target, directory / "link.gif");
  {
    AtomicFile abandoned(directory / "link.gif", 0600);
    writeAllAt(abandoned.fd(), {reinterpret_cast<const std::uint8_t*>("new"), 3}, 0, "x");
    EXPECT_EQ(testing::entriesIn(directory.path()), 3);
  }
  EXPECT_EQ(readFile(target), "old") << "no commit, no change";
  EXPECT_EQ(testing::entriesIn(directory.path()), 2) << "the temporary file is gone";

  writeFileAtomically(directory / "link.gif", "new", 0600);
  EXPECT_EQ(readFile(target), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(directory / "link.gif"));
  struct stat info {};
  ASSERT_EQ(::stat(target.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
  EXPECT_EQ(testing::entriesIn(directory.path()), 2);

  EXPECT_THROW(AtomicFile(directory / "missing" / "x.gif", 0644), std::system_error);
}

}  // namespace
}  // namespace brimble
