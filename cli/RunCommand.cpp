#include "cli/RunCommand.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/Capture/AudioError.h"
#include "BrimbleCore/Capture/PrivateSoundServer.h"
#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Scripting/ScriptEngine.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptPreflight.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "BrimbleCore/Scripting/ShellProcessRunner.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "cli/AnimationOutput.h"
#include "cli/CommandDesktop.h"
#include "cli/OptionValues.h"
#include "cli/ProgressBar.h"
#include "cli/ScriptSource.h"

namespace brimble::cli {
namespace {

namespace fs = std::filesystem;

struct RunOptions {
  std::string script;
  fs::path output;
  bool preview = false;
  bool quiet = false;
  bool profile = false;
  bool headless = false;
  bool privateSoundServer = false;
  fs::path timeline;
};

// The timeline must not take the place of a file the run reads or writes.
void checkTimelinePath(const RunOptions& options, const ScriptSource& source,
                       const std::vector<std::string>& outputs) {
  if (options.timeline.empty()) {
    return;
  }
  std::error_code ignored;
  const fs::path timeline = fs::weakly_canonical(options.timeline, ignored);
  std::vector<fs::path> taken(outputs.begin(), outputs.end());
  taken.push_back(source.file);
  for (const fs::path& file : taken) {
    if (!file.empty() && fs::weakly_canonical(file, ignored) == timeline) {
      throw std::runtime_error("--timeline " + options.timeline.string() +
                               " is the script's or an output's own file; give the timeline a "
                               "name of its own");
    }
  }
  const fs::path folder =
      options.timeline.has_parent_path() ? options.timeline.parent_path() : fs::path(".");
  if (!fs::is_directory(folder, ignored)) {
    throw std::runtime_error("--timeline " + options.timeline.string() + ": there is no folder " +
                             folder.string());
  }
}

// Writes the timeline of what was rendered; a failure costs the timeline only.
void writeTimeline(const fs::path& path, const ScriptOutcome& outcome) {
  if (path.empty() || outcome.timeline.empty()) {
    return;
  }
  try {
    writeFileAtomically(path, outcome.timeline + "\n", 0644);
  } catch (const std::system_error& error) {
    fmt::print(stderr, "brimble run: the timeline could not be written: {}\n", error.what());
  }
}

void printProfile(const ScriptEngine& engine) {
  fmt::print(stderr, "brimble run: where the time went\n");
  for (const std::string& line : engine.profiler().report()) {
    fmt::print(stderr, "{}\n", line);
  }
}

/// The first interrupt stops the script and leaves it to render what it recorded; the second
/// abandons that render. Lives on the command's stack while the script runs.
class InterruptStages {
 public:
  explicit InterruptStages(Interrupts& interrupts)
      : interrupts_(interrupts), interrupt_(interrupts.watch()), onFirst_(interrupt_, [this] {
          // Runs on the watcher's thread as it delivers the first signal.
          secondSignal_.emplace(interrupts_.watchAgain(), [this] { abandon_.request_stop(); });
        }) {}

  std::stop_token interrupt() const { return interrupt_; }
  std::stop_token abandon() const { return abandon_.get_token(); }

