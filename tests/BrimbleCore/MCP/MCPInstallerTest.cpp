// `brimble mcp-install`, `mcp-status` and `mcp-uninstall` (tests/cli/MCPCommandsTest.cpp) cover
// detection, every result line and when the shim is deleted; these tests cover the file handling.

#include "BrimbleCore/MCP/MCPInstaller.h"

#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TempDirectory;
using testing::writeFile;
using Kind = MCPClient::Kind;

fs::perms modeOf(const fs::path& path) {
  return fs::status(path).permissions();
}

class MCPInstallerTest : public ::testing::Test {
 protected:
  std::string shim() const { return (home_ / ".local/share/brimble/mcp-shim.sh").string(); }
  std::string install(MCPClient client) {
    return installer_.install({client}, std::nullopt).at(0).logLine();
  }

  TempDirectory home_;
  MCPInstaller installer_{home_.path(), "9.8.7"};
};

TEST(MCPInstaller, AFreshInstallWritesEachHostsFileAndTheShim) {
  const std::pair<MCPClient, const char*> hosts[] = {
      {Kind::cursor, ".cursor/mcp.json"},
      {Kind::vscode, ".config/Code/User/mcp.json"},
  };
  for (const auto& [client, file] : hosts) {
    TempDirectory home;
    MCPInstaller installer(home.path(), "9.8.7");
    EXPECT_EQ(installer.install({client}, std::nullopt).at(0).logLine(),
              "Registered " + std::string(client.displayName()));
    const std::string shim = (home / ".local/share/brimble/mcp-shim.sh").string();
    const bool vscode = client == Kind::vscode;
    EXPECT_EQ(readFile(home / file),
              std::string("{\n  \"") + (vscode ? "servers" : "mcpServers") +
                  "\": {\n    \"brimble\": {\n" + (vscode ? "      \"type\": \"stdio\",\n" : "") +
                  "      \"command\": \"" + shim + "\",\n      \"args\": []\n    }\n  }\n}\n");
    EXPECT_EQ(modeOf(home / file), fs::perms(0600)) << file;
    EXPECT_EQ(modeOf(shim) & fs::perms::others_exec, fs::perms::others_exec);
    // No temporary file is left beside the file.
    const fs::directory_iterator folder((home / file).parent_path());
    EXPECT_EQ(std::distance(folder, {}), 1);
  }
}

TEST_F(MCPInstallerTest, AnEntryPointingElsewhereIsUpgradedAndAnUpToDateOneIsLeftAlone) {
  const fs::path file = home_ / ".cursor/mcp.json";
  writeFile(file, R"({"mcpServers": {"brimble": {"command": "/usr/local/bin/brimble", )"
                  R"("args": ["mcp-server"], "env": {"A": "1"}}}})");
  EXPECT_EQ(install(Kind::cursor), "Upgraded Cursor entry to shim");
  // Only the entry's bytes change.
  EXPECT_EQ(readFile(file),
            "{\"mcpServers\": {\"brimble\": {\"command\":\"" + shim() + "\",\"args\":[]}}}");
  const std::string upToDate =
      "{\"mcpServers\":{\"brimble\":{\"command\":\"" + shim() + "\",\"args\":[]}}}";
  // An entry that runs the shim with other fields is brought up to date, but not upgraded.
  writeFile(file, "{\"mcpServers\":{\"brimble\":{\"command\":\"" + shim() + "\",\"args\":[1]}}}");
  EXPECT_EQ(install(Kind::cursor), "Registered Cursor");
  EXPECT_EQ(readFile(file), upToDate);
  const auto before = fs::last_write_time(file);
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(install(Kind::cursor), "Registered Cursor");
  EXPECT_EQ(fs::last_write_time(file), before) << "an up-to-date file was rewritten";
}

