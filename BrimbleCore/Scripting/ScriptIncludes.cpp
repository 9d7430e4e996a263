#include "BrimbleCore/Scripting/ScriptIncludes.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <variant>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptFrontEnd.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

/// The scripts being included, outermost first: a script met again is a cycle.
struct IncludeChain {
  std::vector<fs::path> files;     // canonical, to compare
  std::vector<std::string> names;  // as the includes wrote them, to say so
};

std::string readIncluded(const fs::path& file, const std::string& written, int line) {
  std::error_code error;
  const fs::file_status status = fs::status(file, error);
  if (!fs::exists(status)) {
    throw ScriptError::runtimeError(line, "Cannot include '" + written + "': no such file");
  }
  // A pipe or a device would be read until it ends, which it may never do.
  if (!fs::is_regular_file(status)) {
    throw ScriptError::runtimeError(line, "Cannot include '" + written + "': not a file");
  }
  const std::uintmax_t size = fs::file_size(file, error);
  if (error || size > kMaxIncludedScriptBytes) {
    throw ScriptError::runtimeError(
        line, "Cannot include '" + written + "': larger than 1 MiB, so no script");
  }
  std::ifstream stream(file, std::ios::binary);
  std::string text;
  if (stream) {
    text.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  }
  if (!stream && !stream.eof()) {
    throw ScriptError::runtimeError(line, "Cannot include '" + written + "': it cannot be read");
  }
  return text;
}

void expandInto(std::vector<LocatedInstruction>& expanded,
                std::vector<LocatedInstruction> instructions, const fs::path& directory,
                const std::string& label, IncludeChain& chain) {
  for (LocatedInstruction& located : instructions) {
    const auto* include = std::get_if<IncludeInstruction>(&located.instruction);
    if (include == nullptr) {
      located.file = label;
      expanded.push_back(std::move(located));
      continue;
    }
    try {
      const fs::path file = directory / include->file;
      const fs::path written = fs::path(label).parent_path() / include->file;
      const std::string text = readIncluded(file, include->file, located.line);
      std::error_code error;
      fs::path canonical = fs::weakly_canonical(file, error);
      if (error) {
        canonical = file.lexically_normal();
      }
      if (std::find(chain.files.begin(), chain.files.end(), canonical) != chain.files.end()) {
        std::string cycle;
        for (const std::string& name : chain.names) {
          cycle += name + " -> ";
        }
        throw ScriptError::runtimeError(
            located.line, "include cycle: " + cycle + written.string() + " is already included");
      }
      std::vector<LocatedInstruction> lines;
      try {
        lines = parseScriptSource(text, file, true).instructions;
      } catch (const ScriptError& parseError) {
        throw ScriptError::inIncludedFile(parseError, written.string());
      }
      chain.files.push_back(canonical);
      chain.names.push_back(written.string());
      expandInto(expanded, std::move(lines), file.parent_path(), written.string(), chain);
      chain.files.pop_back();
      chain.names.pop_back();
    } catch (const ScriptError& error) {
      if (label.empty()) {
        throw;
      }
      throw ScriptError::inIncludedFile(error, label);
    }
  }
}

}  // namespace

std::vector<LocatedInstruction> expandIncludes(std::vector<LocatedInstruction> instructions,
                                               const fs::path& scriptFile) {
  const bool includes =
      std::any_of(instructions.begin(), instructions.end(), [](const LocatedInstruction& located) {
        return std::holds_alternative<IncludeInstruction>(located.instruction);
      });
  if (!includes) {
    return instructions;
  }
  IncludeChain chain;
  std::error_code error;
  fs::path directory = scriptFile.empty() ? fs::current_path(error) : scriptFile.parent_path();
  if (!scriptFile.empty()) {
    chain.files.push_back(fs::weakly_canonical(scriptFile, error));
    chain.names.push_back(scriptFile.filename().string());
  }
  std::vector<LocatedInstruction> expanded;
  expandInto(expanded, std::move(instructions), directory, "", chain);
  return expanded;
}

}  // namespace brimble
