#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// One argument of a command. `type` is one of "string", "number", "variable" (a `$name`),
/// "variableIndex" (a `$name[N]`), "target" (an element target such as `text:Save`) and "flag"
/// (a keyword on its own, such as `continue`). `choices` lists the accepted words, when
/// restricted.
struct ScriptArgInfo {
  std::string name;
  std::string type;
  bool optional = false;
  std::optional<std::vector<std::string>> choices;

  bool operator==(const ScriptArgInfo& other) const = default;
};

/// One command: what it does, its arguments, and an editor snippet (`${1:placeholder}` tab
/// stops, `${1|a,b|}` choice lists, `\$` for a literal dollar sign).
struct ScriptCommandInfo {
  std::string name;
  std::string description;
  std::vector<ScriptArgInfo> args;
  std::string snippet;

  bool operator==(const ScriptCommandInfo& other) const = default;
};

/// The machine-readable description of the script language, for editors and AI assistants.
/// Plain value; the shared instance from `commandManifest()` is immutable.
struct ScriptCommandManifest {
  int version = 1;
  std::vector<ScriptCommandInfo> commands;
  /// Every command name, for highlighting.
  std::vector<std::string> keywords;

  bool operator==(const ScriptCommandManifest& other) const = default;

  /// {"version", "commands": [{"name", "description", "args": [{"name", "type", "optional",
  /// "choices"?}], "snippet"}], "keywords"}; "choices" only where an argument has them.
  /// `indent` as for JSON pretty-printing; -1 is compact.
  std::string encodeJSON(int indent = -1) const;

  /// The inverse of `encodeJSON`; a missing "choices" key means none. Throws
  /// ScriptManifestError when the text is not such a document.
  static ScriptCommandManifest decodeJSON(std::string_view json);
};

/// Failures to read a command manifest.
class ScriptManifestError : public std::runtime_error {
 public:
  enum class Code { malformed };

  /// "Malformed command manifest: <detail>".
  static ScriptManifestError malformed(const std::string& detail);

  Code code() const noexcept { return code_; }

 private:
  ScriptManifestError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// Every command of the language, in its documented order, with exact descriptions: the specs of
/// the command table (ScriptCommandTable).
ScriptCommandManifest makeCommandManifest();

/// The manifest, built once on first use. Thread-safe.
const ScriptCommandManifest& commandManifest();

/// The command names of the manifest.
const std::vector<std::string>& commandKeywords();

}  // namespace brimble
