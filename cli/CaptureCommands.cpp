#include "cli/CaptureCommands.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Capture/AudioError.h"
#include "BrimbleCore/Capture/AudioRecorder.h"
#include "BrimbleCore/Capture/PrivateSoundServer.h"
#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Capture/ScreenSegmentRecorder.h"
#include "BrimbleCore/Effects/EffectColor.h"
#include "BrimbleCore/Effects/SegmentRenderer.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Encoding/RecordingEncoder.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Clock.h"
#include "BrimbleCore/Support/XID.h"
#include "cli/AnimationOutput.h"
#include "cli/CommandDesktop.h"
#include "cli/CommandFailure.h"
#include "cli/OptionChecks.h"
#include "cli/OptionValues.h"
#include "cli/ProgressBar.h"

namespace brimble::cli {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kMaxRegionSide = 7680;
// A day: longer is a mistake, and past about 292 years the clock arithmetic overflows.
constexpr double kMaxRecordSeconds = 24 * 60 * 60;

struct CaptureOptions {
  std::string region;
  std::string display;  // "" with --display alone: the display under the pointer
  std::string window;
  std::string app;
  bool headless = false;
  fs::path output;
  // record only
  double duration = 0;
  int fps = 30;
  bool noCursor = false;
  // record only: effects drawn onto the recording
  bool cursorSmoothing = false;
  bool clickIndicators = false;
  bool keystrokeBadges = false;
  std::string idleStrategy;
  double idleThreshold = 2.0;
  std::string background;
  VideoOptions video;
  // record only: sound, for MP4
  bool audio = false;
  std::string audioSource;
  std::string audioServer;
  bool privateSoundServer = false;
  // which target options were given
  CLI::Option* regionOption = nullptr;
  CLI::Option* displayOption = nullptr;
  CLI::Option* windowOption = nullptr;
  CLI::Option* appOption = nullptr;
};

/// What the command line asked to capture, found on the screen.
struct Target {
  enum class Kind { region, display, window };
  Kind kind = Kind::display;
  ScreenRect region;
  ScreenDisplay display;  // region and display
  ScreenWindow window;
  std::string description;

