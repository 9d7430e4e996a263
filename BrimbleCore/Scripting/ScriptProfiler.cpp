#include "BrimbleCore/Scripting/ScriptProfiler.h"

#include <algorithm>

#include <fmt/format.h>

namespace brimble {

void ScriptProfiler::record(int line, std::string label, double seconds) {
  entries_.push_back({line, std::move(label), seconds});
}

double ScriptProfiler::totalSeconds() const {
  double total = 0;
  for (const Entry& entry : entries_) {
    total += entry.seconds;
  }
  return total;
}

std::vector<std::string> ScriptProfiler::report() const {
  const double total = totalSeconds();
  std::vector<std::string> lines = {"  line   seconds  share  instruction"};
  for (const Entry& entry : entries_) {
    const double share = total > 0 ? entry.seconds / total * 100 : 0;
    lines.push_back(fmt::format("  {:>4}  {:>8.3f}  {:>4.0f}%  {}",
                                entry.line > 0 ? std::to_string(entry.line) : "", entry.seconds,
                                share, entry.label));
  }
  lines.push_back(fmt::format("  total {:>7.3f} s", total));
  const auto slowest =
      std::max_element(entries_.begin(), entries_.end(),
                       [](const Entry& a, const Entry& b) { return a.seconds < b.seconds; });
  if (slowest != entries_.end()) {
    lines.push_back(
        fmt::format("  slowest: {}{}", slowest->label,
                    slowest->line > 0 ? fmt::format(" (line {})", slowest->line) : std::string()));
  }
  return lines;
}

}  // namespace brimble
