// The script family: .brim scripts run by the script engine on the server's display, or only
// checked.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

#include "BrimbleCore/MCP/MCPToolSupport.h"
#include "BrimbleCore/MCP/MCPTools.h"
#include "BrimbleCore/Scripting/ScriptEngine.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptLexer.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "BrimbleCore/Scripting/ShellProcessRunner.h"
#include "BrimbleCore/Scripting/TapeLexer.h"
#include "BrimbleCore/Scripting/TapeParser.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble::mcp {
namespace {

namespace fs = std::filesystem;

struct Source {
  std::string text;
  fs::path file;  // empty for inline source
};

/// Fails unless a file's text is a script. Errors about a script quote its lines; any other file
/// named here (a key, a password file) must not have its lines shown to the caller, so the failure
/// names only the file and the line number. Text that lexes is not enough: a password file's lines
/// lex as words, so a file not named as a script must also parse before any of its lines is quoted.
void requireScript(const fs::path& path, const std::string& file, const std::string& text) {
  const auto notAScript = [&file](std::string_view why) {
    fail(file + " is not a .brim script: " + std::string(why));
  };
  if (!isValidUTF8(text)) {
    notAScript("it is not UTF-8 text");
  }
  const std::string extension = lowercased(path.extension().string());
  try {
    if (isTapeFile(path)) {
      lexTape(text);
    } else {
      ScriptLexer::tokenizeLocated(text);
    }
  } catch (const ScriptError& error) {
    notAScript("line " + std::to_string(error.line()) + " is not script text");
  }
  if (extension == ".brim" || extension == ".tape") {
    return;
  }
  try {
    validate(text);
  } catch (const ScriptError& error) {
    notAScript("line " + std::to_string(error.line()) + " is not a Brimble command");
  } catch (const std::exception&) {
    notAScript("it does not parse as a script");
  }
}

Source scriptSource(const Arguments& arguments) {
  if (const auto script = arguments.string("script")) {
    return {*script, {}};
  }
  const auto file = arguments.string("file");
  if (!file) {
    fail("Either 'script' (inline source) or 'file' (path) is required");
  }
  const fs::path path = fs::absolute(*file);
  std::error_code error;
  std::ifstream stream;
  if (fs::is_regular_file(path, error)) {
    stream.open(path, std::ios::binary);
  }
  std::ostringstream text;
  if (!stream || !(text << stream.rdbuf())) {
    fail("Failed to read file: " + *file);
  }
  requireScript(path, *file, text.str());
  return {text.str(), path};
}

// A timeline this short goes into the result itself; a longer one would crowd an assistant's
// context, so it goes to a file the result names.
constexpr std::size_t kInlineTimelineBytes = 16 * 1024;

void addTimeline(JSONValue::Object& result, const std::string& timeline) {
  if (timeline.empty()) {
    return;
  }
  if (timeline.size() <= kInlineTimelineBytes) {
    result.emplace("timeline", JSONValue::decode(timeline));
    return;
  }
  const fs::path file = temporaryDirectory() / ("brimble-timeline-" + makeUUIDString() + ".json");
  try {
    writeFileAtomically(file, timeline, 0600);
    result.emplace("timeline_path", file.string());
  } catch (const std::system_error& error) {
    logLine(std::string("[Brimble MCP] the timeline could not be written: ") + error.what());
  }
}

JSONValue executeScript(const ToolEnvironment& environment, const Arguments& arguments) {
  const Source source = scriptSource(arguments);
  MCPDesktop& desktop = environment.desktop;
  requireScreen(desktop);
  MCPCallContext& call = environment.server.currentCall();
  // A cancelled call stops like Ctrl-C twice: the script ends, its commands are stopped and the
  // render is abandoned, so nothing partial is written.
  ShellProcessRunner processes({.environment = desktop.environment(), .stop = call.stop()});
  const std::unique_ptr<WindowManager> windows = desktop.makeWindowManager();
  ScriptOptions options;
  options.quiet = true;
  options.preview = arguments.boolean("preview").value_or(false);
  if (!source.file.empty()) {
    options.scriptDirectory = source.file.parent_path();
  }
  // Progress lines are diagnostics: standard output belongs to the protocol.
  options.print = [&call](std::string_view line) {
    logLine("[Brimble MCP] " + std::string(line));
    call.reportProgress(0, std::nullopt, std::string(line));
  };
  options.renderProgress = [&call](RenderPhase phase, int done, int total) {
    call.reportProgress(done, total,
                        phase == RenderPhase::palette ? "Choosing palettes" : "Encoding frames");
  };
  options.interrupt = call.stop();
  options.abandon = call.stop();
  ScriptEngine engine({.screen = desktop.screen(),
                       .input = desktop.input(),
                       .windows = *windows,
                       .processes = processes,
                       .clock = desktop.clock(),
                       .texts = desktop.texts(),
                       .makeRecorder = [&desktop] { return desktop.makeRecorder(); },
                       .browsers = desktop.browsers()},
                      options);
  ScriptOutcome outcome;
  try {
    outcome = engine.execute(validate(source.text, source.file));
  } catch (const CancellationError&) {
    fail("Script execution failed: cancelled; nothing was written");
  } catch (const std::exception& error) {
    std::string message = std::string("Script execution failed: ") + error.what();
    if (const auto& partial = engine.keptPartial()) {
      const fs::path kept = fs::absolute(partial->output);
      message += "\nWhat was recorded up to there is kept in " + kept.string();
      std::error_code unknownSize;
      const std::uintmax_t size = fs::file_size(kept, unknownSize);
      environment.context.addRecentOutput(
          {kept, unknownSize ? 0 : size,
           std::to_string(partial->summary.width) + "x" + std::to_string(partial->summary.height),
           isoDateNow()});
    }
    fail(message);
  }
  if (outcome.summary.frames == 0) {
    fail("Script execution failed: nothing was recorded");
  }
  const fs::path output = fs::absolute(outcome.output);
  std::error_code error;
  const std::uintmax_t size = fs::file_size(output, error);
  environment.context.addRecentOutput(
      {output, error ? 0 : size,
       std::to_string(outcome.summary.width) + "x" + std::to_string(outcome.summary.height),
       isoDateNow()});
  JSONValue::Object result{{"path", output.string()}, {"size_mb", megabytes(error ? 0 : size)}};
  addTimeline(result, outcome.timeline);
  return result;
}

JSONValue validateScript(const Arguments& arguments) {
  const Source source = scriptSource(arguments);
  try {
    const ParsedScript check = validate(source.text, source.file);
    JSONValue::Array warnings(check.warnings.begin(), check.warnings.end());
    return JSONValue::Object{{"valid", true},
                             {"instruction_count", check.instructionCount},
                             {"warnings", std::move(warnings)}};
  } catch (const std::exception& error) {
    return JSONValue::Object{
        {"valid", false}, {"error", error.what()}, {"warnings", JSONValue::Array{}}};
  }
}

}  // namespace

void registerScriptTools(const ToolEnvironment& environment) {
  const JSONValue script = property("string", "Inline .brim script source code");
  const JSONValue file = property("string", "Path to a .brim script file");
  environment.server.registerTool(
      {"execute_script",
       "Execute a .brim script to generate a GIF demo. Provide either inline script source or a "
       "file path.",
       objectSchema({{"script", script},
                     {"file", file},
                     {"preview", property("boolean",
                                          "Render a quick low-res preview (10fps, "
                                          "400px)")}})},
      [environment](const JSONValue& arguments) {
        return executeScript(environment, Arguments(arguments));
      });
  environment.server.registerTool(
      {"validate_script",
       "Validate a .brim script without executing it. Returns syntax errors and warnings.",
       objectSchema({{"script", script}, {"file", file}})},
      [](const JSONValue& arguments) { return validateScript(Arguments(arguments)); });
}

}  // namespace brimble::mcp
