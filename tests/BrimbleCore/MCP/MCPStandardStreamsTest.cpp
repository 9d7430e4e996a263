// The test server (tests/MCP/MCPTestServer.cpp) sets up its streams exactly as `brimble
// mcp-server` does; these tests run it as a real process and signal it. What reaches each stream
// is checked with raw lines in MCPServerTest.cpp.

#include "BrimbleCore/MCP/MCPStandardStreams.h"

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;

std::string sleepCall(const char* seconds) {
  return R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"sleep","arguments":)"
         R"({"seconds":)" +
         std::string(seconds) + "}}}\n";
}

/// The test server, started through the shell `prefix`, once it answers (so its signal handlers
/// are in place).
struct ReadyServer {
  ChildProcess process;

  explicit ReadyServer(const std::string& prefix = "")
      : process({"/bin/sh", "-c", prefix + "exec " + BRIMBLE_MCP_TEST_SERVER}) {
    EXPECT_TRUE(process.write(R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
                              "\n"));
    EXPECT_EQ(process.readLine(10s), R"({"id":1,"jsonrpc":"2.0","result":{}})")
        << process.errorOutput();
  }
};

TEST(MCPStandardStreams, TermHangUpAndInterruptEndTheServerAtOnce) {
  for (const auto& [signal, name] :
       {std::pair{SIGTERM, "SIGTERM"}, std::pair{SIGHUP, "SIGHUP"}, std::pair{SIGINT, "SIGINT"}}) {
    ReadyServer server;
    server.process.signal(signal);
    EXPECT_EQ(server.process.wait(2s), 0) << name;
    EXPECT_TRUE(
        server.process.errorOutput().ends_with(std::string("[Brimble MCP] Received ") + name +
                                               "\n[Brimble MCP] EOF on stdin, shutting down\n"))
        << server.process.errorOutput();
  }
}

TEST(MCPStandardStreams, ASignalIgnoredAtStartStaysIgnored) {
  ReadyServer server("trap '' HUP; ");  // as under nohup
  server.process.signal(SIGHUP);
  EXPECT_EQ(server.process.wait(300ms), std::nullopt);
  ASSERT_TRUE(server.process.write(R"({"jsonrpc":"2.0","id":2,"method":"ping"})"
                                   "\n"));
  EXPECT_EQ(server.process.readLine(5s), R"({"id":2,"jsonrpc":"2.0","result":{}})");
}

TEST(MCPStandardStreams, ACallFinishesBeforeASignalEndsTheServerUnlessASecondOneComes) {
  ReadyServer finishing;
  ASSERT_TRUE(finishing.process.write(sleepCall("0.4")));
  std::this_thread::sleep_for(100ms);
  finishing.process.signal(SIGTERM);
  EXPECT_EQ(finishing.process.readLine(5s),
            R"({"id":2,"jsonrpc":"2.0","result":{"content":[{"text":"{\n  \"slept\": 0.4\n}",)"
            R"("type":"text"}]}})");
  EXPECT_EQ(finishing.process.wait(2s), 0);

  ReadyServer stuck;
  ASSERT_TRUE(stuck.process.write(sleepCall("60")));
  std::this_thread::sleep_for(100ms);
  stuck.process.signal(SIGTERM);
  std::this_thread::sleep_for(100ms);
  stuck.process.signal(SIGTERM);
  EXPECT_EQ(stuck.process.wait(2s), -SIGTERM);
}

}  // namespace
}  // namespace brimble
