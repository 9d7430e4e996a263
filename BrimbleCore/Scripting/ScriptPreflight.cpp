#include "BrimbleCore/Scripting/ScriptPreflight.h"

#include <variant>

#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {
namespace {

// Text the script wrote out: no variable decides it when the line runs.
bool writtenOut(const ScriptValue& value) {
  return value.kind == ScriptValue::Kind::string && value.namesInText().empty();
}

}  // namespace

void requireProgram(const std::string& program, int line) {
  if (program.empty() || !findProgram(program)) {
    throw ScriptError::runtimeError(line, "'" + program + "' is required but is not on PATH");
  }
}

void checkScreenshotFile(const std::filesystem::path& file, int line) {
  try {
    checkPNGOutput(file);
  } catch (const OutputPathError& error) {
    throw ScriptError::runtimeError(line, std::string("screenshot: ") + error.what());
  }
}

void checkBeforeRunning(const ParsedScript& script) {
  for (const LocatedInstruction& located : script.instructions) {
    if (const auto* require = std::get_if<RequireInstruction>(&located.instruction)) {
      if (writtenOut(require->program)) {
        requireProgram(require->program.text, located.line);
      }
    } else if (const auto* screenshot = std::get_if<ScreenshotInstruction>(&located.instruction)) {
      if (writtenOut(screenshot->path)) {
        checkScreenshotFile(screenshot->path.text, located.line);
      }
    }
  }
}

}  // namespace brimble
