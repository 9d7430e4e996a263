#include "BrimbleCore/MCP/MCPInstaller.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::TempDirectory;

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

mode_t modeOf(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

std::vector<std::string> namesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// The host table on Linux: where each host's file lives under the home directory.
struct HostFile {
  MCPClient client;
  const char* file;
  const char* parent;
  const char* displayName;
};
const HostFile kHosts[] = {
    {MCPClient::Kind::claudeCode, ".claude.json", ".claude", "Claude Code"},
    {MCPClient::Kind::claudeDesktop, ".config/Claude/claude_desktop_config.json", ".config/Claude",
     "Claude Desktop"},
    {MCPClient::Kind::cursor, ".cursor/mcp.json", ".cursor", "Cursor"},
    {MCPClient::Kind::vscode, ".config/Code/User/mcp.json", ".config/Code/User", "VS Code"},
    {MCPClient::Kind::windsurf, ".codeium/windsurf/mcp_config.json", ".codeium/windsurf",
     "Windsurf"},
};

class MCPInstallerTest : public ::testing::Test {
 protected:
  fs::path shimPath() const { return home_ / ".local/share/brimble/mcp-shim.sh"; }

  TempDirectory home_;
  MCPInstaller installer_{home_.path(), "9.8.7"};
};

TEST(MCPClient, NamesAndDisplayNames) {
  for (const HostFile& host : kHosts) {
    const auto client = MCPClient::fromName(host.client.rawName());
    ASSERT_TRUE(client.has_value());
    EXPECT_EQ(*client, host.client);
    EXPECT_EQ(host.client.displayName(), host.displayName);
  }
  EXPECT_EQ(MCPClient(MCPClient::Kind::claudeCode).rawName(), "claude-code");
  EXPECT_EQ(MCPClient(MCPClient::Kind::claudeDesktop).rawName(), "claude-desktop");
  EXPECT_EQ(MCPClient(MCPClient::Kind::vscode).rawName(), "vscode");
  for (const char* unknown : {"", "Cursor", "claude", "vs-code", "code"}) {
    EXPECT_FALSE(MCPClient::fromName(unknown).has_value()) << unknown;
  }
  EXPECT_EQ(MCPClient::all().size(), 5u);
}

TEST(MCPInstallResult, LogLines) {
  const MCPClient cursor(MCPClient::Kind::cursor);
  EXPECT_EQ(MCPInstallResult::registered(cursor).logLine(), "Registered Cursor");
  EXPECT_EQ(MCPInstallResult::upgraded(MCPClient::Kind::vscode).logLine(),
            "Upgraded VS Code entry to shim");
  EXPECT_EQ(MCPInstallResult::unregistered(MCPClient::Kind::claudeDesktop).logLine(),
            "Unregistered Claude Desktop");
  EXPECT_EQ(MCPInstallResult::error(cursor, "disk full").logLine(), "Error: disk full");
}

TEST_F(MCPInstallerTest, AFreshInstallWritesEachHostsFileAndTheShim) {
  for (const HostFile& host : kHosts) {
    SCOPED_TRACE(host.displayName);
    TempDirectory home;
    MCPInstaller installer(home.path(), "9.8.7");
    const auto results = installer.install({host.client}, std::nullopt);
    EXPECT_EQ(results, std::vector<MCPInstallResult>{MCPInstallResult::registered(host.client)});
    const std::string shim = (home / ".local/share/brimble/mcp-shim.sh").string();
    const bool vscode = host.client == MCPClient::Kind::vscode;
    EXPECT_EQ(readFile(home / host.file),
              std::string("{\n  \"") + (vscode ? "servers" : "mcpServers") +
                  "\": {\n    \"brimble\": {\n" + (vscode ? "      \"type\": \"stdio\",\n" : "") +
                  "      \"command\": \"" + shim + "\",\n      \"args\": []\n    }\n  }\n}\n");
    EXPECT_EQ(modeOf(home / host.file), 0600u);
    EXPECT_EQ(installer.registeredCommand(host.client), shim);
    EXPECT_TRUE(installer.isRegistered(host.client));
    EXPECT_EQ(modeOf(shim) & 0111, 0111u);
    EXPECT_TRUE(readFile(shim).starts_with("#!/bin/sh\n# Brimble MCP shim, version 9.8.7\n"));
    // Nothing but the file itself is left in its folder.
    EXPECT_EQ(namesIn((home / host.file).parent_path()).size(),
              host.client == MCPClient::Kind::claudeCode ? 2u : 1u);  // .claude.json and .local
  }
}

TEST_F(MCPInstallerTest, AnEntryPointingElsewhereIsUpgradedAndASecondInstallChangesNothing) {
  const fs::path file = home_ / ".cursor/mcp.json";
  writeFile(file, R"({"mcpServers": {"brimble": {"command": "/usr/local/bin/brimble", )"
                  R"("args": ["mcp-server"], "env": {"A": "1"}}}})");
  EXPECT_EQ(installer_.registeredCommand(MCPClient::Kind::cursor), "/usr/local/bin/brimble");
  auto results = installer_.install({MCPClient::Kind::cursor}, std::nullopt);
  EXPECT_EQ(results.at(0).logLine(), "Upgraded Cursor entry to shim");
  EXPECT_EQ(readFile(file), "{\"mcpServers\":{\"brimble\":{\"command\":\"" + shimPath().string() +
                                "\",\"args\":[]}}}");
  struct stat before {};
  ::stat(file.c_str(), &before);
  results = installer_.install({MCPClient::Kind::cursor}, std::nullopt);
  EXPECT_EQ(results.at(0).logLine(), "Registered Cursor");
  struct stat after {};
  ::stat(file.c_str(), &after);
  EXPECT_EQ(before.st_ino, after.st_ino) << "an up-to-date file was rewritten";
}

TEST_F(MCPInstallerTest, AnEntryWithTheShimButOtherFieldsIsRegisteredNotUpgraded) {
  const fs::path file = home_ / ".claude.json";
  writeFile(file, "{\"mcpServers\":{\"brimble\":{\"command\":\"" + shimPath().string() +
                      "\",\"args\":[\"--old\"]}}}");
  EXPECT_EQ(installer_.install({MCPClient::Kind::claudeCode}, std::nullopt).at(0).logLine(),
            "Registered Claude Code");
  EXPECT_EQ(readFile(file), "{\"mcpServers\":{\"brimble\":{\"command\":\"" + shimPath().string() +
                                "\",\"args\":[]}}}");
}

TEST_F(MCPInstallerTest, OtherServersAndKeysSurviveInstallAndUninstallUnchanged) {
  // Laid out as the installer writes (four-space indent, trailing newline), so uninstalling
  // must give back the very same bytes.
  const std::string original =
      "{\n"
      "    \"theme\": \"dark\",\n"
      "    \"servers\": {\n"
      "        \"github\": {\n"
      "            \"type\": \"http\",\n"
      "            \"url\": \"https://example.com/mcp\",\n"
      "            \"headers\": {\n"
      "                \"n\": 1.5\n"
      "            }\n"
      "        }\n"
      "    },\n"
      "    \"inputs\": []\n"
      "}\n";
  const fs::path file = home_ / ".config/Code/User/mcp.json";
  writeFile(file, original);
  ::chmod(file.c_str(), 0640);
  EXPECT_EQ(installer_.install({MCPClient::Kind::vscode}, std::nullopt).at(0).logLine(),
            "Registered VS Code");
  EXPECT_EQ(readFile(file),
            "{\n"
            "    \"theme\": \"dark\",\n"
            "    \"servers\": {\n"
            "        \"github\": {\n"
            "            \"type\": \"http\",\n"
            "            \"url\": \"https://example.com/mcp\",\n"
            "            \"headers\": {\n"
            "                \"n\": 1.5\n"
            "            }\n"
            "        },\n"
            "        \"brimble\": {\n"
            "            \"type\": \"stdio\",\n"
            "            \"command\": \"" +
                shimPath().string() +
                "\",\n"
                "            \"args\": []\n"
                "        }\n"
                "    },\n"
                "    \"inputs\": []\n"
                "}\n");
  EXPECT_EQ(modeOf(file), 0640u);
  EXPECT_EQ(installer_.uninstall({MCPClient::Kind::vscode}).at(0).logLine(),
            "Unregistered VS Code");
  EXPECT_EQ(readFile(file), original);
  EXPECT_EQ(modeOf(file), 0640u);
  EXPECT_FALSE(installer_.isRegistered(MCPClient::Kind::vscode));
}

TEST_F(MCPInstallerTest, AFileThatIsNotAJSONObjectIsNeverRewritten) {
  using Kind = MCPInstallResult::Kind;
  const struct {
    const char* text;
    const char* why;
    Kind uninstalled;  // a file without our entry is left alone and reports it gone
  } cases[] = {
      {"not json",
       "is not valid JSON (syntax error while parsing value - invalid literal; last read: 'no' "
       "at line 1, column 2); left it unchanged",
       Kind::error},
      {"{\"mcpServers\": {},}\n", nullptr, Kind::error},
      {"// my servers\n{\"mcpServers\": {}}\n", nullptr, Kind::error},
      {"[1, 2]", "does not hold a JSON object; left it unchanged", Kind::error},
      {"\"text\"", "does not hold a JSON object; left it unchanged", Kind::error},
      {"{\"mcpServers\": []}", nullptr, Kind::unregistered},
      {"{\"a\": 1} trailing", nullptr, Kind::error},
  };
  for (const auto& badFile : cases) {
    SCOPED_TRACE(badFile.text);
    TempDirectory home;
    MCPInstaller installer(home.path(), "1");
    const fs::path cursor = home / ".cursor/mcp.json";
    writeFile(cursor, badFile.text);
    ::chmod(cursor.c_str(), 0604);
    const auto results =
        installer.install({MCPClient::Kind::cursor, MCPClient::Kind::windsurf}, std::nullopt);
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].kind, MCPInstallResult::Kind::error);
    EXPECT_TRUE(results[0].logLine().starts_with("Error: Cursor: ")) << results[0].logLine();
    EXPECT_TRUE(results[0].message.ends_with("left it unchanged") ||
                results[0].message.ends_with("left the file unchanged"))
        << results[0].message;
    if (badFile.why != nullptr) {
      EXPECT_EQ(results[0].message, "Cursor: " + cursor.string() + " " + badFile.why);
    }
    // Another host in the same run is still registered.
    EXPECT_EQ(results[1].logLine(), "Registered Windsurf");
    EXPECT_EQ(readFile(cursor), badFile.text);
    EXPECT_EQ(modeOf(cursor), 0604u);
    EXPECT_EQ(installer.uninstall({MCPClient::Kind::cursor}).at(0).kind, badFile.uninstalled);
    EXPECT_EQ(readFile(cursor), badFile.text);
    EXPECT_EQ(namesIn(cursor.parent_path()), std::vector<std::string>{"mcp.json"});
    EXPECT_FALSE(installer.isRegistered(MCPClient::Kind::cursor));
  }
}

