#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace brimble {

/// What one look at a capability of this machine found.
enum class CapabilityStatus {
  ok,
  missing,
  /// The desktop has no such thing to grant or install (X11 asks no permission to capture).
  notNeeded,
};

/// "ok", "missing", "not needed".
std::string_view rawValue(CapabilityStatus status) noexcept;

/// The stable ids of the checks, which `brimble doctor --json`, the MCP permission tool and the
/// app's checklist share; a check's id never changes once released, whatever its title says.
namespace capability {
inline constexpr const char* display = "display";
inline constexpr const char* screenCapture = "screen-capture";
inline constexpr const char* rememberedPermission = "remembered-permission";
inline constexpr const char* input = "input";
inline constexpr const char* accessibility = "accessibility";
inline constexpr const char* soundServer = "sound-server";
inline constexpr const char* commandLine = "command-line";
inline constexpr const char* temporarySpace = "temporary-space";
inline constexpr const char* chromium = "chromium";
inline constexpr const char* tesseract = "tesseract";
inline constexpr const char* ownDisplay = "own-display";
inline constexpr const char* fonts = "fonts";
inline constexpr const char* mcpHosts = "mcp-hosts";
}  // namespace capability

/// One capability of this machine as Brimble sees it: whether it is there, what was found, and
/// the one thing to install or do when it is not. Plain value.
struct CapabilityCheck {
  std::string id;
  /// What the capability is, in a few words ("Screen capture").
  std::string title;
  CapabilityStatus status = CapabilityStatus::missing;
  /// One line of what was found ("X11 display :0 answers, 1920x1080").
  std::string detail;
  /// One line of what to install (with the Debian package) or do; empty unless missing.
  std::string fix;
  /// Recording by hand cannot work without it, so a missing one fails `brimble doctor`.
  bool requiredForMainJobs = false;

  bool operator==(const CapabilityCheck&) const = default;
};

/// Whether nothing the main jobs need is missing.
bool mainJobsReady(const std::vector<CapabilityCheck>& checks);

/// The check with `id`; null when the list has none.
const CapabilityCheck* findCheck(const std::vector<CapabilityCheck>& checks, std::string_view id);

/// The checklist for a terminal: one line per check ("ok       Screen capture: ..."), and under
/// a missing one its fix, indented. Ends with a newline.
std::string formatChecklist(const std::vector<CapabilityCheck>& checks);

/// {"ready": bool, "checks": [{"id", "title", "status", "detail", "fix", "required"}, ...]}.
nlohmann::json checklistJson(const std::vector<CapabilityCheck>& checks);

}  // namespace brimble
