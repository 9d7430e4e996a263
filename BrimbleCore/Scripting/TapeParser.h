#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Scripting/ScriptInstruction.h"

namespace brimble {

/// What a `.tape` file comes to: the instructions a `.brim` script would run for it, and the
/// warnings for what it asks that cannot be done as asked.
struct TapeScript {
  std::vector<LocatedInstruction> instructions;
  /// Each a full line, "Warning: line N: ...".
  std::vector<std::string> warnings;
};

/// The front end of the `.tape` format: one terminal, dressed by the tape's settings, recorded
/// from its first command to its end. A tape becomes the instructions of the one instruction set
/// the engine runs: its `Set`s become the terminal's settings (the output frame `Width` x
/// `Height` pixels, margins and window bar included), `Output`, `Require` and `Env` come before
/// the terminal opens (so its shell has the environment), then the terminal opens with a clean
/// shell prompting "> " and recording starts; each command after that becomes the instructions
/// that do it (`Enter@1s 3` three Enter keys a second apart, `Wait` a wait for text, `Paste` the
/// text of the last `Copy` typed at once). The instructions keep the tape's line numbers and
/// lines. Stateless; callable from any thread.
class TapeParser {
 public:
  /// A tape run on its own, or one read by another's `Source`: only its commands then, without
  /// the terminal, the settings that dress it or its outputs.
  enum class Role { whole, sourced };

  /// Throws the first error as an annotated ScriptError ("Line N, Col C: ..." with the line and
  /// a caret), as `.brim` scripts do.
  static TapeScript parse(std::string_view source, Role role = Role::whole);
};

/// Whether `file` is a tape (named `.tape`, any case).
bool isTapeFile(const std::filesystem::path& file);

}  // namespace brimble
