#include "cli/EncodeCommand.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/Encoding/ByteSink.h"
#include "BrimbleCore/Encoding/GIFMuxer.h"
#include "BrimbleCore/Encoding/TestPattern.h"
#include "cli/ProgressBar.h"

namespace brimble::cli {
namespace {

struct EncodeOptions {
  bool testPattern = false;
  std::filesystem::path output;
  int frames = 90;
  std::string size = "800x500";
  int fps = 30;
  int loop = 0;
};

struct Size {
  int width;
  int height;
};

std::optional<Size> parseSize(const std::string& text) {
  const auto x = text.find('x');
  if (x == std::string::npos) {
    return std::nullopt;
  }
  try {
    std::size_t used = 0;
    const int width = std::stoi(text.substr(0, x), &used);
    if (used != x) {
      return std::nullopt;
    }
    const std::string rest = text.substr(x + 1);
    const int height = std::stoi(rest, &used);
    if (used != rest.size() || width < 1 || height < 1 || width > 65535 || height > 65535) {
      return std::nullopt;
    }
    return Size{width, height};
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

/// The file is written beside its destination and renamed over it only when complete, so a
/// failed or interrupted encode never destroys an existing file of the user's.
std::filesystem::path partialPath(const std::filesystem::path& output) {
  return output.parent_path() / ("." + output.filename().string() + ".brimble-partial");
}

int runEncode(const EncodeOptions& options) {
  if (!options.testPattern) {
    fmt::print(stderr, "brimble encode: no input: pass --test-pattern\n");
    return kExitUsage;
  }
  const auto size = parseSize(options.size);
  if (!size) {
    fmt::print(stderr,
               "brimble encode: --size must be WIDTHxHEIGHT, each 1 to 65535 (got \"{}\")\n",
               options.size);
    return kExitUsage;
  }

  const auto started = std::chrono::steady_clock::now();
  const std::filesystem::path partial = partialPath(options.output);
  ProgressBar progress;
  try {
    auto sink = std::make_unique<FileByteSink>(partial);
    FileByteSink* file = sink.get();
    try {
      GIFMuxer muxer(std::move(sink), options.loop, /*frameDiffing=*/true);
      for (int i = 0; i < options.frames; ++i) {
        muxer.append(testPatternFrame(i, options.frames, size->width, size->height),
                     1.0 / options.fps);
        progress.update("encode", i + 1, options.frames);
      }
      muxer.finish();
    } catch (...) {
      file->discard();
      throw;
    }
    std::filesystem::rename(partial, options.output);
  } catch (const std::exception& error) {
    progress.finish();
    fmt::print(stderr, "brimble encode: {}\n", error.what());
    return kExitFailure;
  }
  progress.finish();

  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  fmt::print("{}: {} bytes, {} frames, {}x{}, {:.2f} s\n", options.output.string(),
             std::filesystem::file_size(options.output), options.frames, size->width, size->height,
             seconds);
  return kExitSuccess;
}

}  // namespace

Command addEncodeCommand(CLI::App& app) {
  auto options = std::make_shared<EncodeOptions>();
  CLI::App* command = app.add_subcommand("encode", "Encode frames into an animated GIF");
  command->add_flag("--test-pattern", options->testPattern,
                    "Encode a synthetic screen recording instead of input frames");
  command->add_option("-o,--output", options->output, "The file to write")->required();
  command->add_option("--frames", options->frames, "Number of test-pattern frames")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  command->add_option("--size", options->size, "Test-pattern size as WIDTHxHEIGHT")
      ->capture_default_str();
  command->add_option("--fps", options->fps, "Frames per second")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
  command->add_option("--loop", options->loop, "Number of plays; 0 repeats forever")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  return {command, [options] { return runEncode(*options); }};
}

}  // namespace brimble::cli