TEST_F(MCPInstallerTest, OtherServersKeysLayoutAndModeSurviveInstallAndUninstall) {
  // Laid out as the installer writes (here a four-space indent), so uninstalling must give back
  // the very same bytes.
  const std::string head =
      "{\n    \"theme\": \"dark\",\n    \"servers\": {\n        \"github\": {\n"
      "            \"url\": \"https://example.com/mcp\",\n            \"n\": 1.5\n        }";
  const std::string tail = "\n    },\n    \"inputs\": []\n}\n";
  const fs::path file = home_ / ".config/Code/User/mcp.json";
  writeFile(file, head + tail);
  fs::permissions(file, fs::perms(0640));
  EXPECT_EQ(install(Kind::vscode), "Registered VS Code");
  EXPECT_EQ(readFile(file), head +
                                ",\n        \"brimble\": {\n            \"type\": \"stdio\",\n"
                                "            \"command\": \"" +
                                shim() + "\",\n            \"args\": []\n        }" + tail);
  EXPECT_EQ(modeOf(file), fs::perms(0640));
  EXPECT_EQ(installer_.uninstall({Kind::vscode}).at(0).logLine(), "Unregistered VS Code");
  EXPECT_EQ(readFile(file), head + tail);
  EXPECT_EQ(modeOf(file), fs::perms(0640));
}

TEST(MCPInstaller, AFileThatIsNotAJSONObjectIsNeverRewritten) {
  const std::pair<std::string, std::string> cases[] = {
      {"{\"mcpServers\": {} /* unfinished\n}",
       " is not valid JSON (syntax error while parsing object - unexpected end of input; expected "
       "'}' at line 2, column 2); left it unchanged"},
      {"[1, 2]", " does not hold a JSON object; left it unchanged"},
      // Readers differ on which of two equal keys counts.
      {"{\"mcpServers\": {}, \"mcpServers\": {\"a\": {}}}",
       " holds \"mcpServers\" twice; left it unchanged"},
      {"{\"mcpServers\": []}", " is not an object; left the file unchanged"},
  };
  for (const auto& [text, why] : cases) {
    TempDirectory home;
    MCPInstaller installer(home.path(), "1");
    const fs::path cursor = home / ".cursor/mcp.json";
    writeFile(cursor, text);
    fs::permissions(cursor, fs::perms(0604));
    const bool hasObject = why.starts_with(" is not an object");
    const auto results = installer.install({Kind::cursor, Kind::windsurf}, std::nullopt);
    EXPECT_EQ(results.at(0).logLine(),
              "Error: Cursor: " + std::string(hasObject ? "\"mcpServers\" in " : "") +
                  cursor.string() + why);
    EXPECT_EQ(results.at(1).logLine(), "Registered Windsurf");
    // Without our entry the file is left alone and the entry counts as gone.
    EXPECT_EQ(installer.uninstall({Kind::cursor}).at(0).logLine().starts_with("Error: "),
              !hasObject);
    EXPECT_EQ(readFile(cursor), text);
    EXPECT_EQ(modeOf(cursor), fs::perms(0604));
  }
}

TEST_F(MCPInstallerTest, CommentsAndTrailingCommasStayThroughInstallAndUninstall) {
  // As VS Code's own editor leaves the file: notes, a trailing comma, a commented-out server.
  const std::string original =
      "// my servers, see https://example.com/docs\n"
      "{\n"
      "  \"servers\": {\n"
      "    /* \"old\": {\"command\": \"x\"}, */\n"
      "    \"github\": {\"url\": \"https://example.com/mcp\"}, // work\n"
      "  },\n"
      "}\n";
  const fs::path file = home_ / ".config/Code/User/mcp.json";
  writeFile(file, original);
  EXPECT_EQ(install(Kind::vscode), "Registered VS Code");
  const std::string installed = readFile(file);
  EXPECT_EQ(installed.substr(0, installed.find("\"github\"")),
            original.substr(0, original.find("\"github\"")));
  EXPECT_NE(installed.find("// work"), std::string::npos) << installed;
  EXPECT_TRUE(installer_.isRegistered(Kind::vscode));
  EXPECT_EQ(installer_.registeredCommand(Kind::vscode), shim());
  EXPECT_EQ(install(Kind::vscode), "Registered VS Code");
  EXPECT_EQ(readFile(file), installed) << "an up-to-date entry was rewritten";

  // Another host keeps using the shim, so uninstalling VS Code alone keeps it; the file gets its
  // very bytes back.
  EXPECT_EQ(install(Kind::cursor), "Registered Cursor");
  EXPECT_EQ(installer_.uninstall({Kind::vscode}).at(0).logLine(), "Unregistered VS Code");
  EXPECT_EQ(readFile(file), original);
  EXPECT_TRUE(fs::exists(shim()));

  // A file of only notes and an empty servers object is still the user's.
  writeFile(file, "{\"servers\": {}} // mine\n");
  EXPECT_EQ(install(Kind::vscode), "Registered VS Code");
  EXPECT_EQ(installer_.uninstall({Kind::vscode}).at(0).logLine(), "Unregistered VS Code");
  EXPECT_EQ(readFile(file), "{\"servers\": {}} // mine\n");
}

