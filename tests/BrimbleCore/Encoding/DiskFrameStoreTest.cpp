#include "BrimbleCore/Encoding/DiskFrameStore.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <regex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Support/FileIO.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::errorText;
using testing::LogCapture;
using testing::readFile;
using testing::TempDirectory;

std::vector<std::uint8_t> bytesOfText(const std::string& text) {
  return {text.begin(), text.end()};
}

TEST(DiskFrameWriter, WritesTheBlobsBackToBackInOneUUIDNamedFile) {
  TempDirectory directory;
  DiskFrameWriter writer(directory.path());
  writer.append(bytesOfText("first"));
  writer.append(bytesOfText(""));
  writer.append(bytesOfText("third!"));
  EXPECT_EQ(writer.count(), 3);

  EXPECT_EQ(testing::entriesIn(directory.path()), 1);
  EXPECT_EQ(writer.fileURL().parent_path(), directory.path());
  const std::regex name(
      "brimble-frames-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  EXPECT_TRUE(std::regex_match(writer.fileURL().filename().string(), name)) << writer.fileURL();
  EXPECT_EQ(readFile(writer.fileURL()), "firstthird!");

  const auto store = writer.finalize();
  ASSERT_EQ(store->count(), 3);
  EXPECT_EQ(store->data(0), bytesOfText("first"));
  EXPECT_EQ(store->data(1), bytesOfText(""));
  EXPECT_EQ(store->data(2), bytesOfText("third!"));
}

TEST(DiskFrameWriter, EachWriterGetsItsOwnFileInTheTemporaryDirectory) {
  TempDirectory directory;
  ::setenv("TMPDIR", directory.path().c_str(), 1);
  DiskFrameWriter first;
  DiskFrameWriter second;
  ::unsetenv("TMPDIR");
  EXPECT_EQ(first.fileURL().parent_path(), directory.path());
  EXPECT_NE(first.fileURL(), second.fileURL());
  EXPECT_EQ(testing::entriesIn(directory.path()), 2);

  // A forked child shares no random state with its parent: each names a different file.
  int pipeFds[2];
  ASSERT_EQ(::pipe(pipeFds), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const std::string name = makeUUIDString();
    ::_exit(::write(pipeFds[1], name.data(), name.size()) == 36 ? 0 : 1);
  }
  ::close(pipeFds[1]);
  const std::string parentName = makeUUIDString();
  std::string childName(36, '\0');
  EXPECT_EQ(::read(pipeFds[0], childName.data(), childName.size()), 36);
  ::close(pipeFds[0]);
  ::waitpid(child, nullptr, 0);
  EXPECT_NE(childName, parentName);
}

TEST(DiskFrameWriter, UncreatableFileIsWriterUnavailableAndLeavesNothing) {
  TempDirectory directory;
  EXPECT_EQ(
      errorText<CompressedFrameStoreError>([&] { DiskFrameWriter writer(directory / "missing"); })
          .rfind("could not create the frame file " +
                     (directory / "missing" / "brimble-frames-").string(),
                 0),
      0u);
  EXPECT_EQ(testing::entriesIn(directory.path()), 0);
}

TEST(DiskFrameStore, IndexesOutsideTheStoreOrTheFileAreOutOfRange) {
  TempDirectory directory;
  DiskFrameWriter empty(directory.path());
  EXPECT_EQ(empty.finalize()->count(), 0);
  DiskFrameWriter writer(directory.path());
  writer.append(bytesOfText("0123456789"));
  writer.append(bytesOfText("abcdef"));
  const auto store = writer.finalize();
  std::filesystem::resize_file(writer.fileURL(), 12);
  EXPECT_EQ(store->data(0), bytesOfText("0123456789"));
  const InMemoryFrameStore memory({bytesOfText("a"), bytesOfText("")});
  EXPECT_EQ(memory.data(1), bytesOfText(""));
  const auto outOfRange = [](int index) {
    return "frame index " + std::to_string(index) + " is out of range for a store of 2 frame(s)";
  };
  for (const int index : {-1, 1, 2}) {  // 1: cut short on disk
    EXPECT_EQ(errorText<CompressedFrameStoreError>([&] { store->data(index); }), outOfRange(index));
  }
  for (const int index : {-1, 2}) {
    EXPECT_EQ(errorText<CompressedFrameStoreError>([&] { memory.data(index); }), outOfRange(index));
  }
}

TEST(DiskFrameStore, TheFileLivesExactlyAsLongAsItsOwner) {
  TempDirectory directory;
  std::filesystem::path file;
  {
    DiskFrameWriter abandoned(directory.path());
    abandoned.append(bytesOfText("x"));
    file = abandoned.fileURL();
  }
  EXPECT_FALSE(std::filesystem::exists(file)) << "a writer never finalised leaves its file";

  std::unique_ptr<CompressedFrameStore> store;
  std::unique_ptr<CompressedFrameStore> again;
  {
    DiskFrameWriter writer(directory.path());
    writer.append(bytesOfText("kept"));
    file = writer.fileURL();
    store = writer.finalize();
    again = writer.finalize();
    EXPECT_EQ(again->data(0), bytesOfText("kept")) << "finalizing twice";
    EXPECT_THROW(writer.append(bytesOfText("two")), std::system_error);
    EXPECT_EQ(writer.count(), 1);
  }
  EXPECT_EQ(readFile(file), "kept") << "the writer deleted a file its store owns";
  store.reset();
  again.reset();
  EXPECT_FALSE(std::filesystem::exists(file));

  DiskFrameWriter discarded(directory.path());
  discarded.append(bytesOfText("frame"));
  store = discarded.finalize();
  discarded.discard();
  EXPECT_FALSE(std::filesystem::exists(discarded.fileURL()));
  EXPECT_THROW(store->data(0), std::system_error);
}

TEST(DiskFrameWriter, CountIsConsistentWhileAnotherThreadAppends) {
  TempDirectory directory;
  DiskFrameWriter writer(directory.path());
  constexpr int kFrames = 3000;
  const auto blob = [](int i) { return bytesOfText(std::to_string(i) + std::string(i % 7, '.')); };
  std::jthread appender([&] {
    for (int i = 0; i < kFrames; ++i) {
      writer.append(blob(i));
    }
  });
  for (int last = 0; last < kFrames;) {
    const int now = writer.count();
    ASSERT_TRUE(now >= last && now <= kFrames) << last << " then " << now;
    last = now;
  }
  appender.join();
  const auto store = writer.finalize();
  for (int i = 0; i < kFrames; i += 97) {
    EXPECT_EQ(store->data(i), blob(i));
  }
}

void ageFile(const std::filesystem::path& file, std::chrono::seconds age) {
  std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() - age);
}