TEST_F(MCPInstallerTest, AServersKeyThatIsNotAnObjectIsAnError) {
  writeFile(home_ / ".cursor/mcp.json", "{\"mcpServers\": \"none\"}");
  EXPECT_EQ(installer_.install({MCPClient::Kind::cursor}, std::nullopt).at(0).logLine(),
            "Error: Cursor: \"mcpServers\" in " + (home_ / ".cursor/mcp.json").string() +
                " is not an object; left the file unchanged");
}

TEST_F(MCPInstallerTest, AnEmptyFileCountsAsAnEmptyObject) {
  writeFile(home_ / ".cursor/mcp.json", " \n");
  EXPECT_EQ(installer_.install({MCPClient::Kind::cursor}, std::nullopt).at(0).logLine(),
            "Registered Cursor");
  EXPECT_EQ(installer_.registeredCommand(MCPClient::Kind::cursor), shimPath().string());
}

TEST_F(MCPInstallerTest, ALinkedConfigFileIsEditedThroughTheLink) {
  writeFile(home_ / "dotfiles/cursor-mcp.json", "{}");
  fs::create_directories(home_ / ".cursor");
  fs::create_symlink(home_ / "dotfiles/cursor-mcp.json", home_ / ".cursor/mcp.json");
  EXPECT_EQ(installer_.install({MCPClient::Kind::cursor}, std::nullopt).at(0).logLine(),
            "Registered Cursor");
  EXPECT_TRUE(fs::is_symlink(home_ / ".cursor/mcp.json"));
  EXPECT_EQ(installer_.registeredCommand(MCPClient::Kind::cursor), shimPath().string());
}

