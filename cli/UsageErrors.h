#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace brimble::cli {

/// Tells the user on standard error what is wrong with the command line the parser refused, in
/// one line that names the command ("brimble record: --duration: must be ..."), with the nearest
/// known name for an unknown command or option ("...; did you mean '--fps'?"), and then where the
/// usage is ("Run 'brimble record --help' for usage."). `root` is the parser that threw `error`;
/// the command named is the deepest one it had recognised. Returns kExitUsage.
int reportUsageError(CLI::App& root, const CLI::ParseError& error);

/// The candidate a mistyped `word` most likely meant: the nearest by edit distance (a letter
/// missing, extra or changed, or two neighbours swapped), at most two edits and fewer than half
/// of the word's letters, or else the only candidate that begins with `word`. No value when none
/// is near.
std::optional<std::string> nearestName(std::string_view word,
                                       const std::vector<std::string>& candidates);

/// "a, b or c".
std::string joinedWithOr(const std::vector<std::string>& names);

}  // namespace brimble::cli
