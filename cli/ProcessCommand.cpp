#include "cli/ProcessCommand.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/Effects/IdleTrimmer.h"
#include "BrimbleCore/Encoding/ClipEditor.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/GIFDecoder.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "cli/AnimationOutput.h"
#include "cli/OptionChecks.h"
#include "cli/OptionValues.h"
#include "cli/ProgressBar.h"

namespace brimble::cli {
namespace {

namespace fs = std::filesystem;

struct ProcessOptions {
  fs::path input;
  std::string trim;
  std::string crop;
  fs::path output;
  int maxWidth = 0;
  double speed = 1;
  std::string palette = "auto";
  bool frameDiffing = true;
  bool dedup = true;
  std::string format;
  std::string idleStrategy;
  double idleThreshold = 2.0;
  VideoOptions video;
};

/// Beside the input, named after it: clip.gif becomes clip.processed.gif (or .webp, .png).
fs::path defaultOutput(const fs::path& input, OutputFormat format) {
  fs::path output = input;
  output.replace_extension(std::string(".processed.") + std::string(fileExtension(format)));
  return output;
}

int runProcess(ProcessOptions options, Interrupts& interrupts) {
  const auto started = std::chrono::steady_clock::now();
  const std::stop_token stop = interrupts.watch();
  const auto palette = paletteStrategyFromArgument(options.palette);
  if (!palette) {
    fmt::print(stderr, "brimble process: unknown palette \"{}\" (use auto, global or perFrame)\n",
               options.palette);
    return kExitUsage;
  }
  if (options.output.empty()) {
    // An unknown --format is reported just below.
    options.output = defaultOutput(
        options.input, outputFormatFromRawValue(options.format).value_or(OutputFormat::gif));
  }
  const OutputFormat format = checkAnimationOutput(options.format, options.output, true);
  ClipEdit edit;
  edit.speed = options.speed;
  edit.maxWidth = options.maxWidth;
  edit.deduplicate = options.dedup;
  if (!options.idleStrategy.empty()) {
    const std::optional<IdleStrategy> idle = idleStrategyFromArgument(options.idleStrategy);
    if (!idle) {
      fmt::print(stderr, "brimble process: unknown idle strategy \"{}\" (use cut, ramp or fade)\n",
                 options.idleStrategy);
      return kExitUsage;
    }
    edit.idle = [strategy = *idle,
                 threshold = options.idleThreshold](std::span<const ProcessedFrame> clip) {
      return IdleTrimmer::apply(clip, strategy, threshold);
    };
  }
  if (!options.trim.empty()) {
    const auto range = ClipEditor::parseTrim(options.trim);
    if (!range) {
      fmt::print(stderr,
                 "brimble process: --trim must be START:END in seconds, either may be "
                 "left out (got \"{}\")\n",
                 options.trim);
      return kExitUsage;
    }
    edit.trimStart = range->first;
    edit.trimEnd = range->second;
  }
  if (!options.crop.empty()) {
    edit.crop = ClipEditor::parseCrop(options.crop);
    if (!edit.crop) {
      fmt::print(stderr,
                 "brimble process: --crop must be X,Y,WIDTH,HEIGHT in pixels (got \"{}\")\n",
                 options.crop);
      return kExitUsage;
    }
  }

  edit.idleThreshold = options.idleThreshold;
  int loopCount = 1;
  {
    // What the file must say before the first frame is written; its frames are read later, one
    // at a time.
    const GIFDecoder outline(options.input);
    if (outline.frameCount() == 0) {
      fmt::print(stderr, "brimble process: {} holds no frames\n", options.input.string());
      return kExitFailure;
    }
    loopCount = outline.loopCount();
  }
  const FrameStreamSource frames = [&] {
    return ClipEditor::stream(std::make_unique<GIFDecoder>(options.input), edit, stop);
  };
  ProgressBar bar;
  EncodeSummary summary;
  try {
    // Written beside the destination and renamed over it, so processing a file in place is safe.
    summary = ClipEncoder::encodeStream(frames, options.output,
                                        {.loopCount = loopCount,
                                         .frameDiffing = options.frameDiffing,
                                         .format = format,
                                         .progress = progressOn(bar),
                                         .stop = stop,
                                         .tuning = {.paletteStrategy = *palette},
                                         .video = options.video});
  } catch (const ClipEditError& error) {
    bar.finish();
    fmt::print(stderr, "brimble process: {}\n", error.what());
    return kExitFailure;
  }
  bar.finish();
  printSummary(options.output, summary, started);
  return kExitSuccess;
}

}  // namespace

Command addProcessCommand(CLI::App& app, Interrupts& interrupts) {
  auto options = std::make_shared<ProcessOptions>();
  CLI::App* command = app.add_subcommand("process",
                                         "Trim, crop, resize, change the speed of, and re-encode "
                                         "an animated GIF (as GIF, WebP, APNG or MP4)");
  command->add_option("input", options->input, "The GIF to process")
      ->check(fileValue())
      ->required();
  command->add_option("-o,--output", options->output,
                      "The file to write (default: INPUT.processed.gif beside the input)");
  command
      ->add_option("--max-width", options->maxWidth,
                   "Scale frames down to at most this width (0 keeps their size)")
      ->check(wholeNumberIn(0, 65535))
      ->capture_default_str();
  command
      ->add_option("--trim", options->trim,
                   "Keep the part from START to END seconds (\"1.5:4\", \"2:\", \":3\")")
      ->type_name("START:END");
  command->add_option("--crop", options->crop, "Keep this rectangle of every frame, in pixels")
      ->type_name("X,Y,W,H");
  command->add_option("--speed", options->speed, "Playback speed factor (2 plays twice as fast)")
      ->check(numberIn(0.01, 100))
      ->capture_default_str();
  command
      ->add_option("--palette", options->palette,
                   "auto, global or perFrame (GIF without frame diffing)")
      ->check(valuesFrom({"auto", "global", "perFrame"}))
      ->capture_default_str();
  command->add_flag("--frame-diffing,!--no-frame-diffing", options->frameDiffing,
                    "Store only the pixels that changed (GIF; default on)");
  command->add_flag("--dedup,--dedupe,!--no-dedup,!--no-dedupe", options->dedup,
                    "Merge repeated frames into longer ones, keeping the total time (default on)");
  command
      ->add_option("--idle-strategy", options->idleStrategy,
                   "Pauses longer than the idle threshold: cut (to a short beat), ramp (play "
                   "them fast) or fade (cut with a dip to black); default: kept")
      ->check(valuesFrom({"cut", "ramp", "fade"}))
      ->type_name("STRATEGY");
  command
      ->add_option("--idle-threshold", options->idleThreshold,
                   "Seconds without change that count as a pause")
      ->check(numberIn(0, 3600))
      ->type_name("S")
      ->capture_default_str();
  command->add_option("--format", options->format, "gif, webp, apng or mp4 (default: from -o)")
      ->check(valuesFrom({"gif", "webp", "apng", "mp4"}));
  addVideoOptions(*command, options->video);
  return {command, [options, &interrupts] {
            try {
              return runProcess(*options, interrupts);
            } catch (const CancellationError&) {
              fmt::print(stderr, "brimble process: interrupted; nothing was written\n");
              return Interrupts::kExitInterrupted;
            }
          }};
}

}  // namespace brimble::cli