TEST_F(MCPInstallerTest, AShimAFileStillNamesOutlivesUninstall) {
  const fs::path file = home_ / ".cursor/mcp.json";
  EXPECT_EQ(install(Kind::cursor), "Registered Cursor");
  // Hand-edited into something no JSON reader takes, yet the host may still run the shim.
  writeFile(file, readFile(file) + "}");
  const auto result = installer_.uninstall({Kind::cursor}).at(0).logLine();
  EXPECT_TRUE(result.starts_with("Error: Cursor: ")) << result;
  EXPECT_TRUE(fs::exists(shim()));
  writeFile(file, "{}");
  EXPECT_EQ(installer_.uninstall({Kind::cursor}).at(0).logLine(),
            "Brimble was not registered with Cursor");
  EXPECT_FALSE(fs::exists(shim()));
}

TEST_F(MCPInstallerTest, EmptyLinkedAndUnreadableFiles) {
  writeFile(home_ / ".cursor/mcp.json", " \n");  // nothing to lose: an empty object
  EXPECT_EQ(install(Kind::cursor), "Registered Cursor");
  writeFile(home_ / "dotfiles/windsurf.json", "{}");
  fs::create_directories(home_ / ".codeium/windsurf");
  fs::create_symlink(home_ / "dotfiles/windsurf.json", home_ / ".codeium/windsurf/mcp_config.json");
  EXPECT_EQ(install(Kind::windsurf), "Registered Windsurf");
  EXPECT_TRUE(fs::is_symlink(home_ / ".codeium/windsurf/mcp_config.json"));
  EXPECT_EQ(installer_.registeredCommand(Kind::windsurf), shim());
  // A linked file is the user's even when nothing but the servers object is left in it.
  EXPECT_EQ(installer_.uninstall({Kind::windsurf}).at(0).logLine(), "Unregistered Windsurf");
  EXPECT_EQ(readFile(home_ / "dotfiles/windsurf.json"), "{\"mcpServers\":{}}");
  EXPECT_TRUE(fs::is_symlink(home_ / ".codeium/windsurf/mcp_config.json"));
  writeFile(home_ / ".config/Claude", "a file where the host's folder should be");
  EXPECT_EQ(install(Kind::claudeDesktop),
            "Error: Claude Desktop: could not read " +
                (home_ / ".config/Claude/claude_desktop_config.json").string() +
                ": Not a directory");
}

TEST_F(MCPInstallerTest, AShimThatCannotBeWrittenFailsTheWholeInstall) {
  writeFile(home_ / ".local/share", "a file, not a folder");
  const std::string error = testing::errorText<MCPInstallError>([&] { install(Kind::cursor); });
  EXPECT_TRUE(error.starts_with("Failed to install MCP shim: could not create " +
                                (home_ / ".local/share/brimble").string()))
      << error;
  EXPECT_FALSE(fs::exists(home_ / ".cursor"));
}

TEST_F(MCPInstallerTest, TheBinaryIsSearchedOnThePathLikeTheShimDoes) {
  EXPECT_EQ(installer_.resolveBinaryPath(""), std::nullopt);
  writeFile(home_ / "bin1/brimble", "#!/bin/sh\n");  // not executable
  writeFile(home_ / "bin2/brimble", "#!/bin/sh\n");
  fs::permissions(home_ / "bin2/brimble", fs::perms::owner_all);
  fs::create_directories(home_ / "bin3/brimble");  // a folder
  EXPECT_EQ(
      installer_.resolveBinaryPath((home_ / "bin3").string() + "::" + (home_ / "bin1").string() +
                                   ":" + (home_ / "bin2").string()),
      home_ / "bin2/brimble");
}

}  // namespace
}  // namespace brimble