 private:
  Interrupts& interrupts_;
  std::stop_source abandon_;
  std::optional<std::stop_callback<std::function<void()>>> secondSignal_;
  std::stop_token interrupt_;
  std::stop_callback<std::function<void()>> onFirst_;
};

int runScript(const RunOptions& options, Interrupts& interrupts) {
  const ScriptSource source = readScriptSource(options.script);
  // The script is checked before anything is opened or recorded, so a typo costs no recording.
  const ParsedScript check = validate(source.text, source.file);
  for (const std::string& warning : check.warnings) {
    fmt::print(stderr, "{}\n", warning);
  }
  // Every output the script names is checked now, so that none of them fails after the
  // recording.
  std::vector<std::string> outputs = check.outputs;
  if (!options.output.empty()) {
    outputs = {options.output.string()};
  } else if (outputs.empty()) {
    outputs = {check.output.value_or("output.gif")};
  }
  for (const std::string& output : outputs) {
    if (namesFrameFolder(output)) {
      checkFrameFolderOutput(output);
    } else {
      checkAnimationOutput("", output, false);
    }
  }
  checkBeforeRunning(check);
  checkTimelinePath(options, source, outputs);

  // Started before the display, so every program the script starts inherits its address and
  // plays into it, and `record ... audio` hears them.
  std::optional<PrivateSoundServer> sound;
  if (options.privateSoundServer) {
    try {
      sound.emplace();
    } catch (const AudioError& error) {
      fmt::print(stderr, "brimble run: {}\n", error.what());
      return kExitFailure;
    }
    ::setenv("PULSE_SERVER", sound->address().c_str(), 1);
  }

  ScreenRecorder::sweepOrphanedFrameFiles();
  InterruptStages stages(interrupts);
  const auto desktop = scriptDesktop(options.headless);
  if (desktop->session().embedded && !options.quiet) {
    fmt::print(stderr, "brimble run: running in an embedded display ({}): {}\n",
               desktop->session().name, desktop->session().reason);
  }
  ShellProcessRunner processes({.environment = desktop->environment(), .stop = stages.interrupt()});

  ProgressBar bar;
  ScriptOptions scriptOptions;
  scriptOptions.quiet = options.quiet;
  scriptOptions.preview = options.preview;
  if (!options.output.empty()) {
    scriptOptions.output = options.output;
  }
  if (!source.file.empty()) {
    scriptOptions.scriptDirectory = source.file.parent_path();
  }
  scriptOptions.print = [&bar](std::string_view line) {
    bar.finish();
    fmt::print(stderr, "{}\n", line);
  };
  scriptOptions.renderProgress = progressOn(bar);
  scriptOptions.interrupt = stages.interrupt();
  scriptOptions.abandon = stages.abandon();
  ScriptEngine engine({.screen = desktop->screen(),
                       .input = desktop->input(),
                       .windows = desktop->windows(),
                       .processes = processes,
                       .clock = desktop->clock(),
                       .texts = desktop->texts(),
                       .makeRecorder = [&desktop] { return desktop->makeSegmentRecorder(); },
                       .browsers = desktop->browsers()},
                      scriptOptions);

  ScriptOutcome outcome;
  try {
    outcome = engine.execute(check);
  } catch (const CancellationError&) {
    bar.finish();
    if (options.profile) {
      printProfile(engine);
    }
    fmt::print(stderr, "brimble run: interrupted; nothing was written\n");
    return Interrupts::kExitInterrupted;
  } catch (const ScriptError& error) {
    bar.finish();
    if (options.profile) {
      printProfile(engine);
    }
    // The located message stands alone, so that its caret lines up under the quoted line.
    fmt::print(stderr, "{}\n", error.what());
    if (const auto& partial = engine.keptPartial()) {
      fmt::print(stderr, "brimble run: what was recorded up to there is kept in {}\n",
                 partial->output.string());
      writeTimeline(options.timeline, *partial);
    }
    return kExitFailure;
  }
  bar.finish();
  if (options.profile) {
    printProfile(engine);
  }
  if (outcome.summary.frames == 0) {
    fmt::print(stderr,
               "brimble run: interrupted before anything was recorded; nothing was written\n");
    return Interrupts::kExitInterrupted;
  }
  writeTimeline(options.timeline, outcome);
  for (const WrittenOutput& written : outcome.outputs) {
    if (fs::is_directory(written.path)) {
      fmt::print("{}: {} PNG frames, {}x{}, plays {:.2f} s\n", written.path.string(),
                 written.summary.frames, written.summary.width, written.summary.height,
                 written.summary.duration);
    } else {
      printSummary(written.path, written.summary, outcome.renderSeconds);
    }
  }
  return outcome.interrupted ? Interrupts::kExitInterrupted : kExitSuccess;
}

}  // namespace

Command addRunCommand(CLI::App& app, Interrupts& interrupts) {
  auto options = std::make_shared<RunOptions>();
  CLI::App* command = app.add_subcommand(
      "run",
      "Run a .brim demo script or a .tape file: drive windows, terminals and browser pages, "
      "record them and render the animation");
  command
      ->add_option("script", options->script,
                   "The script: a file, - for standard input, or the name of one in "
                   "$BRIMBLE_SCRIPT_DIR (default ~/.brimble/scripts)")
      ->check(scriptFileValue())
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "Write here instead of the script's output setting; the extension picks the "
                   "format (.gif, .webp, .png, .mp4)")
      ->check(fileValue())
      ->type_name("OUT");
  command->add_flag("--preview", options->preview,
                    "A quick, small render: 10 fps and at most 400 pixels wide");
  command->add_flag("-q,--quiet", options->quiet, "No progress lines, only warnings and errors");
  command->add_flag("--profile", options->profile,
                    "Print how long each instruction, the render and the clean-up took");
  command->add_flag("--headless", options->headless,
                    "Use Brimble's own embedded display instead of the desktop session");
  command
      ->add_option("--timeline", options->timeline,
                   "Also write what happens when in the output, as JSON: each instruction, "
                   "chapter, caption, keystroke and click at its time in the output")
      ->check(fileValue())
      ->type_name("FILE");
  command->add_flag("--private-sound-server", options->privateSoundServer,
                    "Start a private PulseAudio server with a silent output for the script's "
                    "programs to play into, so that 'record ... audio' works without a desktop "
                    "sound server");
  return {command, [options, &interrupts] { return runScript(*options, interrupts); }};
}

}  // namespace brimble::cli