TEST_F(MCPInstallerTest, AnUnreadableConfigIsAnErrorWithTheSystemsReason) {
  // A file where the host's folder should be.
  writeFile(home_ / ".codeium/windsurf", "oops");
  EXPECT_EQ(installer_.install({MCPClient::Kind::windsurf}, std::nullopt).at(0).logLine(),
            "Error: Windsurf: could not read " +
                (home_ / ".codeium/windsurf/mcp_config.json").string() + ": Not a directory");
}

TEST_F(MCPInstallerTest, AShimThatCannotBeWrittenFailsTheWholeInstall) {
  writeFile(home_ / ".local/share", "a file, not a folder");
  writeFile(home_ / ".cursor/mcp.json", "{}");
  try {
    installer_.install({MCPClient::Kind::cursor}, std::nullopt);
    ADD_FAILURE() << "install succeeded";
  } catch (const MCPInstallError& error) {
    EXPECT_EQ(error.code(), MCPInstallError::Code::shimFailed);
    EXPECT_TRUE(std::string(error.what())
                    .starts_with("Failed to install MCP shim: could not create " +
                                 (home_ / ".local/share/brimble").string()))
        << error.what();
  }
  EXPECT_EQ(readFile(home_ / ".cursor/mcp.json"), "{}");
}

