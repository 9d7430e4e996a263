#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// The outcome of checking a script without running it.
struct ScriptValidation {
  int instructionCount = 0;
  bool explicitRender = false;
  /// Where the script writes: the value of its last `set output` written as plain text; no value
  /// when it never sets one that way (a variable decides only when it runs).
  std::optional<std::string> output;
  /// In script order, each a full line such as "Warning: line 4: unknown pace preset 'fast'
  /// (expected: tutorial, demo, cinematic)"; the missing-`record` warning comes last.
  std::vector<std::string> warnings;

  /// What the check prints: the warnings, then "Valid: N instructions" and, when the script
  /// renders explicitly, "  Explicit render: yes".
  std::vector<std::string> lines() const;
};

/// Lexes and parses `source` (throwing the first error as an annotated ScriptError), then walks
/// the instructions once and collects warnings: an unknown pace preset, the first instruction
/// after a `render` (unreachable), a setting that does not exist or a literal value the engine
/// would ignore, commands this platform cannot run (the iOS Simulator, Safari), and a script
/// without any `record`. Stateless; callable from any thread.
ScriptValidation validate(std::string_view source);

}  // namespace brimble
