#include "cli/AnimationOutput.h"

#include <fmt/format.h>

#include "cli/OptionChecks.h"
#include "cli/UsageCounting.h"

namespace brimble::cli {

void addVideoOptions(CLI::App& command, VideoOptions& video) {
  command
      .add_option("--crf", video.crf,
                  "MP4: constant quality, 0 (lossless) to 51; lower is sharper and larger")
      ->check(wholeNumberIn(0, 51))
      ->capture_default_str();
  command
      .add_option("--preset", video.preset,
                  "MP4: x264 speed preset; slower presets make smaller files at the same quality")
      ->check(oneOf("preset", {"ultrafast", "superfast", "veryfast", "faster", "fast", "medium",
                               "slow", "slower", "veryslow", "placebo"}))
      ->capture_default_str();
}

EncodeProgress progressOn(ProgressBar& bar) {
  return [&bar](RenderPhase phase, int done, int total) {
    bar.update(phase == RenderPhase::palette ? "palette" : "encode", done, total);
  };
}

void printSummary(const std::filesystem::path& output, const EncodeSummary& summary,
                  std::chrono::steady_clock::time_point started) {
  printSummary(output, summary,
               std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
}

void printSummary(const std::filesystem::path& output, const EncodeSummary& summary,
                  double encodeSeconds) {
  // Every command summarizes each output it encoded here, so this is where renders are counted.
  noteEncodedOutput(output);
  // How long the clip plays is what a reader of this line wants to know; how long the encode
  // took is worth a glance too, but must not pass for it.
  fmt::print("{}: {} bytes, {} frames, {}x{}, plays {:.2f} s (encoded in {:.2f} s)\n",
             output.string(), std::filesystem::file_size(output), summary.frames, summary.width,
             summary.height, summary.duration, encodeSeconds);
}

}  // namespace brimble::cli
