#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"
#include "BrimbleCore/Scripting/ScriptLexer.h"

namespace brimble {

/// What the engine and the script check need to know of an instruction besides its fields.
struct InstructionTraits {
  /// Paces like a person's action: with `auto-pace` on, the engine pauses after it.
  bool action = false;
  /// Acts on an application's elements or dialogs through the accessibility service; a script
  /// that does so outside a browser session is warned about when that service is missing.
  bool drivesAppsByElement = false;
  /// Starts a browser session, whose elements are found in the page rather than an application.
  bool startsBrowser = false;
};

/// One instruction a command's lines parse into (`click` has two: by position and by element).
struct InstructionForm {
  /// The instruction's index among the ScriptInstruction alternatives.
  std::size_t alternative = 0;
  InstructionTraits traits;
};

/// One command of the language: what the manifest publishes of it, how its lines parse and the
/// instructions they become.
struct ScriptCommand {
  using ParseFunction = ScriptInstruction (*)(std::span<const LocatedToken> tokens, int lineNumber);

  /// Name, description, arguments and snippet, as `brimble commands` and the MCP resources show
  /// them.
  ScriptCommandInfo info;
  /// Parses one line, its command word first (a ScriptParser function).
  ParseFunction parse = nullptr;
  std::vector<InstructionForm> forms{};
  /// What this platform cannot run of the command, for the command listing; empty when it runs
  /// all of it.
  std::string_view platformNote{};
};

/// The commands of the language in their documented order: the one place where a command is
/// declared. The manifest, the parser's command words, the instructions' command names and
/// their traits all come from it. Built once on first use; immutable and thread-safe after.
class ScriptCommandTable {
 public:
  static const ScriptCommandTable& shared();

  const std::vector<ScriptCommand>& commands() const noexcept { return commands_; }

  /// The command spelt `name` (lower case), or null.
  const ScriptCommand* find(std::string_view name) const;

  /// The command whose lines parse into `instruction`.
  const ScriptCommand& commandOf(const ScriptInstruction& instruction) const {
    return *byAlternative_[instruction.index()];
  }

  const InstructionTraits& traitsOf(const ScriptInstruction& instruction) const {
    return traits_[instruction.index()];
  }

 private:
  static constexpr std::size_t kAlternatives = std::variant_size_v<ScriptInstruction>;

  ScriptCommandTable();

  std::vector<ScriptCommand> commands_;
  std::unordered_map<std::string_view, const ScriptCommand*> byName_;
  std::array<const ScriptCommand*, kAlternatives> byAlternative_{};
  std::array<InstructionTraits, kAlternatives> traits_{};
};

/// The command words, in their documented order, for "did you mean".
std::vector<std::string> scriptCommandNames();
/// The names `set` takes: the settings table's and the title-card colours, for "did you mean".
std::vector<std::string> scriptSettingNames();
/// The modifier words of `key` chords ("cmd", "shift", ...), for "did you mean".
const std::vector<std::string>& scriptModifierNames();
/// The named keys of `key` chords ("enter", "pagedown", "f5", ...; single letters left out,
/// which no typo is near), for "did you mean".
const std::vector<std::string>& scriptKeyNames();

/// The command that produced `instruction`, as scripts spell it ("capture-window"; both click
/// forms are "click").
std::string_view commandName(const ScriptInstruction& instruction);

/// Why this platform cannot run `instruction` ("Simulator capture is not available on this
/// platform." for `tap` and `record simulator`, the Safari text for `browser safari`), or no
/// value when it can. The engine fails such a line; the script check warns of it.
std::optional<std::string> unavailableOnThisPlatform(const ScriptInstruction& instruction);

}  // namespace brimble
