#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// The candidate a mistyped `word` most likely meant, for a "did you mean" hint: the nearest by
/// edit distance (a letter missing, extra or changed, or two neighbours swapped), at most two
/// edits and at most a third of the letters of the longer of the two ("rn" finds "run", "bogus"
/// no "focus"), or else
/// the only candidate that begins with `word`. No value when none is near. Pure; any thread.
std::optional<std::string> nearestName(std::string_view word,
                                       const std::vector<std::string>& candidates);

}  // namespace brimble
