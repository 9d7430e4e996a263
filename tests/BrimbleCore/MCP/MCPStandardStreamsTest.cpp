// The test server (tests/MCP/MCPTestServer.cpp) sets up its streams exactly as `brimble
// mcp-server` does; these tests run it as a real process and check what reaches each stream.

#include "BrimbleCore/MCP/MCPStandardStreams.h"

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/Support/ChildProcess.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;

constexpr const char* kInitialize = R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{}})"
                                    "\n";

/// A started test server that has answered `initialize`, so its signal handlers are in place.
struct ReadyServer {
  ChildProcess process{{BRIMBLE_MCP_TEST_SERVER}};

  ReadyServer() {
    EXPECT_TRUE(process.write(kInitialize));
    const auto answer = process.readLine(10s);
    EXPECT_TRUE(answer && answer->starts_with(R"({"id":1,"jsonrpc":"2.0","result":)"))
        << answer.value_or("(nothing)") << process.errorOutput();
  }
};

TEST(MCPStandardStreams, OutputOfTheServerAndItsChildrenNeverReachesTheProtocolStream) {
  ReadyServer server;
  // Everything is sent at once: a child that could read the server's standard input would
  // swallow the ping that follows the call.
  ASSERT_TRUE(server.process.write(
      R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"noisy"}})"
      "\n"
      R"({"jsonrpc":"2.0","id":3,"method":"ping"})"
      "\n"));
  server.process.closeInput();
  const std::string output = server.process.readRemainingOutput(10s);
  EXPECT_EQ(
      output,
      R"({"id":2,"jsonrpc":"2.0","result":{"content":[{"text":"{\n  \"childExitStatus\": 0\n}",)"
      R"("type":"text"}]}})"
      "\n"
      R"({"id":3,"jsonrpc":"2.0","result":{}})"
      "\n");
  EXPECT_EQ(server.process.wait(5s), 0);
  const std::string errors = server.process.errorOutput();
  for (const char* line : {"printf from the server\n", "std::cout from the server\n",
                           "child on stdout\n", "child on stderr\n", "child read nothing\n"}) {
    EXPECT_NE(errors.find(line), std::string::npos) << line << " not in: " << errors;
  }
}

TEST(MCPStandardStreams, EndOfInputEndsTheServerAtOnce) {
  ReadyServer server;
  const auto started = std::chrono::steady_clock::now();
  server.process.closeInput();
  EXPECT_EQ(server.process.wait(2s), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
  EXPECT_TRUE(server.process.errorOutput().ends_with("[Brimble MCP] EOF on stdin, shutting down\n"))
      << server.process.errorOutput();
}

TEST(MCPStandardStreams, TermHangUpAndInterruptEndTheServerAtOnce) {
  for (const auto& [signal, name] : std::vector<std::pair<int, std::string>>{
           {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}, {SIGINT, "SIGINT"}}) {
    SCOPED_TRACE(name);
    ReadyServer server;
    server.process.signal(signal);
    EXPECT_EQ(server.process.wait(2s), 0);
    EXPECT_TRUE(server.process.errorOutput().ends_with("[Brimble MCP] Received " + name +
                                                       "\n[Brimble MCP] EOF on stdin, shutting "
                                                       "down\n"))
        << server.process.errorOutput();
  }
}

TEST(MCPStandardStreams, ASignalIgnoredAtStartStaysIgnored) {
  // As under nohup: the shell ignores SIGHUP and the server inherits that.
  ChildProcess server(
      {"/bin/sh", "-c", std::string("trap '' HUP; exec ") + BRIMBLE_MCP_TEST_SERVER});
  ASSERT_TRUE(server.write(kInitialize));
  ASSERT_TRUE(server.readLine(10s).has_value()) << server.errorOutput();
  server.signal(SIGHUP);
  EXPECT_EQ(server.wait(300ms), std::nullopt);
  ASSERT_TRUE(server.write(R"({"jsonrpc":"2.0","id":2,"method":"ping"})"
                           "\n"));
  EXPECT_EQ(server.readLine(5s), R"({"id":2,"jsonrpc":"2.0","result":{}})");
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(2s), 0);
}

