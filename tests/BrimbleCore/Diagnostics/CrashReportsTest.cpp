// Crash reports as a user meets them: a real `brimble mcp-server` killed by SIGSEGV writes a
// report and still dies of SIGSEGV, and the same crash twice is one bucket counted twice.
// Reports written by hand check how they are read, grouped and kept.

#include "BrimbleCore/Diagnostics/CrashReports.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Diagnostics/CrashHandler.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// A server a host has started and initialized, and that has been asked to validate a script
// holding text a user would type, which no report may repeat.
std::optional<int> crashInitializedServer(const testing::TempDirectory& home) {
  testing::ChildProcess server(
      {BRIMBLE_BINARY, "mcp-server", "--headless"},
      std::vector<std::string>{"HOME=" + home.path().string(),
                               "XDG_STATE_HOME=" + (home / "state").string(),
                               "XDG_CONFIG_HOME=" + (home / "config").string(),
                               "XDG_DATA_HOME=" + (home / "data").string(), "PATH=/usr/bin:/bin"});
  server.write(R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{}})"
               "\n");
  const std::optional<std::string> initialized = server.readLine(20s);
  EXPECT_TRUE(initialized && initialized->find("\"id\":1") != std::string::npos);
  server.write(
      R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"validate_script",)"
      R"("arguments":{"script":"type \"hunter2-typed-secret\" enter\n"}}})"
      "\n");
  const std::optional<std::string> validated = server.readLine(20s);
  EXPECT_TRUE(validated && validated->find("\"id\":2") != std::string::npos);
  // Past sending its answer, the server waits for the next request: the same place both times.
  std::this_thread::sleep_for(500ms);
  server.signal(SIGSEGV);
  const std::optional<int> ended = server.wait(60s);
  EXPECT_NE(server.errorOutput().find("brimble: crashed (SIGSEGV); a report was saved: " +
                                      (home / "state/brimble/crashes/").string()),
            std::string::npos)
      << server.errorOutput();
  return ended;
}

TEST(CrashReports, ASegfaultingServerLeavesTwoReportsInOneBucketAndDiesOfTheSignal) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer reports fatal signals itself; brimble installs no handler";
#endif
  const testing::TempDirectory home;
  EXPECT_EQ(crashInitializedServer(home), -SIGSEGV);
  EXPECT_EQ(crashInitializedServer(home), -SIGSEGV);

  const CrashReports reports(home / "state/brimble/crashes");
  const std::vector<CrashReport> listed = reports.list();
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_NE(listed[0].path, listed[1].path);
  for (const CrashReport& report : listed) {
    EXPECT_EQ(report.program, "brimble");
    EXPECT_EQ(report.command, "brimble mcp-server --headless");
    EXPECT_EQ(report.signal, "SIGSEGV");
    EXPECT_LT(std::chrono::system_clock::now() - report.time, 5min);
    const std::string text = testing::readFile(report.path);
    EXPECT_EQ(text.find("hunter2"), std::string::npos) << text;
    // The server's own functions, by name and with their source lines.
    EXPECT_NE(text.find("brimble::MCP"), std::string::npos) << text;
    EXPECT_NE(text.find(".cpp:"), std::string::npos) << text;
    // The log's last lines, as the server wrote them.
    EXPECT_NE(text.find("[Brimble MCP] Server starting"), std::string::npos) << text;
  }

  const std::vector<CrashBucket> buckets = reports.buckets();
  ASSERT_EQ(buckets.size(), 1u) << testing::readFile(listed[0].path)
                                << testing::readFile(listed[1].path);
  EXPECT_EQ(buckets[0].count, 2u);
  EXPECT_EQ(buckets[0].newestReport, listed[1].path);
  EXPECT_EQ(buckets[0].firstTime, listed[0].time);
  ASSERT_FALSE(buckets[0].topFrames.empty());
  for (const std::string& frame : buckets[0].topFrames) {
    EXPECT_TRUE(frame.starts_with("brimble::")) << frame;
  }

  // brimble doctor tells of them, and once told they are no longer new.
  EXPECT_EQ(reports.unseen().size(), 2u);
  const std::string doctor = "HOME=" + testing::shellQuote(home.path()) +
                             " XDG_STATE_HOME=" + testing::shellQuote((home / "state").string()) +
                             " " + testing::brimbleCommand("doctor --headless");
  std::string told = testing::runCommand(doctor).output;
  EXPECT_NE(told.find("Crash reports: 2 of 1 kind, 2 new since last shown:\n  2x brimble, "
                      "SIGSEGV in brimble::"),
            std::string::npos)
      << told;
  EXPECT_NE(told.find(listed[1].path.string()), std::string::npos) << told;
  EXPECT_TRUE(reports.unseen().empty());
  told = testing::runCommand(doctor).output;
  EXPECT_NE(told.find("Crash reports: 2 of 1 kind:\n"), std::string::npos) << told;
}

[[gnu::noinline]] void dereferenceNullForTheReport() {
  volatile int* nowhere = nullptr;
  *nowhere = 1;
}

