#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Scripting/ScriptInstruction.h"

namespace brimble {

/// A script parsed once and checked without running it (by `validate`): the instructions the
/// engine runs, and what the check learned of them. Plain value; copy it freely between threads.
struct ParsedScript {
  std::vector<LocatedInstruction> instructions;
  /// The instructions the summary counts: one per non-empty line.
  int instructionCount = 0;
  bool explicitRender = false;
  /// Where the script writes: the value of its last `set output` written as plain text; no value
  /// when it never sets one that way (a variable decides only when it runs).
  std::optional<std::string> output;
  /// Every file (or frame folder, ending in "/") the render writes as the script names them in
  /// plain text: `set output` with all its values, then each `output`. Empty when the script
  /// names none, or a variable names one.
  std::vector<std::string> outputs;
  /// In script order, each a full line such as "Warning: line 4: unknown pace preset 'fast'
  /// (expected: tutorial, demo, cinematic)"; the missing-`record` warning comes last.
  std::vector<std::string> warnings;

  /// What the check prints: the warnings, then "Valid: N instructions" and, when the script
  /// renders explicitly, "  Explicit render: yes".
  std::vector<std::string> lines() const;
};

}  // namespace brimble
