#include "cli/UsageCounting.h"

#include <csignal>
#include <mutex>
#include <utility>
#include <vector>

#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/MCP/JSONValue.h"
#include "cli/Command.h"

namespace brimble::cli {

namespace {

std::mutex notedMutex;  // guards the list below
std::vector<std::string> notedFormats;

// A Ctrl-C or a reader that left is the user's choice, not something that went wrong.
bool endedInError(int exitCode) {
  return exitCode != kExitSuccess && exitCode != 128 + SIGINT && exitCode != 128 + SIGPIPE;
}

}  // namespace

std::string usageFormatOf(const std::filesystem::path& output) {
  const std::string text = output.string();
  std::error_code error;
  if ((!text.empty() && text.back() == '/') || std::filesystem::is_directory(output, error)) {
    return "frames";
  }
  const auto format = outputFormatFromExtension(output.extension().string());
  return format ? std::string(rawValue(*format)) : "other";
}

void noteEncodedOutput(const std::filesystem::path& output) {
  std::string format = usageFormatOf(output);
  const std::scoped_lock guard(notedMutex);
  notedFormats.push_back(std::move(format));
}

int countedCommand(std::string_view command, int exitCode) {
  UsageEvent event;
  {
    const std::scoped_lock guard(notedMutex);
    event.renders = std::exchange(notedFormats, {});
  }
  event.runs = command == "run" ? 1 : 0;
  event.recordings = command == "record" ? 1 : 0;
  if (endedInError(exitCode)) {
    event.failure = std::string(command);
  }
  UsageStatistics::forUser().record(event);
  return exitCode;
}

UsageEvent toolCallUsage(const std::string& tool, const JSONValue& result, bool failed) {
  UsageEvent event;
  if (tool == "execute_script") {
    event.runs = 1;
  }
  if (failed) {
    event.failure = "mcp " + tool;
    return event;
  }
  if (tool == "start_recording" || tool == "record_region") {
    event.recordings = 1;
  }
  const std::string* path = result["path"].stringValue();
  if (path != nullptr &&
      (tool == "execute_script" || tool == "render_gif" || tool == "process_gif")) {
    event.renders.push_back(usageFormatOf(*path));
  }
  return event;
}

}  // namespace brimble::cli
