#include "BrimbleCore/Scripting/NearestName.h"

#include <algorithm>

namespace brimble {
namespace {

// Optimal string alignment distance: insertions, deletions, substitutions and swaps of two
// neighbours, the typos people make.
std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    d[i][0] = i;
  }
  for (std::size_t j = 0; j <= b.size(); ++j) {
    d[0][j] = j;
  }
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

}  // namespace

std::optional<std::string> nearestName(std::string_view word,
                                       const std::vector<std::string>& candidates) {
  // Words of hundreds of letters are no typos of a name, and would cost a large table.
  constexpr std::size_t kLongestWord = 64;
  if (word.size() > kLongestWord) {
    return std::nullopt;
  }
  std::optional<std::string> best;
  std::size_t bestDistance = 3;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = editDistance(word, candidate);
    if (distance < bestDistance && distance * 3 <= std::max(word.size(), candidate.size())) {
      best = candidate;
      bestDistance = distance;
    }
  }
  if (best) {
    return best;
  }
  std::optional<std::string> extension;
  for (const std::string& candidate : candidates) {
    if (word.size() >= 2 && candidate.starts_with(word)) {
      if (extension) {
        return std::nullopt;  // several begin so: no guess
      }
      extension = candidate;
    }
  }
  return extension;
}

}  // namespace brimble