  CaptureTarget captureTarget() const {
    switch (kind) {
      case Kind::region:
        return CaptureTarget::screenAreaOf(region.intersection(display.frame));
      case Kind::display:
        return CaptureTarget::screenAreaOf(display.frame);
      case Kind::window:
        break;
    }
    return CaptureTarget::windowOf(window.windowID);
  }
};

void checkOneTarget(const char* command, const CaptureOptions& options) {
  const int given = static_cast<int>(options.regionOption->count() > 0) +
                    static_cast<int>(options.displayOption->count() > 0) +
                    static_cast<int>(options.windowOption->count() > 0) +
                    static_cast<int>(options.appOption->count() > 0);
  if (given != 1) {
    failCommand(command, kExitUsage, "give exactly one of --region, --display, --window or --app");
  }
}

ScreenRect parseRegion(const char* command, const std::string& text) {
  ScreenRect rect;
  int* fields[4] = {&rect.x, &rect.y, &rect.width, &rect.height};
  std::size_t position = 0;
  try {
    for (int i = 0; i < 4; ++i) {
      std::size_t used = 0;
      *fields[i] = std::stoi(text.substr(position), &used);
      position += used;
      if (i < 3) {
        if (position >= text.size() || text[position] != ',') {
          throw std::invalid_argument("comma");
        }
        ++position;
      }
    }
  } catch (const std::exception&) {
    failCommand(command, kExitUsage, "--region must be X,Y,WIDTH,HEIGHT in pixels (got \"{}\")",
                text);
  }
  if (position != text.size() || rect.width < 1 || rect.height < 1) {
    failCommand(command, kExitUsage,
                "--region must be X,Y,WIDTH,HEIGHT with a positive size (got \"{}\")", text);
  }
  if (rect.width > kMaxRegionSide || rect.height > kMaxRegionSide) {
    failCommand(command, kExitUsage,
                "Region dimensions must not exceed 7680 pixels per axis (got {}\u00d7{})",
                rect.width, rect.height);
  }
  return rect;
}

std::string describe(const ScreenDisplay& display) {
  return fmt::format("{} ({}x{} at {},{})", formatXID(display.displayID), display.frame.width,
                     display.frame.height, display.frame.x, display.frame.y);
}

/// `--display N`: the display whose id is N, else the N-th (from 0); without N the display under
/// the pointer, else the primary one, else the first.
ScreenDisplay chooseDisplay(const char* command, const std::string& wanted, ScreenSource& source) {
  const std::vector<ScreenDisplay> displays = source.displays();
  if (wanted.empty()) {
    if (const auto pointer = source.pointerPosition()) {
      if (const auto under = displayHolding({pointer->first, pointer->second, 1, 1}, displays)) {
        return *under;
      }
    }
    const auto primary = std::find_if(displays.begin(), displays.end(),
                                      [](const ScreenDisplay& display) { return display.primary; });
    return primary != displays.end() ? *primary : displays.front();
  }
  if (const std::optional<std::uint32_t> number = parseXID(wanted)) {
    for (const ScreenDisplay& display : displays) {
      if (display.displayID == *number) {
        return display;
      }
    }
    if (*number < displays.size()) {
      return displays[*number];
    }
  }
  std::vector<std::string> known;
  for (const ScreenDisplay& display : displays) {
    known.push_back(describe(display));
  }
  failCommand(command, kExitFailure, "no display \"{}\"; the displays are {}", wanted,
              fmt::join(known, ", "));
}

/// Where the desktop's own dialog picks the window (Wayland), which one to pick there.
void tellWhichWindowToPick(const char* command, const WindowInfo& window) {
  fmt::print(stderr, "brimble {}: if the desktop asks which window to share, pick \"{}\"{}\n",
             command, window.title,
             window.appName.empty() ? std::string() : fmt::format(" ({})", window.appName));
}

Target resolveTarget(const char* command, const CaptureOptions& options, Desktop& desktop) {
  ScreenSource& source = desktop.screen();
  Target target;
  if (options.regionOption->count() > 0) {
    target.kind = Target::Kind::region;
    target.region = parseRegion(command, options.region);
    const std::optional<ScreenDisplay> display = displayHolding(target.region, source.displays());
    if (!display) {
      throw RecordingError::noDisplay();
    }
    target.display = *display;
    target.description = fmt::format("region {},{} {}x{}", target.region.x, target.region.y,
                                     target.region.width, target.region.height);
  } else if (options.displayOption->count() > 0) {
    target.kind = Target::Kind::display;
    target.display = chooseDisplay(command, options.display, source);
    target.description = "display " + describe(target.display);
  } else {
    target.kind = Target::Kind::window;
    std::optional<ScreenWindow> window;
    if (options.windowOption->count() > 0) {
      const std::uint32_t id = parseXID(options.window).value();  // checked by the parser
      if (source.userPicksWindows()) {
        const std::optional<WindowInfo> info = desktop.windows().find(id);
        if (!info) {
          throw ScreenCaptureError::windowNotFound(id);
        }
        tellWhichWindowToPick(command, *info);
      }
      window = source.window(id);
      if (!window) {
        throw ScreenCaptureError::windowNotFound(id);
      }
    } else {
      // The same lookup scripts use: the alias table, an exact name before a partial one.
      const auto match = desktop.windows().find(std::string_view(options.app));
      if (match && source.userPicksWindows()) {
        tellWhichWindowToPick(command, match->window);
      }
      window = match ? source.window(match->window.id) : std::nullopt;
      if (!window) {
        failCommand(command, kExitFailure, "no window of an application named \"{}\"", options.app);
      }
    }
    target.window = *window;
    target.description = fmt::format("window {} ({}x{})", formatXID(window->windowID),
                                     window->frame.width, window->frame.height);
  }
  return target;
}

void addTargetOptions(CLI::App& command, CaptureOptions& options) {
  options.regionOption =
      command.add_option("--region", options.region, "A region of the screen, in pixels")
          ->type_name("X,Y,W,H");
  options.displayOption =
      command
          .add_option("--display", options.display,
                      "A whole display: N is its id (the RandR output) or its number from 0; "
                      "without N, the display under the pointer")
          ->expected(0, 1)
          ->type_name("[N]");
  options.windowOption =
      command
          .add_option("--window", options.window,
                      "A window by its X id (0x... or decimal), even where others cover it")
          ->check(windowID())
          ->type_name("ID");
  options.appOption =
      command
          .add_option("--app", options.app,
                      "The topmost window of the application whose WM_CLASS class names NAME")
          ->type_name("NAME");
  command.add_flag("--headless", options.headless,
                   "Use Brimble's own embedded display instead of the desktop session");
}

bool wantsEffects(const CaptureOptions& options) {
  return options.cursorSmoothing || options.clickIndicators || options.keystrokeBadges ||
         !options.idleStrategy.empty() || !options.background.empty();
}

/// The effects the switches ask for; exits with a usage error for values they cannot take.
RenderSettings effectSettings(const CaptureOptions& options) {
  const char* command = "record";
  RenderSettings settings;
  settings.fps = options.fps;
  settings.maxWidth = 0;  // the size recorded, as without effects
  settings.transition = 0;
  settings.showCursor = !options.noCursor;
  settings.cursorSmoothing = options.cursorSmoothing;
  settings.clickIndicators = options.clickIndicators;
  settings.keystrokeBadges = options.keystrokeBadges;
  settings.idleThreshold = options.idleThreshold;
  settings.paletteStrategy = PaletteStrategy::automatic;
  if (!options.idleStrategy.empty()) {
    settings.idleStrategy = idleStrategyFromArgument(options.idleStrategy);
    if (!settings.idleStrategy) {
      failCommand(command, kExitUsage, "unknown idle strategy \"{}\" (use cut, ramp or fade)",
                  options.idleStrategy);
    }
  }
  if (!options.background.empty() && !EffectColor::parse(options.background)) {
    failCommand(command, kExitUsage,
                "--background must be a hex colour such as #1a1a2e (got \"{}\")",
                options.background);
  }
  settings.background = options.background;
  return settings;
}

bool wantsAudio(const CaptureOptions& options) {
  return options.audio || !options.audioSource.empty() || !options.audioServer.empty() ||
         options.privateSoundServer;
}

/// Sound beside a recording: a private server when asked for, and the recorder connected to
/// it or to the session's. Connected before the frames start, so a missing server is reported
/// before anything is recorded.
struct SoundCapture {
  std::optional<PrivateSoundServer> server;
  std::optional<AudioRecorder> recorder;
};

/// Where the sound comes from, starting the private server when asked; none without sound.
std::optional<AudioSource> soundSource(const CaptureOptions& options, SoundCapture& sound) {
  if (!wantsAudio(options)) {
    return std::nullopt;
  }
  AudioSource from{options.audioServer, options.audioSource};
  if (options.privateSoundServer) {
    try {
      sound.server.emplace();
    } catch (const AudioError& error) {
      failCommand("record", kExitFailure, "{}", error.what());
    }
    from.server = sound.server->address();
    fmt::print(stderr,
               "brimble record: private sound server; programs play into it with "
               "PULSE_SERVER={}\n",
               from.server);
  }
  return from;
}

void startSound(const CaptureOptions& options, SoundCapture& sound) {
  const auto from = soundSource(options, sound);
  if (!from) {
    return;
  }
  try {
    sound.recorder.emplace(*from, steadyClock());
  } catch (const AudioError& error) {
    failCommand("record", kExitFailure, "{}", error.what());
  }
}

/// The recorded sound, timed from `videoStart`; none without sound.
std::optional<AudioTrack> stopSound(SoundCapture& sound, Clock::time_point videoStart) {
  if (!sound.recorder) {
    return std::nullopt;
  }
  try {
    return sound.recorder->stop(videoStart);
  } catch (const AudioError& error) {
    failCommand("record", kExitFailure, "{}; nothing was written", error.what());
  }
}

/// A recording with effects: frames without the pointer, the pointer's track and the input
/// beside them, then the effects pass into the encoder.
int runRecordWithEffects(const CaptureOptions& options, Interrupts& interrupts, Desktop& desktop,
                         const Target& target, OutputFormat format, const std::stop_token& stop) {
  const char* command = "record";
  RenderSettings settings = effectSettings(options);
  settings.format = format;
  settings.video = options.video;
  SoundCapture sound;
  const std::optional<AudioSource> from = soundSource(options, sound);
  const std::unique_ptr<SegmentRecorder> recorder = desktop.makeSegmentRecorder();
  try {
    recorder->start({target.captureTarget(), options.fps, !options.noCursor, from});
  } catch (const AudioError& error) {
    failCommand(command, kExitFailure, "{}", error.what());
  }
  const auto started = Clock::now();
  fmt::print(stderr, "brimble record: recording {} with effects, {} fps; {}\n", target.description,
             options.fps,
             options.duration > 0 ? fmt::format("{} s or Ctrl-C", options.duration)
                                  : std::string("Ctrl-C stops"));
  const auto deadline = started + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(options.duration));
  while (!stop.stop_requested() && !recorder->hasEnded()) {
    if (options.duration > 0 && Clock::now() >= deadline) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::vector<RenderSegment> segments;
  try {
    segments.push_back(RenderSegment{recorder->stop()});
  } catch (const AudioError& error) {
    failCommand(command, kExitFailure, "{}; nothing was written", error.what());
  }
  if (!segments[0].frames || segments[0].frames->count() == 0) {
    failCommand(command, stop.stop_requested() ? Interrupts::kExitInterrupted : kExitFailure,
                "no frame was recorded; nothing was written");
  }
  fmt::print(stderr, "brimble record: {} frames, {} input events in {:.1f} s; rendering\n",
             segments[0].frames->count(), segments[0].events.size(), segments[0].duration);
  const std::stop_token encodeStop = interrupts.watchAgain();
  const auto encodeStarted = Clock::now();
  ProgressBar bar;
  const EncodeSummary summary =
      SegmentRenderer::render(segments, settings, options.output, progressOn(bar), encodeStop);
  bar.finish();
  if (summary.frames == 0) {
    failCommand(command, kExitFailure, "no frame could be decoded; nothing was written");
  }
  printSummary(options.output, summary, encodeStarted);
  return kExitSuccess;
}

int runRecord(const CaptureOptions& options, Interrupts& interrupts) {
  const char* command = "record";
  const std::stop_token stop = interrupts.watch();
  checkOneTarget(command, options);
  const OutputFormat format = checkAnimationOutput("", options.output, false);
  if (wantsAudio(options) && !isVideo(format)) {
    failCommand(command, kExitUsage,
                "--audio records sound for MP4 output; {} carries no sound (write a .mp4 file)",
                label(format));
  }
  if (wantsAudio(options) && !options.idleStrategy.empty()) {
    failCommand(
        command, kExitUsage,
        "--audio cannot be used with --idle-strategy: cutting pauses would put the sound out of "
        "step");
  }
  ScreenRecorder::sweepOrphanedFrameFiles();
  const auto desktop = commandDesktop(options.headless);
  const Target target = resolveTarget(command, options, *desktop);
  if (wantsEffects(options)) {
    effectSettings(options);  // usage errors before anything is recorded
    return runRecordWithEffects(options, interrupts, *desktop, target, format, stop);
  }

  SoundCapture sound;
  startSound(options, sound);
  ScreenRecorder recorder(desktop->screen(), steadyClock());
  const bool showCursor = !options.noCursor;
  switch (target.kind) {
    case Target::Kind::region:
      recorder.start(target.region, target.display, options.fps, showCursor);
      break;
    case Target::Kind::display:
      recorder.start(target.display, options.fps, showCursor);
      break;
    case Target::Kind::window:
      recorder.start(target.window, options.fps, showCursor);
      break;
  }
  const auto started = Clock::now();
  const ImageSize size = recorder.outputSize();
  fmt::print(stderr, "brimble record: recording {} at {}x{}, {} fps; {}\n", target.description,
             size.width, size.height, options.fps,
             options.duration > 0 ? fmt::format("{} s or Ctrl-C", options.duration)
                                  : std::string("Ctrl-C stops"));
  const auto deadline = started + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(options.duration));
  while (!stop.stop_requested() && !recorder.hasStreamEnded()) {
    if (options.duration > 0 && Clock::now() >= deadline) {
      break;
    }
    if (recorder.isDiskCritical()) {
      fmt::print(
          stderr,
          "Recording stopped: your disk is almost full. Frames captured so far were kept.\n");
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const double recorded = std::chrono::duration<double>(Clock::now() - started).count();
  const std::shared_ptr<const CompressedFrameStore> store = recorder.stopAndCollectFrameStore();
  const std::optional<AudioTrack> audio = stopSound(sound, started);
  if (recorder.lostFrameCount() > 0) {
    fmt::print(stderr, "Some frames were lost while recording because the disk filled up.\n");
  }
  if (!store || store->count() == 0) {
    failCommand(command, stop.stop_requested() ? Interrupts::kExitInterrupted : kExitFailure,
                "no frame was recorded; nothing was written");
  }

  fmt::print(stderr, "brimble record: {} frames in {:.1f} s; encoding\n", store->count(), recorded);
  // Ctrl-C ended the recording; the next one cancels the encode, and only a third exits at once.
  SequenceOptions encoding{.fps = options.fps,
                           .format = format,
                           .stop = interrupts.watchAgain(),
                           .video = options.video};
  encoding.video.audio = audio;
  const auto encodeStarted = Clock::now();
  ProgressBar bar;
  encoding.progress = progressOn(bar);
  const EncodeSummary summary =
      RecordingEncoder::encode(store, recorded, options.output, std::move(encoding));
  bar.finish();
  if (summary.frames == 0) {
    failCommand(command, kExitFailure, "no frame could be decoded; nothing was written");
  }
  printSummary(options.output, summary, encodeStarted);
  return kExitSuccess;
}

int runStill(const CaptureOptions& options) {
  const char* command = "still";
  checkOneTarget(command, options);
  checkPNGOutput(options.output);
  const auto desktop = commandDesktop(options.headless);
  const Target target = resolveTarget(command, options, *desktop);
  const auto frame = desktop->screen().openStream(target.captureTarget(), false)->grab();
  if (!frame) {
    failCommand(command, kExitFailure, "{} is not on screen; nothing was written",
                target.description);
  }
  const std::vector<std::uint8_t> png = encodePNG(*frame);
  writeFileAtomically(options.output,
                      std::string_view(reinterpret_cast<const char*>(png.data()), png.size()),
                      0644);
  fmt::print("{}: {} bytes, {}x{}\n", options.output.string(), png.size(), frame->width(),
             frame->height());
  return kExitSuccess;
}

}  // namespace

Command addRecordCommand(CLI::App& app, Interrupts& interrupts) {
  auto options = std::make_shared<CaptureOptions>();
  CLI::App* command = app.add_subcommand(
      "record",
      "Record a region, a display or a window until the duration ends or Ctrl-C, then encode "
      "it into an animated GIF, WebP or APNG, or an MP4 video");
  addTargetOptions(*command, *options);
  command
      ->add_option("--duration", options->duration,
                   "Seconds to record, at most a day (default: until Ctrl-C)")
      ->check(secondsUpTo(kMaxRecordSeconds))
      ->type_name("S");
  command->add_option("--fps", options->fps, "Frames per second, 1 to 120")
      ->check(wholeNumberIn(1, 120))
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("--no-cursor", options->noCursor, "Leave the pointer out");
  command->add_flag("--cursor-smoothing", options->cursorSmoothing,
                    "Draw the pointer gliding along a smoothed path that meets every click");
  command->add_flag("--click-indicators", options->clickIndicators,
                    "Show a ripple at every click (right clicks in another colour)");
  command->add_flag("--keystroke-badges", options->keystrokeBadges,
                    "Show shortcuts and special keys (Ctrl+Shift+T, Enter, Esc) as key badges");
  command
      ->add_option("--idle-strategy", options->idleStrategy,
                   "Pauses without change or input: cut, ramp or fade (default: kept)")
      ->check(valuesFrom({"cut", "ramp", "fade"}))
      ->type_name("STRATEGY");
  command
      ->add_option("--idle-threshold", options->idleThreshold,
                   "Seconds without change or input that count as a pause")
      ->check(numberIn(0, 3600))
      ->type_name("S")
      ->capture_default_str();
  command
      ->add_option("--background", options->background,
                   "Set the recording on this colour (#rrggbb) with padding, rounded corners "
                   "and a soft shadow")
      ->type_name("COLOR");
  command
      ->add_option("-o,--output", options->output,
                   "The file to write; its extension picks the format (.gif, .webp, .png, .mp4)")
      ->check(fileValue())
      ->type_name("OUT")
      ->required();
  addVideoOptions(*command, options->video);
  command->add_flag("--audio", options->audio,
                    "MP4: record sound too, from what the desktop plays (the default output's "
                    "monitor)");
  command
      ->add_option("--audio-source", options->audioSource,
                   "MP4: record sound from this PulseAudio source instead (implies --audio)")
      ->type_name("NAME");
  command
      ->add_option("--audio-server", options->audioServer,
                   "MP4: the PulseAudio server to record from, e.g. unix:/run/user/1000/pulse/"
                   "native (implies --audio)")
      ->type_name("ADDRESS");
  command->add_flag("--private-sound-server", options->privateSoundServer,
                    "MP4: start a private PulseAudio server with a silent output and record "
                    "that, for sessions without sound (implies --audio)");
  return {command, [options, &interrupts] {
            try {
              return runRecord(*options, interrupts);
            } catch (const CommandFailure& failure) {
              return failure.exitCode;
            } catch (const CancellationError&) {
              fmt::print(stderr, "brimble record: interrupted; nothing was written\n");
              return Interrupts::kExitInterrupted;
            }
          }};
}

Command addStillCommand(CLI::App& app) {
  auto options = std::make_shared<CaptureOptions>();
  CLI::App* command =
      app.add_subcommand("still", "Capture a region, a display or a window once, as a PNG");
  addTargetOptions(*command, *options);
  command->add_option("-o,--output", options->output, "The PNG file to write")
      ->check(fileValue())
      ->type_name("OUT.png")
      ->required();
  return {command, [options] {
            try {
              return runStill(*options);
            } catch (const CommandFailure& failure) {
              return failure.exitCode;
            }
          }};
}

}  // namespace brimble::cli
