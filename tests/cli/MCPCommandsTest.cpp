// `brimble mcp-server`, `mcp-install`, `mcp-uninstall` and `mcp-status` run the way a user runs
// them, against a temporary home directory.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

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

/// Runs brimble with only HOME and a PATH without brimble, standard error folded in.
class BrimbleMCPInstall : public ::testing::Test {
 protected:
  testing::CommandResult brimble(const std::string& arguments) const {
    return runCommand("env -i HOME=" + shellQuote(home_.path().string()) + " PATH=/usr/bin:/bin " +
                      shellQuote(BRIMBLE_BINARY) + " " + arguments + " 2>&1");
  }
  std::string shim() const { return (home_ / ".local/share/brimble/mcp-shim.sh").string(); }

  TempDirectory home_;
};

constexpr const char* kNotOnPath =
    "Note: brimble is not in /usr/local/bin, ~/.local/bin or /opt/homebrew/bin, nor on PATH, so "
    "for now AI tools get install instructions instead of Brimble.\n";

TEST_F(BrimbleMCPInstall, WithoutHostsNothingIsInstalled) {
  const auto result = brimble("mcp-install");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output,
            "brimble mcp-install: no MCP host found (looked for Claude Code, Claude Desktop, "
            "Cursor, VS Code and Windsurf). Name one to register it anyway, for example: brimble "
            "mcp-install cursor\n");
  EXPECT_FALSE(fs::exists(home_ / ".local"));
}

TEST_F(BrimbleMCPInstall, InstallsIntoDetectedHostsReportsAndRemovesAgain) {
  fs::create_directories(home_ / ".claude");
  fs::create_directories(home_ / ".codeium/windsurf");
  std::ofstream(home_ / ".codeium/windsurf/mcp_config.json")
      << R"({"mcpServers":{"brimble":{"command":"/usr/local/bin/brimble","args":[]}}})";

  auto result = brimble("mcp-install");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, std::string("Registered Claude Code\n"
                                       "Upgraded Windsurf entry to shim\n") +
                               kNotOnPath);
  EXPECT_NE(readFile(home_ / ".claude.json").find("\"command\": \"" + shim() + "\""),
            std::string::npos);

  result = brimble("mcp-install vscode");
  EXPECT_EQ(result.output, std::string("Registered VS Code\n") + kNotOnPath);
  EXPECT_TRUE(fs::exists(home_ / ".config/Code/User/mcp.json"));

  result = brimble("mcp-status");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(
      result.output,
      "Claude Code     detected      registered\n"
      "Claude Desktop  not detected  not registered\n"
      "Cursor          not detected  not registered\n"
      "VS Code         detected      registered\n"
      "Windsurf        detected      registered\n"
      "Shim: " +
          shim() +
          "\n"
          "The shim starts: nothing (brimble not found; AI tools get install instructions)\n");

  result = brimble("mcp-uninstall");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "Unregistered Claude Code\nUnregistered VS Code\nUnregistered Windsurf\n");
  EXPECT_FALSE(fs::exists(shim()));
  result = brimble("mcp-uninstall");
  EXPECT_EQ(result.output, "Brimble is not registered with any MCP host\n");
}

TEST_F(BrimbleMCPInstall, StatusNamesAnEntryThatPointsElsewhereAndTheBrimbleTheShimFinds) {
  fs::create_directories(home_ / ".cursor");
  std::ofstream(home_ / ".cursor/mcp.json")
      << R"({"mcpServers":{"brimble":{"command":"/opt/old/brimble"}}})";
  fs::create_directories(home_ / ".local/bin");
  fs::create_symlink(BRIMBLE_BINARY, home_ / ".local/bin/brimble");
  const auto result = brimble("mcp-status");
  EXPECT_EQ(result.output,
            "Claude Code     not detected  not registered\n"
            "Claude Desktop  not detected  not registered\n"
            "Cursor          detected      registered to /opt/old/brimble (run brimble "
            "mcp-install to upgrade)\n"
            "VS Code         not detected  not registered\n"
            "Windsurf        not detected  not registered\n"
            "Shim: " +
                shim() +
                " (not installed)\n"
                "The shim starts: " +
                (home_ / ".local/bin/brimble").string() + "\n");
}

TEST_F(BrimbleMCPInstall, AMalformedConfigIsAnErrorLineAndExitStatus) {
  fs::create_directories(home_ / ".cursor");
  std::ofstream(home_ / ".cursor/mcp.json") << "{\"mcpServers\": {\n";
  const auto result = brimble("mcp-install cursor claude-desktop cursor");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output,
            "Error: Cursor: " + (home_ / ".cursor/mcp.json").string() +
                " is not valid JSON (syntax error while parsing object key - unexpected end of "
                "input; expected string literal at line 2, column 1); left it unchanged\n"
                "Registered Claude Desktop\n" +
                kNotOnPath);
  EXPECT_EQ(readFile(home_ / ".cursor/mcp.json"), "{\"mcpServers\": {\n");
}

TEST_F(BrimbleMCPInstall, UnknownHostsAreUsageErrors) {
  const auto result = brimble("mcp-install cursor notepad");
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_NE(
      result.output.find("notepad not in {claude-code,claude-desktop,cursor,vscode,windsurf}"),
      std::string::npos)
      << result.output;
  EXPECT_FALSE(fs::exists(home_ / ".cursor"));
}

}  // namespace
}  // namespace brimble
