// Raw lines against the test server (tests/MCP/MCPTestServer.cpp), which is set up as `brimble
// mcp-server` is. What the official SDK client checks (tests/MCP/MCPSDKClientTest.cpp: listings,
// tool results and failures, resource reads and their errors) is not repeated here.

#include "BrimbleCore/MCP/MCPServer.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;

std::string call(const std::string& id, const std::string& method, const std::string& params = "") {
  return "{\"jsonrpc\":\"2.0\"" + (id.empty() ? "" : ",\"id\":" + id) + ",\"method\":\"" + method +
         "\"" + (params.empty() ? "" : ",\"params\":" + params) + "}";
}

std::string result(const std::string& id, const std::string& json) {
  return "{\"id\":" + id + ",\"jsonrpc\":\"2.0\",\"result\":" + json + "}\n";
}

std::string text(const std::string& id, const std::string& content, bool isError = false) {
  return result(id, "{\"content\":[{\"text\":\"" + content + "\",\"type\":\"text\"}]" +
                        (isError ? ",\"isError\":true}" : "}"));
}

std::string error(const std::string& id, int code, const std::string& message) {
  return "{\"error\":{\"code\":" + std::to_string(code) + ",\"message\":\"" + message + "\"}" +
         (id.empty() ? "" : ",\"id\":" + id) + ",\"jsonrpc\":\"2.0\"}\n";
}

std::string parseErrorReply(const std::string& message) {
  return error("", -32700, message);
}

TEST(MCPServer, EachLineGetsItsExactAnswerAndNothingElseReachesTheOutput) {
  const std::string noName = "tools/call requires 'name' parameter";
  const std::string badID = "JSON parse error: RequestID must be string or integer";
  std::vector<std::pair<std::string, std::string>> lines = {
      {"", ""},
      {" \t\r", ""},
      // The client's protocol version is not examined.
      {call("1", "initialize", R"({"protocolVersion":"2099-01-01"})"),
       result("1", R"({"capabilities":{"resources":{},"tools":{}},"protocolVersion":"2024-11-05",)"
                   R"("serverInfo":{"name":"brimble-test","version":"0.0.1"}})")},
      {"not json", parseErrorReply("JSON parse error: syntax error while parsing value - invalid "
                                   "literal; last read: 'no' at line 1, column 2")},
      {call("1.5", "ping"), parseErrorReply(badID)},
      {call("9223372036854775808", "ping"), parseErrorReply(badID)},
      {R"({"jsonrpc":"2.0","id":3})", parseErrorReply("JSON parse error: MCPRequest needs a string "
                                                      "'method'")},
      {R"({"jsonrpc":2,"id":3,"method":"ping"})",
       parseErrorReply("JSON parse error: MCPRequest needs a string 'jsonrpc'")},
      {"[" + call("3", "ping") + "]",
       parseErrorReply("JSON parse error: MCPRequest must be a JSON object")},
      {"a\xFF", parseErrorReply("Invalid UTF-8 input")},
      // NBSP and an ideographic space before, a line separator and NEL after.
      {"\xC2\xA0\xE3\x80\x80" + call("\"a\"", "ping") + "\xE2\x80\xA8\xC2\x85",
       result("\"a\"", "{}")},
      {call("-9223372036854775808", "ping"), result("-9223372036854775808", "{}")},
      {call("7", "unknown/method"), error("7", -32601, "Unknown method: unknown/method")},
      // Notifications are never answered, whatever their method.
      {call("", "notifications/initialized"), ""},
      {call("null", "ping"), ""},
      {call("", "no/such/method"), ""},
      {call("8", "tools/call"), error("8", -32602, noName)},
      {call("8", "tools/call", R"({"arguments":{}})"), error("8", -32602, noName)},
      {call("8", "tools/call", R"({"name":7})"), error("8", -32602, noName)},
      {call("8", "tools/call", R"(["echo"])"), error("8", -32602, noName)},
      {call("9", "tools/call", R"({"name":"echo"})"), text("9", "{}")},
      {call("9", "tools/call", R"({"name":"echo","arguments":null})"), text("9", "{}")},
      {call("9", "tools/call", R"({"name":"echo","arguments":{"s":"é€😀"}})"),
       text("9", R"({\n  \"s\": \"é€😀\"\n})")},
      {call("9", "tools/call", R"({"name":"explode"})"),
       text("9", "Internal error: the test tool blew up", true)},
      {call("9", "tools/call", R"({"name":"throw_int"})"),
       text("9", "Internal error: unknown error", true)},
      {call("9", "tools/call", R"({"name":"not_a_number"})"), text("9", "{}")},
      // A child that could read the server's standard input would swallow the next line.
      {call("10", "tools/call", R"({"name":"noisy"})"),
       text("10", R"({\n  \"childExitStatus\": 0\n})")},
      {call("11", "resources/read", "{}"),
       error("11", -32602, "resources/read requires 'uri' parameter")},
      {std::string(MCPTransport::kMaxLineBytes + 1, ' ') + call("12", "ping"),
       parseErrorReply("JSON parse error: line longer than 67108864 bytes")},
  };
  for (const char* bad : {"\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                          "\xE2\x82", "\x80", "\xF8\x88\x80\x80\x80"}) {
    lines.emplace_back(bad, parseErrorReply("Invalid UTF-8 input"));
  }
  std::string input;
  std::string expected;
  for (const auto& [line, answer] : lines) {
    input += line + "\n";
    expected += answer;
  }
  testing::ChildProcess server({BRIMBLE_MCP_TEST_SERVER});
  ASSERT_TRUE(server.write(input));
  server.closeInput();
  EXPECT_EQ(server.readRemainingOutput(10s), expected);
  EXPECT_EQ(server.wait(2s), 0);
  const std::string errors = server.errorOutput();
  for (const char* line : {"[Brimble MCP] Client initialized\n",
                           "[Brimble MCP] Ignoring notification: no/such/method\n",
                           "BrimbleCore: MCP jsonEncode failed; returning empty object\n",
                           "printf from the server\n", "std::cout from the server\n",
                           "child on stdout\n", "child on stderr\n", "child read nothing\n"}) {
    EXPECT_NE(errors.find(line), std::string::npos) << line << " not in: " << errors;
  }
  EXPECT_TRUE(errors.ends_with("[Brimble MCP] EOF on stdin, shutting down\n")) << errors;
}

}  // namespace
}  // namespace brimble