TEST_F(MCPInstallerTest, DetectionFollowsTheHostsFolders) {
  fs::create_directories(home_ / ".claude");
  fs::create_directories(home_ / ".config/Code/User");
  writeFile(home_ / ".cursor/mcp.json", R"({"mcpServers":{"brimble":{"args":[]}}})");
  const auto statuses = installer_.detectClients();
  ASSERT_EQ(statuses.size(), 5u);
  const std::vector<MCPClientStatus> expected = {
      {MCPClient::Kind::claudeCode, true, false}, {MCPClient::Kind::claudeDesktop, false, false},
      {MCPClient::Kind::cursor, true, true},      {MCPClient::Kind::vscode, true, false},
      {MCPClient::Kind::windsurf, false, false},
  };
  EXPECT_EQ(statuses, expected);
  // An entry without a command is registered but names no command.
  EXPECT_EQ(installer_.registeredCommand(MCPClient::Kind::cursor), std::nullopt);
}

TEST_F(MCPInstallerTest, UninstallLeavesFilesWithoutAnEntryAloneAndDeletesTheShimLast) {
  installer_.install({MCPClient::Kind::claudeCode, MCPClient::Kind::cursor}, std::nullopt);
  writeFile(home_ / ".codeium/windsurf/mcp_config.json", "{\"x\":1}");
  const auto untouched = fs::last_write_time(home_ / ".codeium/windsurf/mcp_config.json");
  EXPECT_EQ(installer_.uninstall({MCPClient::Kind::cursor, MCPClient::Kind::windsurf,
                                  MCPClient::Kind::claudeDesktop}),
            (std::vector<MCPInstallResult>{
                MCPInstallResult::unregistered(MCPClient::Kind::cursor),
                MCPInstallResult::unregistered(MCPClient::Kind::windsurf),
                MCPInstallResult::unregistered(MCPClient::Kind::claudeDesktop)}));
  EXPECT_EQ(readFile(home_ / ".cursor/mcp.json"), "{\n  \"mcpServers\": {}\n}\n");
  EXPECT_EQ(fs::last_write_time(home_ / ".codeium/windsurf/mcp_config.json"), untouched);
  EXPECT_FALSE(fs::exists(home_ / ".config/Claude"));
  // Claude Code still runs the shim, so it stays until that entry goes too.
  EXPECT_TRUE(fs::exists(shimPath()));
  installer_.uninstall({MCPClient::Kind::claudeCode});
  EXPECT_FALSE(fs::exists(shimPath()));
}

TEST_F(MCPInstallerTest, TheBinaryIsResolvedInTheShimsOrder) {
  EXPECT_EQ(installer_.resolveBinaryPath(""), std::nullopt);
  writeFile(home_ / "bin1/brimble", "#!/bin/sh\n");  // not executable
  writeFile(home_ / "bin2/brimble", "#!/bin/sh\n");
  fs::permissions(home_ / "bin2/brimble", fs::perms::owner_all);
  fs::create_directories(home_ / "bin3/brimble");  // a folder
  const std::string searchPath = (home_ / "bin3").string() + "::" + (home_ / "bin1").string() +
                                 ":" + (home_ / "bin2").string();
  EXPECT_EQ(installer_.resolveBinaryPath(searchPath), home_ / "bin2/brimble");
  writeFile(home_ / ".local/bin/brimble", "#!/bin/sh\n");
  fs::permissions(home_ / ".local/bin/brimble", fs::perms::owner_all);
  EXPECT_EQ(installer_.resolveBinaryPath(searchPath), home_ / ".local/bin/brimble");
}

}  // namespace
}  // namespace brimble