TEST(DiskFrameWriter, SweepDeletesOnlyOldFrameFilesAndLogsTheCount) {
  TempDirectory directory;
  const auto oldFrames = directory / "brimble-frames-OLD-1";
  const auto olderFrames = directory / "brimble-frames-OLD-2";
  const auto youngFrames = directory / "brimble-frames-YOUNG";
  const auto oldOther = directory / "notes.txt";
  for (const auto& file : {oldFrames, olderFrames, youngFrames, oldOther}) {
    std::ofstream(file) << "data";
  }
  ageFile(oldFrames, std::chrono::hours(2));
  ageFile(olderFrames, std::chrono::hours(30));
  ageFile(youngFrames, std::chrono::minutes(10));
  ageFile(oldOther, std::chrono::hours(2));

  LogCapture log;
  DiskFrameWriter::sweepOrphans(directory.path(), 3600);
  EXPECT_FALSE(std::filesystem::exists(oldFrames));
  EXPECT_FALSE(std::filesystem::exists(olderFrames));
  EXPECT_TRUE(std::filesystem::exists(youngFrames));
  EXPECT_TRUE(std::filesystem::exists(oldOther));
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "Brimble: swept 2 orphaned frame-store file(s) from a prior session"});

  // Nothing left to delete, or nowhere to look: nothing is logged.
  DiskFrameWriter::sweepOrphans(directory.path(), 3600);
  DiskFrameWriter::sweepOrphans(directory / "does-not-exist", 3600);
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(std::filesystem::exists(youngFrames));
}

