// The official MCP TypeScript SDK as the client: a client no one here wrote, connecting the way
// AI assistant hosts do (tests/MCP/sdk-client.cjs), to the test server and to `brimble mcp-server`.

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/RunCommand.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

/// Runs the SDK client script and returns what it saw; fails the test when it fails.
json runSDKClient(const std::string& scenario, const std::vector<std::string>& server) {
  std::vector<std::string> arguments = {"env", "NODE_PATH=" BRIMBLE_NPM_DIR "/node_modules", "node",
                                        BRIMBLE_SOURCE_DIR "/tests/MCP/sdk-client.cjs", scenario};
  arguments.insert(arguments.end(), server.begin(), server.end());
  testing::ChildProcess client(arguments);
  client.closeInput();
  const json seen = json::parse(client.readRemainingOutput(60s), nullptr, false);
  EXPECT_EQ(client.wait(10s), 0) << "the SDK client failed:\n" << client.errorOutput();
  EXPECT_TRUE(seen.is_object()) << client.errorOutput();
  EXPECT_EQ(seen["transportErrors"], json::array());  // lines the SDK could not parse
  // Closing ends the server by end of input, well before the SDK would resort to SIGTERM.
  EXPECT_EQ(seen["close"], json::parse(R"({"exitCode":0,"signal":null})"));
  EXPECT_LT(seen["closeMilliseconds"].get<int>(), 2000);
  return seen;
}

json textResult(const std::string& text, bool isError) {
  json result = {{"content", json::array({{{"type", "text"}, {"text", text}}})}};
  if (isError) {
    result["isError"] = true;
  }
  return result;
}

TEST(MCPSDKClient, TalksToTheServerLikeAHost) {
  const json seen = runSDKClient("catalogue", {BRIMBLE_MCP_TEST_SERVER});
  EXPECT_EQ(seen["serverVersion"], json::parse(R"({"name":"brimble-test","version":"0.0.1"})"));
  EXPECT_EQ(seen["serverCapabilities"], json::parse(R"({"tools":{},"resources":{}})"));
  std::vector<std::string> toolNames;
  for (const json& tool : seen["tools"]["tools"]) {
    toolNames.push_back(tool["name"]);
  }
  // The second "add" replaced the first in its place.
  EXPECT_EQ(toolNames, (std::vector<std::string>{"add", "explode", "noisy", "sleep", "echo",
                                                 "throw_int", "not_a_number"}));
  EXPECT_EQ(seen["add"],
            textResult("{\n  \"operands\": [\n    2,\n    40\n  ],\n  \"sum\": 42\n}", false));
  EXPECT_EQ(seen["addWrong"], textResult("Both 'a' and 'b' must be numbers.", true));
  EXPECT_EQ(seen["unknownTool"],
            json::parse(R"({"code":-32601,"message":"MCP error -32601: Unknown tool: missing"})"));
  // Exact URIs before templates, and every read says "text/plain".
  EXPECT_EQ(seen["readme"], json::parse(R"({"contents":[{"uri":"test://notes/readme",
      "mimeType":"text/plain","text":"# Notes\n\nHello."}]})"));
  EXPECT_EQ(seen["file"], json::parse(R"({"contents":[{"uri":"test://reports/q3.json",
      "mimeType":"text/plain","text":"{\"file\": \"reports/q3.json\"}"}]})"));
  EXPECT_EQ(seen["unknownResource"], json::parse(R"({"code":-32602,
      "message":"MCP error -32602: Unknown resource: elsewhere://notes"})"));
  EXPECT_EQ(seen["brokenResource"], json::parse(R"({"code":-32603,
      "message":"MCP error -32603: Resource read error: the disk is gone"})"));
}

TEST(MCPSDKClient, ConnectsToBrimbleMCPServer) {
  const json seen = runSDKClient("basic", {BRIMBLE_BINARY, "mcp-server"});
  const std::string version = testing::brimbleVersion();
  EXPECT_EQ(seen["serverVersion"], json({{"name", "brimble"}, {"version", version}}));
  EXPECT_EQ(seen["serverCapabilities"], json::parse(R"({"tools":{},"resources":{}})"));
  std::vector<std::string> toolNames;
  for (const json& tool : seen["tools"]["tools"]) {
    toolNames.push_back(tool["name"]);
  }
  EXPECT_EQ(toolNames,
            (std::vector<std::string>{"list_windows",      "open_app",         "focus_app",
                                      "list_settings",     "list_commands",    "check_permissions",
                                      "brimble_status",    "type_text",        "click",
                                      "move_cursor",       "key_press",        "scroll",
                                      "start_recording",   "record_region",    "stop_recording",
                                      "pause_recording",   "resume_recording", "record_simulator",
                                      "capture_still",     "render_gif",       "process_gif",
                                      "discard_recording", "execute_script",   "validate_script",
                                      "list_elements",     "resolve_target"}));
  std::vector<std::string> uris;
  for (const json& resource : seen["resources"]["resources"]) {
    uris.push_back(resource["uri"]);
  }
  EXPECT_EQ(uris,
            (std::vector<std::string>{
                "brimble://docs/scripting-reference", "brimble://examples/{name}",
                "brimble://schema/settings", "brimble://status/permissions", "brimble://recordings",
                "gif://library", "gif://{path}", "script://library", "script://library/{name}"}));
  EXPECT_EQ(seen["ping"], json::object());
  EXPECT_EQ(seen["stderr"], "[Brimble MCP] Server starting (brimble v" + version +
                                ")\n[Brimble MCP] Client initialized\n"
                                "[Brimble MCP] EOF on stdin, shutting down\n");
}

}  // namespace
}  // namespace brimble
