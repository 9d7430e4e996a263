#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace brimble::cli {

/// What an option's value (or a positional argument) is, as far as the shell completions and the
/// manual need to know: a word from a fixed list, a script file, or any file. Attached to an
/// option as a named validator that refuses nothing, so the commands keep reporting a wrong value
/// in their own words.
struct OptionValues {
  enum class Kind { anything, files, scripts, words };
  Kind kind = Kind::anything;
  std::vector<std::string> words;  // for Kind::words, in the order the help gives them

  bool operator==(const OptionValues& other) const = default;
};

/// The option takes one of `words` (which the command checks itself).
CLI::Validator valuesFrom(std::vector<std::string> words);

/// The option names a script: a .brim or a .tape file.
CLI::Validator scriptFileValue();

/// The option names a file to read or write.
CLI::Validator fileValue();

/// The validator name that marks an option as taking one of `words`; `oneOf` uses it too.
std::string wordsMark(const std::vector<std::string>& words);

/// What `option` takes, from the marks above; Kind::anything when it has none.
OptionValues optionValues(CLI::Option& option);

}  // namespace brimble::cli