// A second process that records: it keeps one frame file open in a writer (a paused recording)
// and one in a store (a recording kept for a later render), says where they are, and waits.
// SIGKILL is its crash: nothing of ours runs, so both files stay behind.
struct FrameFileHoldingProcess {
  pid_t pid = -1;
  std::filesystem::path writerFile;
  std::filesystem::path storeFile;
  int release = -1;

  explicit FrameFileHoldingProcess(const std::filesystem::path& directory) {
    int paths[2];
    int hold[2];
    if (::pipe(paths) != 0 || ::pipe(hold) != 0) {
      return;
    }
    pid = ::fork();
    if (pid == 0) {
      ::close(paths[0]);
      ::close(hold[1]);
      DiskFrameWriter writer(directory);
      writer.append(bytesOfText("frame"));
      DiskFrameWriter finished(directory);
      finished.append(bytesOfText("kept"));
      const auto store = finished.finalize();
      const std::string names =
          writer.fileURL().string() + "\n" + finished.fileURL().string() + "\n";
      if (::write(paths[1], names.data(), names.size()) != static_cast<ssize_t>(names.size())) {
        ::_exit(1);
      }
      char byte = 0;
      [[maybe_unused]] const auto ignored = ::read(hold[0], &byte, 1);
      ::_exit(0);
    }
    ::close(paths[1]);
    ::close(hold[0]);
    release = hold[1];
    std::string names;
    char buffer[512];
    for (ssize_t got; std::count(names.begin(), names.end(), '\n') < 2 &&
                      (got = ::read(paths[0], buffer, sizeof buffer)) > 0;) {
      names.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(paths[0]);
    const auto newline = names.find('\n');
    if (newline != std::string::npos) {
      writerFile = names.substr(0, newline);
      storeFile = names.substr(newline + 1, names.size() - newline - 2);
    }
  }
  void crash() {
    if (pid > 0) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
      pid = -1;
    }
  }
  ~FrameFileHoldingProcess() {
    crash();
    if (release >= 0) {
      ::close(release);
    }
  }
  FrameFileHoldingProcess(const FrameFileHoldingProcess&) = delete;
  FrameFileHoldingProcess& operator=(const FrameFileHoldingProcess&) = delete;
};

TEST(DiskFrameWriter, SweepLeavesFrameFilesThatARunningProcessStillHolds) {
  TempDirectory directory;
  FrameFileHoldingProcess other(directory.path());
  ASSERT_FALSE(other.writerFile.empty());
  ASSERT_TRUE(std::filesystem::exists(other.writerFile));
  ASSERT_TRUE(std::filesystem::exists(other.storeFile));
  DiskFrameWriter ours(directory.path());
  ours.append(bytesOfText("ours"));
  for (const auto& file : {other.writerFile, other.storeFile, ours.fileURL()}) {
    ageFile(file, std::chrono::hours(2));  // paused, or kept, for two hours
  }

  LogCapture log;
  DiskFrameWriter::sweepOrphans(directory.path(), 3600);
  EXPECT_TRUE(std::filesystem::exists(other.writerFile));
  EXPECT_TRUE(std::filesystem::exists(other.storeFile));
  EXPECT_TRUE(std::filesystem::exists(ours.fileURL()));
  EXPECT_TRUE(log.lines().empty());
  const auto store = ours.finalize();
  DiskFrameWriter::sweepOrphans(directory.path(), 3600);
  EXPECT_EQ(store->data(0), bytesOfText("ours"));

  other.crash();
  DiskFrameWriter::sweepOrphans(directory.path(), 3600);
  EXPECT_FALSE(std::filesystem::exists(other.writerFile));
  EXPECT_FALSE(std::filesystem::exists(other.storeFile));
  EXPECT_TRUE(std::filesystem::exists(ours.fileURL()));
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "Brimble: swept 2 orphaned frame-store file(s) from a prior session"});
}

