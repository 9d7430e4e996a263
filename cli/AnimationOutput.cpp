#include "cli/AnimationOutput.h"

#include <fmt/format.h>

namespace brimble::cli {

EncodeProgress progressOn(ProgressBar& bar) {
  return [&bar](RenderPhase phase, int done, int total) {
    bar.update(phase == RenderPhase::palette ? "palette" : "encode", done, total);
  };
}

void printSummary(const std::filesystem::path& output, const EncodeSummary& summary,
                  std::chrono::steady_clock::time_point started) {
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  fmt::print("{}: {} bytes, {} frames, {}x{}, {:.2f} s\n", output.string(),
             std::filesystem::file_size(output), summary.frames, summary.width, summary.height,
             seconds);
}

}  // namespace brimble::cli
