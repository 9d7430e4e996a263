#include "cli/AnimationOutput.h"

#include <fmt/format.h>

namespace brimble::cli {

std::optional<OutputFormat> resolveOutputFormat(const std::string& command,
                                                const std::string& formatOption,
                                                const std::filesystem::path& output) {
  std::optional<OutputFormat> format;
  if (!formatOption.empty()) {
    format = outputFormatFromRawValue(formatOption);
    if (!format) {
      fmt::print(stderr, "brimble {}: unknown format \"{}\" (use gif, webp or apng)\n", command,
                 formatOption);
      return std::nullopt;
    }
  } else {
    format = outputFormatFromExtension(output.extension().string()).value_or(OutputFormat::gif);
  }
  if (isVideo(*format)) {
    fmt::print(stderr, "brimble {}: {} output is not supported yet (use gif, webp or apng)\n",
               command, label(*format));
    return std::nullopt;
  }
  return format;
}

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
