// Parsing a 10,000-line demo script: every command form, comments, blank lines, quoted strings
// with escapes and variables, as long scripts written by people and assistants mix them. The
// target is under 20 ms per parse.

#include "BrimbleCore/Scripting/ScriptParser.h"

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "BrimbleCore/Scripting/ScriptValidation.h"

namespace brimble {
namespace {

constexpr int kLines = 10'000;

const std::string& script() {
  static const std::string text = [] {
    const std::vector<std::string> lines = {
        "# step: open the terminal and record it",
        "set fps 30",
        "set output \"demo-output.gif\"  # where the GIF goes",
        "open \"Terminal\"",
        "capture-window app \"Terminal\" as $term",
        "record $term duration 3.0 continue",
        "type \"git status --short\\n\" delay 0.04 enter",
        "run \"printf 'a\\nb\\n'\" as $out",
        "spotlight stdout $out[1] duration 2",
        "",
        "move 640 360 duration 0.5",
        "click 100 200 right",
        "click text:Save",
        "scroll down 3",
        "key cmd+shift+t",
        "wait 0.5",
        "highlight \"#login\" duration 1.5 style glow",
        "zoom text:Logo scale 2.0 duration 0.6 mode digital",
        "zoom-out duration 0.5",
        "dismiss-dialog button \"OK\" app \"Finder\"",
        "intro \"Brimble\" subtitle \"GIFs from scripts\" duration 2",
        "set-background color 001122",
        "stop",
    };
    std::string result;
    for (int i = 0; i < kLines; ++i) {
      result += lines[static_cast<std::size_t>(i) % lines.size()];
      result += '\n';
    }
    return result;
  }();
  return text;
}

void BM_ParseTenThousandLines(benchmark::State& state) {
  const std::string& source = script();
  for (auto _ : state) {
    auto instructions = ScriptParser::parse(source);
    benchmark::DoNotOptimize(instructions.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * source.size()));
  state.counters["lines"] = kLines;
}
BENCHMARK(BM_ParseTenThousandLines)->Unit(benchmark::kMillisecond);

void BM_ValidateTenThousandLines(benchmark::State& state) {
  const std::string& source = script();
  for (auto _ : state) {
    auto result = validate(source);
    benchmark::DoNotOptimize(result.instructionCount);
  }
}
BENCHMARK(BM_ValidateTenThousandLines)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brimble