TEST(MCPStandardStreams, ASignalDuringACallLetsThatCallFinishFirst) {
  ReadyServer server;
  ASSERT_TRUE(server.process.write(
      R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"sleep","arguments":{"seconds":0.4}}})"
      "\n"));
  std::this_thread::sleep_for(100ms);
  server.process.signal(SIGTERM);
  EXPECT_EQ(server.process.readLine(5s),
            R"({"id":2,"jsonrpc":"2.0","result":{"content":[{"text":"{\n  \"slept\": 0.4\n}",)"
            R"("type":"text"}]}})");
  EXPECT_EQ(server.process.wait(2s), 0);
}

TEST(MCPStandardStreams, ASecondSignalStopsAServerStuckInACall) {
  ReadyServer server;
  ASSERT_TRUE(server.process.write(
      R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"sleep","arguments":{"seconds":60}}})"
      "\n"));
  std::this_thread::sleep_for(100ms);
  server.process.signal(SIGTERM);
  std::this_thread::sleep_for(100ms);
  server.process.signal(SIGTERM);
  EXPECT_EQ(server.process.wait(2s), -SIGTERM);
}

TEST(MCPStandardStreams, EveryOutputLineIsAJSONRPCMessage) {
  ReadyServer server;
  const std::vector<std::string> lines = {
      "",
      "   ",
      "not json",
      R"({"jsonrpc":"2.0","id":1.5,"method":"ping"})",
      R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
      R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":9}})",
      R"({"jsonrpc":"2.0","id":4,"method":"no/such"})",
      R"({"jsonrpc":"2.0","id":5,"method":"tools/call","params":{}})",
      R"({"jsonrpc":"2.0","id":6,"method":"tools/call","params":{"name":"not_a_number"}})",
      R"({"jsonrpc":"2.0","id":7,"method":"tools/call","params":{"name":"noisy"}})",
      "\xFF\xFE",
      R"({"jsonrpc":"2.0","id":8,"method":"ping"})",
  };
  for (const std::string& line : lines) {
    ASSERT_TRUE(server.process.write(line + "\n"));
  }
  server.process.closeInput();
  const std::string output = server.process.readRemainingOutput(10s);
  EXPECT_EQ(server.process.wait(5s), 0);
  std::vector<nlohmann::json> messages;
  std::size_t start = 0;
  for (std::size_t end; (end = output.find('\n', start)) != std::string::npos; start = end + 1) {
    const auto message = nlohmann::json::parse(output.substr(start, end - start), nullptr, false);
    ASSERT_FALSE(message.is_discarded()) << output.substr(start, end - start);
    ASSERT_TRUE(message.is_object());
    EXPECT_EQ(message["jsonrpc"], "2.0");
    EXPECT_NE(message.contains("result"), message.contains("error"));
    messages.push_back(message);
  }
  EXPECT_EQ(start, output.size()) << "a partial line";
  ASSERT_EQ(messages.size(), 8u) << output;
  EXPECT_EQ(messages[0].dump(),
            R"({"error":{"code":-32700,"message":"JSON parse error: syntax error while parsing )"
            R"(value - invalid literal; last read: 'no' at line 1, column 2"},"jsonrpc":"2.0"})");
  EXPECT_EQ(messages[1].dump(),
            R"({"error":{"code":-32700,"message":"JSON parse error: RequestID must be string or )"
            R"(integer"},"jsonrpc":"2.0"})");
  EXPECT_EQ(messages[2]["error"]["code"], -32601);
  EXPECT_EQ(messages[3]["error"]["message"], "tools/call requires 'name' parameter");
  EXPECT_EQ(messages[4]["result"]["content"][0]["text"], "{}");
  EXPECT_EQ(messages[5]["id"], 7);
  EXPECT_EQ(messages[6].dump(), R"({"error":{"code":-32700,"message":"Invalid UTF-8 input"},)"
                                R"("jsonrpc":"2.0"})");
  EXPECT_EQ(messages[7].dump(), R"({"id":8,"jsonrpc":"2.0","result":{}})");
}

}  // namespace
}  // namespace brimble