// A child of the test with the handler installed meets `fault`; how it ended.
int crashChildWith(const fs::path& folder, void (*fault)()) {
  const pid_t child = ::fork();
  if (child == 0) {
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    const std::vector<std::string> arguments{"run", "--output=secret.gif", "-q", "typed words"};
    crashHandler::install("brimble-test", "9.9", arguments, folder);
    fault();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
}

TEST(CrashReports, AFaultOrAnAbortInOurCodeNamesTheFunctionAndEndsTheProcessWithTheSignal) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer reports fatal signals itself; brimble installs no handler";
#endif
  const testing::TempDirectory folder;
  EXPECT_EQ(crashChildWith(folder / "crashes", dereferenceNullForTheReport), SIGSEGV);
  std::vector<CrashReport> reports = CrashReports(folder / "crashes").list();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].command, "brimble-test run --output -q");
  ASSERT_FALSE(reports[0].topFrames.empty());
  EXPECT_NE(reports[0].topFrames[0].find("dereferenceNullForTheReport"), std::string::npos)
      << testing::readFile(reports[0].path);
  EXPECT_NE(testing::readFile(reports[0].path).find("Signal: SIGSEGV (11), at address 0x0\n"),
            std::string::npos);

  fs::remove(reports[0].path);
  EXPECT_EQ(crashChildWith(folder / "crashes", [] { std::abort(); }), SIGABRT);
  reports = CrashReports(folder / "crashes").list();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].signal, "SIGABRT");
  EXPECT_NE(testing::readFile(reports[0].path).find("raised by the program itself"),
            std::string::npos);
}

std::string handWrittenReport(const std::string& time, const std::string& innermost,
                              const std::string& offset) {
  return "Brimble crash report\nProgram: brimble-app\nVersion: 0.1.0\nCommand: brimble-app\n"
         "Signal: SIGABRT (6), raised by the program itself\nTime: " +
         time +
         "\nPid: 77\n\nBacktrace:\n"
         "#0 /usr/lib/x86_64-linux-gnu/libc.so.6+0x8aebc\n"
         "    __pthread_kill_implementation at ./nptl/pthread_kill.c:44\n"
         "#1 /opt/brimble/brimble-app+" +
         offset + "\n    " + innermost +
         " at /src/Brimble/AppShell.cpp:12\n"
         "    (inlined by) brimble::AppShell::start() at /src/Brimble/AppShell.cpp:40\n"
         "#2 /opt/brimble/brimble-app+0x1200\n    main at /src/Brimble/main.cpp:99\n"
         "\nRecent log lines:\n2026-11-26T17:00:00.000Z [77] Brimble: ready\n";
}

TEST(CrashReports, BucketsByFunctionNamesNotAddressesAndLeavesOutWhatIsNotAReport) {
  const testing::TempDirectory folder;
  testing::writeFile(folder / "a.crash", handWrittenReport("2026-11-20T10:00:00Z",
                                                           "brimble::AppShell::grab()", "0x10"));
  testing::writeFile(folder / "b.crash", handWrittenReport("2026-11-21T10:00:00Z",
                                                           "brimble::AppShell::grab()", "0x99"));
  testing::writeFile(folder / "c.crash", handWrittenReport("2026-11-22T10:00:00Z",
                                                           "brimble::AppShell::paint()", "0x10"));
  testing::writeFile(folder / "d.crash", "Brimble crash report\nProgram: brimble\n");
  testing::writeFile(folder / "e.crash", std::string("\x7f"
                                                     "ELF\0\0",
                                                     6));
  testing::writeFile(folder / "notes.txt", "not a report");

  const testing::LogCapture log;
  const std::vector<CrashBucket> buckets = CrashReports(folder.path()).buckets();
  ASSERT_EQ(buckets.size(), 2u);
  EXPECT_EQ(buckets[0].count, 1u);  // the newest crash first
  EXPECT_EQ(buckets[0].topFrames,
            (std::vector<std::string>{"brimble::AppShell::paint()", "brimble::AppShell::start()"}));
  EXPECT_EQ(buckets[1].count, 2u);
  EXPECT_EQ(buckets[1].signal, "SIGABRT");
  EXPECT_EQ(buckets[1].newestReport, folder / "b.crash");
  EXPECT_NE(buckets[0].signature, buckets[1].signature);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"Brimble: " + (folder / "d.crash").string() +
                                          " is not a readable crash report; left out",
                                      "Brimble: " + (folder / "e.crash").string() +
                                          " is not a readable crash report; left out"}));
}

TEST(CrashReports, UnseenIsWhatCameAfterMarkSeenAndPruneKeepsTheNewest) {
  const testing::TempDirectory folder;
  const CrashReports reports(folder.path());
  EXPECT_TRUE(reports.unseen().empty());  // no folder yet
  const auto file = [&folder](int number) {
    return folder / ("r" + std::to_string(number) + ".crash");
  };
  for (int i = 0; i < 3; ++i) {
    testing::writeFile(file(i), handWrittenReport("2026-11-2" + std::to_string(i) + "T10:00:00Z",
                                                  "brimble::AppShell::grab()", "0x10"));
  }
  reports.markSeen();
  testing::writeFile(
      file(3), handWrittenReport("2026-11-25T10:00:00Z", "brimble::AppShell::grab()", "0x10"));
  const std::vector<CrashReport> unseen = reports.unseen();
  ASSERT_EQ(unseen.size(), 1u);
  EXPECT_EQ(unseen[0].path, file(3));

  const auto base = fs::last_write_time(file(3));
  for (int i = 4; i < 4 + static_cast<int>(CrashReports::kKeptReports); ++i) {
    testing::writeFile(
        file(i), handWrittenReport("2026-11-26T10:00:00Z", "brimble::AppShell::grab()", "0x10"));
    fs::last_write_time(file(i), base + std::chrono::seconds(i));
  }
  reports.prune();
  EXPECT_EQ(reports.list().size(), CrashReports::kKeptReports);
  EXPECT_FALSE(fs::exists(file(3)));
  EXPECT_TRUE(fs::exists(file(4)));
}

}  // namespace
}  // namespace brimble
