#include "cli/MCPInstallCommands.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/MCP/MCPClient.h"
#include "BrimbleCore/MCP/MCPInstaller.h"
#include "BrimbleCore/Support/Text.h"
#include "BrimbleCore/Support/Version.h"
#include "cli/OptionChecks.h"

namespace brimble::cli {
namespace {

std::vector<std::string> clientNames() {
  std::vector<std::string> names;
  for (const MCPClient client : MCPClient::all()) {
    names.emplace_back(client.rawName());
  }
  return names;
}

std::vector<MCPClient> clientsNamed(const std::vector<std::string>& names) {
  std::vector<MCPClient> clients;
  for (const std::string& name : names) {
    // The parser has already refused unknown names.
    if (const auto client = MCPClient::fromName(name)) {
      if (std::find(clients.begin(), clients.end(), *client) == clients.end()) {
        clients.push_back(*client);
      }
    }
  }
  return clients;
}

void addClientArguments(CLI::App* command, std::vector<std::string>& names, const char* help) {
  command->add_option("CLIENT", names, help)->check(oneOf("host", clientNames()));
}

std::string knownHosts() {
  std::vector<std::string> names;
  for (const MCPClient client : MCPClient::all()) {
    names.emplace_back(client.displayName());
  }
  return listedInWords(names);
}

int printResults(const std::vector<MCPInstallResult>& results) {
  int exitCode = kExitSuccess;
  for (const MCPInstallResult& result : results) {
    fmt::print("{}\n", result.logLine());
    if (result.kind == MCPInstallResult::Kind::error) {
      exitCode = kExitFailure;
    }
  }
  return exitCode;
}

MCPInstaller makeInstaller() {
  return {MCPInstaller::userHomeDirectory(), brimble::kVersion};
}

int runInstall(const std::vector<std::string>& names) {
  MCPInstaller installer = makeInstaller();
  std::vector<MCPClient> clients = clientsNamed(names);
  if (clients.empty()) {
    for (const MCPClientStatus& status : installer.detectClients()) {
      if (status.detected) {
        clients.push_back(status.client);
      }
    }
  }
  if (clients.empty()) {
    fmt::print(stderr,
               "brimble mcp-install: no MCP host found (looked for {}). Name one to register it "
               "anyway, for example: brimble mcp-install cursor\n",
               knownHosts());
    return kExitFailure;
  }
  const std::optional<std::filesystem::path> binary = installer.resolveBinaryPath();
  const int exitCode = printResults(installer.install(clients, binary));
  if (!binary) {
    // The results went to standard output; they come first when both streams share a pipe.
    std::fflush(stdout);
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    fmt::print(
        stderr,
        "Note: brimble is not in /usr/local/bin, ~/.local/bin or "
        "/home/linuxbrew/.linuxbrew/bin, nor on PATH, so for now AI tools get install "
        "instructions instead of Brimble. To put this one there: mkdir -p ~/.local/bin && ln -s "
        "{} ~/.local/bin/\n",
        error ? std::string("/path/to/brimble") : self.string());
  }
  return exitCode;
}

int runUninstall(const std::vector<std::string>& names) {
  MCPInstaller installer = makeInstaller();
  std::vector<MCPClient> clients = clientsNamed(names);
  if (clients.empty()) {
    for (const MCPClientStatus& status : installer.detectClients()) {
      if (status.registered) {
        clients.push_back(status.client);
      }
    }
    if (clients.empty()) {
      fmt::print("Brimble is not registered with any MCP host\n");
      return kExitSuccess;
    }
  }
  return printResults(installer.uninstall(clients));
}

int runStatus() {
  const MCPInstaller installer = makeInstaller();
  const std::string shimPath = installer.shim().path().string();
  for (const MCPClientStatus& status : installer.detectClients()) {
    std::string registration = "not registered";
    if (status.registered) {
      const auto command = installer.registeredCommand(status.client);
      if (command == shimPath) {
        registration = "registered";
      } else {
        registration = fmt::format("registered to {} (run brimble mcp-install to upgrade)",
                                   command ? *command : std::string("another command"));
      }
    }
    fmt::print("{:<16}{:<14}{}\n", status.client.displayName(),
               status.detected ? "detected" : "not detected", registration);
  }
  std::error_code error;
  fmt::print("Shim: {}{}\n", shimPath,
             std::filesystem::exists(shimPath, error) ? "" : " (not installed)");
  const auto binary = installer.resolveBinaryPath();
  fmt::print("The shim starts: {}\n", binary
                                          ? binary->string()
                                          : std::string("nothing (brimble not found; AI tools get "
                                                        "install instructions)"));
  return kExitSuccess;
}

}  // namespace

Command addMCPInstallCommand(CLI::App& app) {
  auto names = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand(
      "mcp-install", "Register Brimble's MCP server with AI tools (default: every one found)");
  addClientArguments(command, *names,
                     "claude-code, claude-desktop, cursor, vscode or windsurf (default: every "
                     "detected one)");
  return {command, [names] { return runInstall(*names); }};
}

Command addMCPUninstallCommand(CLI::App& app) {
  auto names = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand(
      "mcp-uninstall", "Remove Brimble's MCP server from AI tools (default: every one it is in)");
  addClientArguments(command, *names,
                     "claude-code, claude-desktop, cursor, vscode or windsurf (default: every one "
                     "registered)");
  return {command, [names] { return runUninstall(*names); }};
}

Command addMCPStatusCommand(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("mcp-status", "Show which AI tools are found and have Brimble registered");
  return {command, [] { return runStatus(); }};
}

}  // namespace brimble::cli
