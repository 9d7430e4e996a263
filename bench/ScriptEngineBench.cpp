// The script engine's own cost between instructions, and the pace it types at.
//
// Overhead: a 600-instruction script (settings, typing, keys, pointer moves, waits) runs against
// input and window fakes on a clock that only moves when something waits, so what is measured is
// the engine itself: parsing the line's values, dispatch, progress lines, the profiler and the
// recorder checks. The target is under 5 ms per instruction.
//
// Pace: typing 40 characters at `typing-delay` 0.05 on the real clock; the characters per second
// should be within 10% of 1 / typing-delay (counter `pace_error_pct`).

#include "BrimbleCore/Scripting/ScriptEngine.h"

#include <chrono>
#include <cmath>
#include <string>

#include <benchmark/benchmark.h>

#include "BrimbleCore/Scripting/ScriptParser.h"
#include "tests/Support/FakeAppLauncher.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeInputBackend.h"
#include "tests/Support/FakeProcessRunner.h"
#include "tests/Support/FakeScreen.h"
#include "tests/Support/FakeWindowSystem.h"

namespace brimble {
namespace {

constexpr int kRepeats = 100;

std::string script() {
  std::string text = "open \"Terminal\"\ncapture-window app \"Terminal\" as $term\n";
  for (int i = 0; i < kRepeats; ++i) {
    text +=
        "set typing-delay 0\n"
        "type \"ls\"\n"
        "key \"ctrl+l\"\n"
        "move 100 200 duration 0\n"
        "wait 0\n"
        "cursor 10 10\n";
  }
  return text;
}

void BM_EngineOverheadPerInstruction(benchmark::State& state) {
  const std::string source = script();
  const std::size_t instructions = ScriptParser::parse(source).size();
  for (auto _ : state) {
    state.PauseTiming();
    testing::FakeClock clock;
    testing::FakeWindowSystem system{clock};
    testing::FakeAppLauncher launcher{{"xterm"}};
    launcher.onLaunch = [&] {
      system.add({2, "Terminal", "xterm", 4242, {0, 0, 660, 440}, {0, 30, 640, 400}});
    };
    WindowManager windows{system, launcher, clock};
    testing::FakeInputBackend backend{clock};
    InputSimulator input{backend, clock};
    testing::FakeScreen screen;
    testing::FakeProcessRunner processes;
    ScriptOptions options;
    int lines = 0;
    options.print = [&lines](std::string_view) { ++lines; };
    const PlatformTexts texts;
    ScriptEngine engine({screen, input, windows, processes, clock, texts, nullptr, nullptr},
                        options);
    const std::vector<LocatedInstruction> parsed = ScriptParser::parse(source);
    state.ResumeTiming();
    for (const LocatedInstruction& instruction : parsed) {
      engine.executeInstruction(instruction);
    }
    benchmark::DoNotOptimize(lines);
  }
  // Seconds per instruction, shown with its SI prefix ("12.3u" is 12.3 microseconds).
  state.counters["per_instruction"] = benchmark::Counter(
      static_cast<double>(instructions),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_EngineOverheadPerInstruction)->Unit(benchmark::kMillisecond);

void BM_TypingPace(benchmark::State& state) {
  constexpr double kDelay = 0.05;
  const std::string text(40, 'a');
  double worstError = 0;
  for (auto _ : state) {
    testing::FakeClock fakeClock;  // stamps the backend's lines; the pace runs on the real clock
    testing::FakeInputBackend backend{fakeClock};
    InputSimulator input{backend, steadyClock()};
    const auto start = std::chrono::steady_clock::now();
    input.typeText(text, kDelay, false, [] { return false; });
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // Each character is followed by its pause (jittered around the delay, on average the delay).
    const double perSecond = static_cast<double>(text.size()) / seconds;
    worstError = std::max(worstError, std::abs(perSecond * kDelay - 1) * 100);
  }
  state.counters["pace_error_pct"] = worstError;
}
BENCHMARK(BM_TypingPace)->Unit(benchmark::kSecond)->Iterations(3);

}  // namespace
}  // namespace brimble