TEST(DiskFrameWriter, SweepRemovesDisplayFoldersAndEmptyTemporariesNoRunningProcessUses) {
  TempDirectory directory;
  const auto makeFolder = [&](const std::string& name) {
    std::filesystem::create_directories(directory / name / "tmp");
    std::ofstream(directory / name / "demo-bashrc") << "PS1='$ '";
    return directory / name;
  };
  const auto abandoned = makeFolder("brimble-display-GONE01");
  const auto namedInEnvironment = makeFolder("brimble-display-LIVE01");
  const auto workedIn = makeFolder("brimble-display-LIVE02");
  const auto young = makeFolder("brimble-display-YOUNG1");
  const auto emptyTemporary = directory / ".clip.gif.brimble-a1B2c3";
  const auto heldTemporary = directory / ".held.gif.brimble-d4E5f6";
  const auto writtenTemporary = directory / ".full.gif.brimble-g7H8i9";
  const auto notATemporary = directory / ".notes.brimble-x";
  for (const auto& file : {emptyTemporary, heldTemporary, notATemporary}) {
    std::ofstream{file};
  }
  std::ofstream(writtenTemporary) << "GIF89a";

  // The programs of a live session: one finds its folder in its environment, one works in it,
  // one is writing a temporary it has not filled yet.
  testing::ChildProcess display(
      {"/bin/sleep", "60"},
      std::vector<std::string>{"TMPDIR=" + (namedInEnvironment / "tmp").string()});
  testing::ChildProcess shell(
      {"sh", "-c", "cd \"$0\" && echo ready && exec sleep 60", workedIn.string()});
  testing::ChildProcess encoder(
      {"sh", "-c", "exec 3>>\"$0\" && echo ready && exec sleep 60", heldTemporary.string()});
  ASSERT_EQ(shell.readLine(std::chrono::seconds(10)), "ready");
  ASSERT_EQ(encoder.readLine(std::chrono::seconds(10)), "ready");

  for (const auto& entry : {abandoned, namedInEnvironment, workedIn, emptyTemporary, heldTemporary,
                            writtenTemporary, notATemporary}) {
    ageFile(entry, std::chrono::hours(2));
  }
  ageFile(young, std::chrono::minutes(5));

  LogCapture log;
  DiskFrameWriter::sweepOrphans(directory.path(), 3600);
  EXPECT_FALSE(std::filesystem::exists(abandoned));
  EXPECT_FALSE(std::filesystem::exists(emptyTemporary));
  for (const auto& kept :
       {namedInEnvironment, workedIn, young, heldTemporary, writtenTemporary, notATemporary}) {
    EXPECT_TRUE(std::filesystem::exists(kept)) << kept;
  }
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Brimble: swept 1 display folder(s) and 1 empty temporary "
                                     "file(s) left by runs that ended early"});

  // Once the session's programs are gone, so are their folders and their temporary.
  display.signal(SIGKILL);
  shell.signal(SIGKILL);
  encoder.signal(SIGKILL);
  for (auto* child : {&display, &shell, &encoder}) {
    ASSERT_TRUE(child->wait(std::chrono::seconds(10)).has_value());
  }
  DiskFrameWriter::sweepOrphans(directory.path(), 3600);
  EXPECT_FALSE(std::filesystem::exists(namedInEnvironment));
  EXPECT_FALSE(std::filesystem::exists(workedIn));
  EXPECT_FALSE(std::filesystem::exists(heldTemporary));
  EXPECT_TRUE(std::filesystem::exists(young));
  EXPECT_TRUE(std::filesystem::exists(writtenTemporary));
}

}  // namespace
}  // namespace brimble
