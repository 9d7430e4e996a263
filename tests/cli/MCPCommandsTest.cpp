// `brimble mcp-server` run the way an AI assistant host runs it.

#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;

TEST(BrimbleMCPServer, AnswersRawLinesAndKeepsDiagnosticsOnStandardError) {
  testing::ChildProcess server({BRIMBLE_BINARY, "mcp-server"});
  ASSERT_TRUE(server.write(
      "\n"
      "  \t\n"
      "not json\n"
      R"({"jsonrpc":"2.0","id":1.5,"method":"ping"})"
      "\n"
      R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
      "\n"
      R"({"jsonrpc":"2.0","id":"u","method":"unknown/method"})"
      "\n"
      R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"arguments":{}}})"
      "\n"
      R"({"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"list_windows"}})"
      "\n"
      R"({"jsonrpc":"2.0","id":4,"method":"tools/list"})"
      "\n"));
  server.closeInput();
  EXPECT_EQ(server.readRemainingOutput(10s),
            R"({"error":{"code":-32700,"message":"JSON parse error: syntax error while parsing )"
            R"(value - invalid literal; last read: 'no' at line 1, column 2"},"jsonrpc":"2.0"})"
            "\n"
            R"({"error":{"code":-32700,"message":"JSON parse error: RequestID must be string or )"
            R"(integer"},"jsonrpc":"2.0"})"
            "\n"
            R"({"error":{"code":-32601,"message":"Unknown method: unknown/method"},"id":"u",)"
            R"("jsonrpc":"2.0"})"
            "\n"
            R"({"error":{"code":-32602,"message":"tools/call requires 'name' parameter"},"id":2,)"
            R"("jsonrpc":"2.0"})"
            "\n"
            R"({"error":{"code":-32601,"message":"Unknown tool: list_windows"},"id":3,)"
            R"("jsonrpc":"2.0"})"
            "\n"
            R"({"id":4,"jsonrpc":"2.0","result":{"tools":[]}})"
            "\n");
  EXPECT_EQ(server.wait(5s), 0);
  EXPECT_EQ(server.errorOutput(),
            "[Brimble MCP] Server starting (brimble v1.0.0)\n"
            "[Brimble MCP] Client initialized\n"
            "[Brimble MCP] EOF on stdin, shutting down\n");
}

}  // namespace
}  // namespace brimble
