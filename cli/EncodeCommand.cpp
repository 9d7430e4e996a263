#include "cli/EncodeCommand.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/Encoding/ClipEditor.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/FileFrameStore.h"
#include "BrimbleCore/Encoding/GIFDecoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Encoding/SizeBudgetEncoder.h"
#include "BrimbleCore/Encoding/TestPattern.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Text.h"
#include "cli/AnimationOutput.h"
#include "cli/CommandFailure.h"
#include "cli/OptionChecks.h"
#include "cli/OptionValues.h"
#include "cli/ProgressBar.h"

namespace brimble::cli {
namespace {

namespace fs = std::filesystem;

struct EncodeOptions {
  std::vector<std::string> inputs;
  bool testPattern = false;
  int frames = 90;
  std::string size = "800x500";
  fs::path output;
  int fps = 30;
  int maxWidth = 0;
  int loop = 0;
  std::string palette = "auto";
  bool frameDiffing = true;
  bool dedup = true;
  std::string dedupRule = "every-pixel";
  std::string paletteBuilder = "histogram";
  std::string format;
  int webpQuality = 75;
  std::string webpMode = "lossless";
  bool skipBadFrames = false;
  VideoOptions video;
  int maxSizeKB = 0;
};

ImageSize parseSize(const std::string& text) {
  const auto x = text.find('x');
  try {
    if (x != std::string::npos) {
      std::size_t used = 0;
      const int width = std::stoi(text.substr(0, x), &used);
      const std::string rest = text.substr(x + 1);
      std::size_t usedRest = 0;
      const int height = std::stoi(rest, &usedRest);
      if (used == x && usedRest == rest.size() && width >= 1 && height >= 1 && width <= 65535 &&
          height <= 65535) {
        return {width, height};
      }
    }
  } catch (const std::exception&) {
  }
  failCommand("encode", kExitUsage, "--size must be WIDTHxHEIGHT, each 1 to 65535 (got \"{}\")",
              text);
}

bool isFrameFile(const fs::path& path) {
  const std::string extension = lowercased(path.extension().string());
  return extension == ".png" || extension == ".jpg" || extension == ".jpeg";
}

bool isGIFFile(const fs::path& path) {
  return lowercased(path.extension().string()) == ".gif";
}

/// The frame files the inputs name: a directory's PNG and JPEG files in name order, or the files
/// themselves in the order given.
std::vector<fs::path> frameFiles(const std::vector<std::string>& inputs) {
  std::vector<fs::path> files;
  for (const fs::path input : inputs) {
    std::error_code error;
    const auto status = fs::status(input, error);
    if (!fs::exists(status)) {
      failCommand("encode", kExitFailure, "{}: no such file or directory", input.string());
    }
    if (fs::is_directory(status)) {
      std::vector<fs::path> found;
      for (const auto& entry : fs::directory_iterator(input, error)) {
        if (entry.is_regular_file() && isFrameFile(entry.path())) {
          found.push_back(entry.path());
        }
      }
      if (error) {
        failCommand("encode", kExitFailure, "cannot list {}: {}", input.string(), error.message());
      }
      if (found.empty()) {
        failCommand("encode", kExitFailure, "{}: no PNG or JPEG frames in this directory",
                    input.string());
      }
      std::sort(found.begin(), found.end());
      files.insert(files.end(), found.begin(), found.end());
    } else {
      files.push_back(input);
    }
  }
  return files;
}

/// Every frame must be a readable PNG or JPEG of one size; checked from the headers before
/// anything is written, so a bad frame never leaves half a file behind. With `skipBadFrames`, a
/// file that is not an image at all (empty, garbage, unreadable) is left out with a warning
/// instead; the frames that are left are returned.
std::vector<fs::path> checkFrames(const std::vector<fs::path>& files, bool skipBadFrames) {
  std::vector<fs::path> kept;
  std::optional<ImageSize> first;
  for (const fs::path& file : files) {
    std::optional<ImageSize> size;
    std::string problem = "not a PNG or JPEG image";
    try {
      size = imageSize(readFileBytes(file));
    } catch (const ImageCodecError&) {
      if (!skipBadFrames) {
        throw;
      }
      problem = "the file cannot be read";
    }
    if (!size) {
      if (!skipBadFrames) {
        failCommand("encode", kExitFailure, "{}: {}", file.string(), problem);
      }
      fmt::print(stderr, "brimble encode: warning: skipped {}: {}\n", file.string(), problem);
      continue;
    }
    if (!first) {
      first = size;
    } else if (*size != *first) {
      failCommand("encode", kExitFailure, "frames of mixed sizes: {} is {}x{} but {} is {}x{}",
                  kept.front().string(), first->width, first->height, file.string(), size->width,
                  size->height);
    }
    kept.push_back(file);
  }
  if (kept.empty()) {
    failCommand("encode", kExitFailure, "no frame could be decoded; nothing was written");
  }
  return kept;
}

int runEncode(const EncodeOptions& options, Interrupts& interrupts) {
  const auto started = std::chrono::steady_clock::now();
  const std::stop_token stop = interrupts.watch();
  if (options.testPattern == !options.inputs.empty()) {
    failCommand(
        "encode", kExitUsage, "{}",
        options.testPattern
            ? "give either input frames or --test-pattern, not both"
            : "no input: give a directory of frames, frame files, a GIF, or --test-pattern");
  }
  const OutputFormat format = checkAnimationOutput(options.format, options.output, true);
  const auto palette = paletteStrategyFromArgument(options.palette);
  if (!palette) {
    failCommand("encode", kExitUsage, "unknown palette \"{}\" (use auto, global or perFrame)",
                options.palette);
  }
  FrameTransform scale;
  if (options.maxWidth > 0) {
    scale = [maxWidth = options.maxWidth](const Image& image) {
      return ImageScaler::scaleToMaxWidth(image, maxWidth);
    };
  }
  EncoderTuning tuning;
  if (options.dedupRule == "sampled") {
    tuning.dedupRule = DedupRule::sampled;
  } else if (options.dedupRule == "every-pixel") {
    tuning.dedupRule = DedupRule::everyPixel;
  } else {
    failCommand("encode", kExitUsage, "unknown dedup rule \"{}\" (use every-pixel or sampled)",
                options.dedupRule);
  }
  if (options.paletteBuilder == "histogram") {
    tuning.paletteBuilder = PaletteBuilder::histogram;
  } else if (options.paletteBuilder == "median-cut") {
    tuning.paletteBuilder = PaletteBuilder::medianCut;
  } else {
    failCommand("encode", kExitUsage,
                "unknown palette builder \"{}\" (use histogram or median-cut)",
                options.paletteBuilder);
  }
  tuning.paletteStrategy = *palette;
  if (options.webpMode == "lossless") {
    tuning.webpMode = WebPMode::lossless;
  } else if (options.webpMode == "lossy") {
    tuning.webpMode = WebPMode::lossy;
  } else if (options.webpMode == "mixed") {
    tuning.webpMode = WebPMode::mixed;
  } else {
    failCommand("encode", kExitUsage, "unknown WebP mode \"{}\" (use lossless, lossy or mixed)",
                options.webpMode);
  }
  SequenceOptions sequence;
  sequence.fps = options.fps;
  sequence.loopCount = options.loop;
  sequence.frameDiffing = options.frameDiffing;
  sequence.deduplicate = options.dedup;
  sequence.format = format;
  sequence.transform = scale;
  sequence.webpQuality = static_cast<float>(options.webpQuality);
  sequence.stop = stop;
  sequence.tuning = tuning;
  sequence.video = options.video;
  sequence.video.frameRate = options.fps;

  ProgressBar bar;
  sequence.progress = progressOn(bar);
  // With a size budget the sequence is written again, with stronger reductions, until it fits.
  const auto encodeFrames = [&](int count, const FrameSupplier& frameAt) {
    if (options.maxSizeKB == 0) {
      return ClipEncoder::encodeSequence(count, frameAt, options.output, sequence);
    }
    const auto budget = static_cast<std::uint64_t>(options.maxSizeKB) * 1024;
    const auto result = SizeBudgetEncoder::encode(count, frameAt, options.output, sequence, budget);
    bar.finish();
    if (result.fits) {
      fmt::print(stderr, "brimble encode: {} KB fits the {} KB budget at pass {}\n",
                 (result.fileSize + 1023) / 1024, options.maxSizeKB, result.passes);
    } else {
      fmt::print(stderr,
                 "brimble encode: warning: {} KB is still over the {} KB budget after {} passes; "
                 "the last pass was kept\n",
                 (result.fileSize + 1023) / 1024, options.maxSizeKB, result.passes);
    }
    return result.summary;
  };
  EncodeSummary summary;
  if (options.testPattern) {
    const ImageSize size = parseSize(options.size);
    const FrameSupplier frameAt = [&](int index) -> std::optional<Image> {
      return testPatternFrame(index, options.frames, size.width, size.height);
    };
    summary = encodeFrames(options.frames, frameAt);
  } else if (options.inputs.size() == 1 && isGIFFile(options.inputs.front())) {
    if (options.maxSizeKB > 0) {
      failCommand("encode", kExitUsage,
                  "--max-size works on frames and --test-pattern; a GIF keeps its own timing");
    }
    // A GIF keeps its own delays. Its frames are read one at a time as they are written.
    const fs::path gif = options.inputs.front();
    const FrameStreamSource frames = [&] {
      return ClipEditor::stream(std::make_unique<GIFDecoder>(gif),
                                {.maxWidth = options.maxWidth, .deduplicate = options.dedup}, stop);
    };
    summary = ClipEncoder::encodeStream(frames, options.output,
                                        {.loopCount = options.loop,
                                         .frameDiffing = options.frameDiffing,
                                         .format = format,
                                         .progress = progressOn(bar),
                                         .stop = stop,
                                         .tuning = {.paletteStrategy = *palette},
                                         .video = options.video});
  } else {
    const FileFrameStore store(checkFrames(frameFiles(options.inputs), options.skipBadFrames));
    // A frame whose header reads but whose data is damaged or cut short shows up only when it is
    // decoded: an error that ends the encode, or a warning once the user has chosen to skip it.
    std::mutex skippedMutex;
    std::set<int> skipped;
    const FrameSupplier decode = [&](int index) {
      const fs::path& file = store.files()[static_cast<std::size_t>(index)];
      std::optional<Image> image;
      std::string problem = "the image is damaged or cut short";
      try {
        image = decodeImage(store.data(index));
      } catch (const ImageCodecError&) {
        // Gone or unreadable since it was checked.
        if (!options.skipBadFrames) {
          throw;
        }
        problem = "the file cannot be read";
      }
      if (!image) {
        if (!options.skipBadFrames) {
          throw ImageCodecError::unreadableFile(file,
                                                problem + " (--skip-bad-frames leaves it out)");
        }
        // Frames can be decoded more than once (two passes): warn once.
        std::scoped_lock lock(skippedMutex);
        if (skipped.insert(index).second) {
          fmt::print(stderr, "brimble encode: warning: skipped {}: {}\n", file.string(), problem);
        }
      }
      return image;
    };
    summary = encodeFrames(store.count(), decode);
  }
  bar.finish();
  if (summary.frames == 0) {
    failCommand("encode", kExitFailure, "no frame could be decoded; nothing was written");
  }
  printSummary(options.output, summary, started);
  return kExitSuccess;
}

}  // namespace

Command addEncodeCommand(CLI::App& app, Interrupts& interrupts) {
  auto options = std::make_shared<EncodeOptions>();
  CLI::App* command = app.add_subcommand(
      "encode",
      "Encode frames (a directory of PNG or JPEG files, frame files, or a GIF) into an "
      "animated GIF, WebP or APNG, or an MP4 video");
  command
      ->add_option("input", options->inputs,
                   "A directory of frames (in name order), frame files, or a GIF")
      ->check(fileValue());
  command
      ->add_option("-o,--output", options->output,
                   "The file to write; its extension picks the format (.gif, .webp, .png, .mp4)")
      ->check(fileValue())
      ->required();
  command->add_option("--fps", options->fps, "Frames per second of the input frames")
      ->check(wholeNumberIn(1, 100))
      ->capture_default_str();
  command
      ->add_option("--max-width", options->maxWidth,
                   "Scale frames down to at most this width (0 keeps their size)")
      ->check(wholeNumberIn(0, 65535))
      ->capture_default_str();
  command->add_option("--loop", options->loop, "Number of plays; 0 repeats forever")
      ->check(wholeNumberIn(0, 65535))
      ->capture_default_str();
  command
      ->add_option("--palette", options->palette,
                   "auto (shared where faithful), global or perFrame")
      ->check(valuesFrom({"auto", "global", "perFrame"}))
      ->capture_default_str();
  command
      ->add_option("--palette-builder", options->paletteBuilder,
                   "histogram (every pixel of sampled frames) or median-cut (500 samples per "
                   "sampled frame)")
      ->check(valuesFrom({"histogram", "median-cut"}))
      ->capture_default_str();
  command->add_flag("--frame-diffing,!--no-frame-diffing", options->frameDiffing,
                    "Store only the pixels that changed (GIF; default on)");
  command->add_flag("--dedup,!--no-dedup", options->dedup,
                    "Merge repeated frames into longer ones (default on)");
  command
      ->add_option("--dedup-rule", options->dedupRule,
                   "every-pixel: any visible change is kept; sampled: about 100 pixels "
                   "compared, small changes merged away")
      ->check(valuesFrom({"every-pixel", "sampled"}))
      ->capture_default_str();
  command->add_option("--format", options->format, "gif, webp, apng or mp4 (default: from -o)")
      ->check(valuesFrom({"gif", "webp", "apng", "mp4"}));
  addVideoOptions(*command, options->video);
  command
      ->add_option("--webp-mode", options->webpMode,
                   "lossless (exact, smallest for screen content), lossy, or mixed (each frame "
                   "lossy or lossless, whichever is smaller)")
      ->check(valuesFrom({"lossless", "lossy", "mixed"}))
      ->capture_default_str();
  command
      ->add_option("--webp-quality", options->webpQuality,
                   "WebP quality of lossy frames, compression effort of lossless ones (0 to 100)")
      ->check(CLI::Range(0, 100))
      ->capture_default_str();
  command
      ->add_option("--max-size", options->maxSizeKB,
                   "Keep the file within this many KB: re-encode with fewer colours, then a "
                   "smaller width, then fewer frames until it fits (0: no limit)")
      ->check(wholeNumberIn(0, 1 << 22))
      ->capture_default_str();
  command->add_flag("--skip-bad-frames", options->skipBadFrames,
                    "Leave out frames that cannot be decoded, with a warning for each (default: "
                    "such a frame is an error)");
  command->add_flag("--test-pattern", options->testPattern,
                    "Encode a synthetic screen recording instead of input frames");
  command->add_option("--frames", options->frames, "Number of test-pattern frames")
      ->check(wholeNumberIn(1, 100000))
      ->capture_default_str();
  command->add_option("--size", options->size, "Test-pattern size as WIDTHxHEIGHT")
      ->capture_default_str();
  return {command, [options, &interrupts] {
            try {
              return runEncode(*options, interrupts);
            } catch (const CommandFailure& failure) {
              return failure.exitCode;
            } catch (const CancellationError&) {
              fmt::print(stderr, "brimble encode: interrupted; nothing was written\n");
              return Interrupts::kExitInterrupted;
            }
          }};
}

}  // namespace brimble::cli
