// `brimble mcp-install`, `mcp-uninstall` and `mcp-status` run the way a user runs them, against a
// temporary home directory, and `brimble mcp-server` meeting a host that stops reading. The
// official SDK client drives `brimble mcp-server` in tests/MCP/MCPSDKClientTest.cpp.

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::shellQuote;

TEST(BrimbleMCPServer, AHostThatStopsReadingEndsTheServerCleanly) {
  // `true` reads nothing and exits, so the answers meet a pipe nobody reads; the shell reports
  // how brimble ended.
  testing::ChildProcess host(
      {"/bin/sh", "-c",
       "{ " + shellQuote(BRIMBLE_BINARY) + " mcp-server; echo \"exit $?\" >&2; } | true"});
  std::optional<int> ended;
  for (int i = 0; i < 50 && !ended; ++i) {
    host.write(R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
               "\n");
    ended = host.wait(100ms);
  }
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(host.errorOutput(), "[Brimble MCP] Server starting (brimble v" +
                                    testing::brimbleVersion() +
                                    ")\n"
                                    "[Brimble MCP] Failed to write response: the output is closed\n"
                                    "[Brimble MCP] Output closed, shutting down\nexit 0\n");
}

TEST(BrimbleMCPInstall, InstallsIntoDetectedHostsReportsAndRemovesAgain) {
  const testing::TempDirectory home;
  // With only HOME and a PATH without brimble, standard error folded in.
  const auto brimble = [&home](const std::string& arguments) {
    return testing::runCommand("env -i HOME=" + shellQuote(home.path().string()) +
                               " PATH=/usr/bin:/bin " + shellQuote(BRIMBLE_BINARY) + " " +
                               arguments + " 2>&1");
  };
  const std::string shim = (home / ".local/share/brimble/mcp-shim.sh").string();
  const std::string notOnPath =
      "Note: brimble is not in /usr/local/bin, ~/.local/bin or /home/linuxbrew/.linuxbrew/bin, nor "
      "on PATH, so for now AI tools get install instructions instead of Brimble. To put this one "
      "there: mkdir -p ~/.local/bin && ln -s " BRIMBLE_BINARY " ~/.local/bin/\n";
  auto result = brimble("mcp-install");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output,
            "brimble mcp-install: no MCP host found (looked for Claude Code, Claude Desktop, "
            "Cursor, VS Code and Windsurf). Name one to register it anyway, for example: brimble "
            "mcp-install cursor\n");
  // Nothing of an install (the shim's folder); Brimble's own state may be in ~/.local/state.
  EXPECT_FALSE(fs::exists(home / ".local/share"));

  fs::create_directories(home / ".claude");
  testing::writeFile(home / ".codeium/windsurf/mcp_config.json",
                     R"({"mcpServers":{"brimble":{"command":"/opt/old/brimble","args":[]}}})");
  testing::writeFile(home / ".cursor/mcp.json", "{\"mcpServers\": {\n");
  result = brimble("mcp-status");
  EXPECT_EQ(result.output,
            "Claude Code     detected      not registered\n"
            "Claude Desktop  not detected  not registered\n"
            "Cursor          detected      not registered\n"
            "VS Code         not detected  not registered\n"
            "Windsurf        detected      registered to /opt/old/brimble (run brimble "
            "mcp-install to upgrade)\n"
            "Shim: " +
                shim +
                " (not installed)\n"
                "The shim starts: nothing (brimble not found; AI tools get install "
                "instructions)\n");

  result = brimble("mcp-install");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output,
            "Registered Claude Code\nError: Cursor: " + (home / ".cursor/mcp.json").string() +
                " is not valid JSON (syntax error while parsing object key - "
                "unexpected end of input; expected string literal at line 2, column "
                "1); left it unchanged\nUpgraded Windsurf entry to shim\n" +
                notOnPath);
  EXPECT_EQ(testing::readFile(home / ".cursor/mcp.json"), "{\"mcpServers\": {\n");
  result = brimble("mcp-install vscode claude-desktop vscode");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, "Registered VS Code\nRegistered Claude Desktop\n" + notOnPath);

  // The shim starts the brimble it finds first.
  fs::create_directories(home / ".local/bin");
  fs::create_symlink(BRIMBLE_BINARY, home / ".local/bin/brimble");
  result = brimble("mcp-status");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(result.output.ends_with(
      "Shim: " + shim + "\nThe shim starts: " + (home / ".local/bin/brimble").string() + "\n"))
      << result.output;

  // The shim stays while any host still runs it.
  EXPECT_EQ(brimble("mcp-uninstall vscode").output, "Unregistered VS Code\n");
  EXPECT_EQ(brimble("mcp-uninstall vscode").output, "Brimble was not registered with VS Code\n");
  EXPECT_TRUE(fs::exists(shim));
  result = brimble("mcp-uninstall");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "Unregistered Claude Code\nUnregistered Claude Desktop\nUnregistered Windsurf\n");
  EXPECT_FALSE(fs::exists(shim));
  EXPECT_EQ(brimble("mcp-uninstall").output, "Brimble is not registered with any MCP host\n");
  // Files that held nothing but the entry are gone with the folders made for them, so hosts
  // that were not there before are not detected; a file with anything else stays.
  const std::string status = brimble("mcp-status").output;
  EXPECT_EQ(status.substr(0, status.find("Shim:")),
            "Claude Code     detected      not registered\n"
            "Claude Desktop  not detected  not registered\n"
            "Cursor          detected      not registered\n"
            "VS Code         not detected  not registered\n"
            "Windsurf        not detected  not registered\n");
  EXPECT_FALSE(fs::exists(home / ".claude.json"));
  EXPECT_TRUE(fs::exists(home / ".config"));
}

}  // namespace
}  // namespace brimble
