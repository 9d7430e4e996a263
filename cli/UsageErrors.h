#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Scripting/NearestName.h"

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

/// "a, b or c".
std::string joinedWithOr(const std::vector<std::string>& names);

}  // namespace brimble::cli
