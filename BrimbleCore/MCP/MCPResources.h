#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "BrimbleCore/MCP/MCPDesktop.h"
#include "BrimbleCore/MCP/MCPServer.h"
#include "BrimbleCore/MCP/SessionContext.h"

namespace brimble {

/// Why a resource cannot be read; the server answers it as "Resource read error: " + the text.
class MCPResourceError : public std::runtime_error {
 public:
  enum class Code { unknownExample, noSavedGIF };

  /// "Unknown example '<key>'. Available: <keys joined by ", ">".
  static MCPResourceError unknownExample(std::string_view key, const std::string& available) {
    return {Code::unknownExample,
            "Unknown example '" + std::string(key) + "'. Available: " + available};
  }
  /// "No saved GIF with path: <path>".
  static MCPResourceError noSavedGIF(const std::string& path) {
    return {Code::noSavedGIF, "No saved GIF with path: " + path};
  }

  Code code() const noexcept { return code_; }

 private:
  MCPResourceError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// The read-only documents the MCP server offers: the scripting reference, the examples, the
/// settings schema, permission status, this server's outputs, the desktop app's library and the
/// user's scripts. Every text is made when it is read, from the tables it describes.
namespace MCPResources {

/// Registers the nine resources on `server`, in the catalogue's order. `context` and `desktop`
/// must outlive the server's run.
void registerAll(MCPServer& server, SessionContext& context, MCPDesktop& desktop);

/// The Markdown reference of the .brim language, generated from the command manifest and the
/// settings table so it cannot fall out of step with them.
std::string scriptingReference();

/// The example scripts (key, text), in their documented order: the examples/ files, built in.
const std::vector<std::pair<std::string_view, std::string_view>>& examples();

/// The text of one example. Throws MCPResourceError::unknownExample.
std::string example(std::string_view key);

/// The exact permission status text; the screen's note is in the platform's wording.
std::string permissionStatus(const PlatformTexts& texts, bool screenRecording, bool accessibility);

/// The recent outputs as the "brimble://recordings" text.
std::string recentRecordings(const std::vector<RecentOutput>& outputs);

/// The desktop app's library index: $BRIMBLE_HISTORY_FILE, else
/// $XDG_DATA_HOME/brimble/history.json (default ~/.local/share/brimble/history.json).
std::string historyFilePath();

}  // namespace MCPResources
}  // namespace brimble
