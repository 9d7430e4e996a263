// The render family: completed recordings through the render path into animation files, and
// existing GIFs re-encoded.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <span>
#include <string>

#include <fmt/format.h>

#include "BrimbleCore/Effects/IdleTrimmer.h"
#include "BrimbleCore/Effects/SegmentRenderer.h"
#include "BrimbleCore/Encoding/ClipEditor.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/GIFDecoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/MCP/MCPToolSupport.h"
#include "BrimbleCore/MCP/MCPTools.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble::mcp {
namespace {

namespace fs = std::filesystem;

constexpr int kDefaultMaxWidth = 800;
constexpr double kDefaultIdleThreshold = 2.0;

OutputFormat formatArgument(const Arguments& arguments) {
  const std::string text = arguments.string("format").value_or("gif");
  const auto format = outputFormatFromRawValue(text);
  if (!format) {
    fail("format must be one of: gif, webp, apng, mp4 (got '" + text + "')");
  }
  return *format;
}

PaletteStrategy paletteArgument(const Arguments& arguments) {
  const std::string text = arguments.string("palette_strategy").value_or("auto");
  const auto palette = paletteStrategyFromArgument(text);
  if (!palette) {
    fail("palette_strategy must be one of: auto, global, perFrame (got '" + text + "')");
  }
  return *palette;
}

std::optional<IdleStrategy> idleArgument(const Arguments& arguments) {
  const auto text = arguments.string("idle_strategy");
  if (!text) {
    return std::nullopt;
  }
  if (*text == "cut") {
    return IdleStrategy::cut;
  }
  if (*text == "ramp") {
    return IdleStrategy::ramp;
  }
  if (*text == "fade") {
    return IdleStrategy::fade;
  }
  fail("idle_strategy must be one of: cut, ramp, fade (got '" + *text + "')");
}

double idleThreshold(const Arguments& arguments) {
  const double threshold = arguments.number("idle_threshold").value_or(kDefaultIdleThreshold);
  if (!(threshold > 0 && threshold <= 3600)) {
    fail("idle_threshold must be greater than 0 (got " + numberText(threshold) + ")");
  }
  return threshold;
}

int maxWidth(const Arguments& arguments, int fallback) {
  if (!arguments.has("max_width")) {
    return fallback;
  }
  const auto width = arguments.integer("max_width");
  if (!width || *width <= 0) {
    fail("max_width must be greater than 0");
  }
  return *width;
}

/// The file's size in bytes; 0 when it cannot be read.
std::uintmax_t fileSize(const fs::path& path) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  return error ? 0 : size;
}

std::string dimensionsOf(int width, int height) {
  return width > 0 && height > 0 ? fmt::format("{}x{}", width, height) : "unknown";
}

/// The same rule as the command line's: a new file or a replaced animation, never a device, a
/// pipe, a link's target or a file that is no output, in a folder that exists and is writable.
void requireWritable(const fs::path& output, OutputFormat format) {
  try {
    checkAnimationOutput(std::string(rawValue(format)), output, false);
  } catch (const OutputPathError& error) {
    fail(error.what());
  }
}

RenderSettings renderSettings(const Arguments& arguments, const CompletedRecording& recording) {
  RenderSettings settings;
  settings.format = formatArgument(arguments);
  settings.fps = recording.fps;
  settings.maxWidth = maxWidth(arguments, kDefaultMaxWidth);
  const int loopCount = arguments.integer("loop_count").value_or(0);
  if (loopCount < 0) {
    fail("loop_count must be >= 0 (0 = infinite)");
  }
  settings.loopCount = loopCount;
  settings.paletteStrategy = paletteArgument(arguments);
  settings.frameDiffing = arguments.boolean("frame_diffing").value_or(false);
  settings.transition = 0;
  const JSONValue& transforms = arguments["transforms"];
  const Arguments transform(transforms);
  // Every frame is kept unless asked: an assistant's recording may hold deliberate pauses.
  settings.deduplicate = transform.boolean("deduplicate_frames").value_or(false);
  settings.cursorSmoothing = transform.boolean("cursor_smoothing").value_or(false);
  settings.clickIndicators = transform.boolean("click_indicators").value_or(false);
  settings.keystrokeBadges = transform.boolean("keystroke_badges").value_or(false);
  settings.typeSmoothing = transform.boolean("type_smoothing").value_or(false);
  settings.includeTitleBar = transform.boolean("include_title_bar").value_or(true);
  if (transform.boolean("faux_title_bar").value_or(false)) {
    settings.fauxTitleBar = transform.string("faux_title_bar_title")
                                .value_or(recording.window ? recording.window->title : "");
  }
  settings.idleStrategy = idleArgument(transform);
  settings.idleThreshold = idleThreshold(transform);
  return settings;
}

/// Encoder progress as the call's progress.
EncodeProgress progressOf(MCPCallContext& call) {
  return [&call](RenderPhase phase, int done, int total) {
    call.reportProgress(done, total,
                        phase == RenderPhase::palette ? "Choosing palettes" : "Encoding frames");
  };
}

MCPToolResult renderGIF(SessionContext& context, MCPCallContext& call, const Arguments& arguments) {
  const std::string id = sessionID(arguments);
  switch (context.state(id)) {
    case SessionContext::RecordingStatus::active:
      fail("Recording '" + id +
           "' is still recording. Stop it first with stop_recording (or let its duration "
           "elapse), then render_gif.");
    case SessionContext::RecordingStatus::released:
      fail("Recording '" + id +
           "' was captured but its frames have been released - discarded via discard_recording, "
           "or evicted after 3 newer captures took its place. Re-record to render it again.");
    case SessionContext::RecordingStatus::unknown:
      fail("No recording with session ID '" + id +
           "'. It may never have existed or the session was torn down.");
    case SessionContext::RecordingStatus::completed:
      break;
  }
  // A render is a use: the recording moves to the most recently used end.
  const auto peek = context.getCompletedRecording(id);
  if (!peek) {
    fail("No recording with session ID '" + id +
         "'. It may never have existed or the session was torn down.");
  }
  const RenderSettings settings = renderSettings(arguments, *peek);
  const fs::path output = fs::absolute(arguments.string("output").value_or(
      "recording-" + id + "." + std::string(fileExtension(settings.format))));
  requireWritable(output, settings.format);
  const RenderSegment& segment = *peek->segment;
  EncodeSummary summary;
  try {
    summary = SegmentRenderer::render(std::span<const RenderSegment>(&segment, 1), settings, output,
                                      progressOf(call), call.stop());
  } catch (const CancellationError&) {
    fail("Rendering cancelled; nothing was written");
  } catch (const std::system_error& error) {
    fail("Failed to write " + output.string() + ": " + error.what());
  } catch (const std::exception& error) {
    fail(std::string("Encoding failed: ") + error.what());
  }
  if (summary.frames == 0) {
    fail("Encoding failed: the recording holds no frames");
  }
  const std::uintmax_t size = fileSize(output);
  const std::string dimensions = dimensionsOf(summary.width, summary.height);
  context.addRecentOutput({output, size, dimensions, isoDateNow()});
  const bool release = arguments.boolean("release").value_or(false);
  // What the assistant sees is what it rendered: effects drawn, scaled like the file.
  std::optional<Image> still;
  try {
    still = SegmentRenderer::lastFrame(std::span<const RenderSegment>(&segment, 1), settings);
  } catch (const std::exception&) {
    // The file is written; a picture of it is a courtesy.
  }
  if (release) {
    context.removeCompletedRecording(id);
  }
  JSONValue result = JSONValue::Object{{"path", output.string()},
                                       {"size_mb", megabytes(size)},
                                       {"dimensions", dimensions},
                                       {"frames", summary.frames},
                                       {"retained", !release}};
  if (!still) {
    return result;
  }
  return MCPToolResult(std::move(result), {imageContent(*still)});
}

JSONValue processGIF(SessionContext& context, MCPCallContext& call, const Arguments& arguments) {
  const auto input = arguments.string("input");
  if (!input || input->empty()) {
    fail("'input' parameter is required");
  }
  const OutputFormat format = formatArgument(arguments);
  const PaletteStrategy palette = paletteArgument(arguments);
  const double speed = arguments.number("speed").value_or(1);
  if (!(speed >= 0.01 && speed <= 100)) {
    fail("speed must be between 0.01 and 100 (got " + numberText(speed) + ")");
  }
  const int width = maxWidth(arguments, 0);
  const auto idle = idleArgument(arguments);
  const double threshold = idleThreshold(arguments);
  const fs::path inputPath = fs::absolute(*input);
  fs::path output;
  if (const auto given = arguments.string("output")) {
    output = fs::absolute(*given);
  } else {
    // Beside the input, as `brimble process` writes: the original is the user's, and a clip that
    // lost frames to idle trimming cannot be had back from the result.
    output = inputPath;
    output.replace_extension(std::string(".processed.") + std::string(fileExtension(format)));
  }
  requireWritable(output, format);
  int loopCount = 0;
  try {
    // What the file must say before the first frame is written; its frames are read later, one
    // at a time.
    const GIFDecoder outline(inputPath);
    if (outline.frameCount() == 0) {
      fail("Failed to decode GIF: " + inputPath.string() + " holds no frames");
    }
    loopCount = outline.loopCount();
  } catch (const ImageCodecError& error) {
    fail(std::string("Failed to decode GIF: ") + error.what());
  }
  ClipEdit edit;
  edit.speed = speed;
  edit.maxWidth = width;
  edit.deduplicate = arguments.boolean("deduplicate_frames").value_or(false);
  if (idle) {
    edit.idle = [strategy = *idle, threshold](std::span<const ProcessedFrame> clip) {
      return IdleTrimmer::apply(clip, strategy, threshold);
    };
    edit.idleThreshold = threshold;
  }
  const FrameStreamSource frames = [&] {
    return ClipEditor::stream(std::make_unique<GIFDecoder>(inputPath), edit, call.stop());
  };
  EncodeSummary summary;
  try {
    // Written beside the destination and renamed over it, so processing in place is safe.
    summary = ClipEncoder::encodeStream(
        frames, output,
        {.loopCount = loopCount,
         .frameDiffing = arguments.boolean("frame_diffing").value_or(false),
         .format = format,
         .progress = progressOf(call),
         .stop = call.stop(),
         .tuning = {.paletteStrategy = palette}});
  } catch (const CancellationError&) {
    fail("Processing cancelled; nothing was written");
  } catch (const ImageCodecError& error) {
    fail(std::string("Failed to decode GIF: ") + error.what());
  } catch (const ClipEditError& error) {
    fail(error.what());
  } catch (const std::system_error& error) {
    fail("Failed to write " + output.string() + ": " + error.what());
  } catch (const std::exception& error) {
    fail(std::string("Re-encoding failed: ") + error.what());
  }
  const std::uintmax_t size = fileSize(output);
  const std::string dimensions = dimensionsOf(summary.width, summary.height);
  context.addRecentOutput({output, size, dimensions, isoDateNow()});
  return JSONValue::Object{{"path", output.string()},
                           {"size_mb", megabytes(size)},
                           {"dimensions", dimensions},
                           {"frames", summary.frames}};
}

JSONValue discardRecording(SessionContext& context, const Arguments& arguments) {
  const std::string id = sessionID(arguments);
  switch (context.state(id)) {
    case SessionContext::RecordingStatus::active:
      fail("Recording '" + id +
           "' is still recording. Stop it with stop_recording before discarding.");
    case SessionContext::RecordingStatus::unknown:
      fail("No recording with session ID '" + id + "' to discard.");
    case SessionContext::RecordingStatus::released:
      return JSONValue::Object{
          {"session_id", id}, {"discarded", true}, {"note", "Frames were already released."}};
    case SessionContext::RecordingStatus::completed:
      break;
  }
  if (!context.removeCompletedRecording(id)) {
    // Evicted between the two looks: released all the same.
    return JSONValue::Object{
        {"session_id", id}, {"discarded", true}, {"note", "Frames were already released."}};
  }
  return JSONValue::Object{{"session_id", id}, {"discarded", true}};
}

JSONValue formatSchema() {
  return property("string", "Output format: gif, webp, apng, or mp4 (default: gif)");
}
JSONValue paletteSchema() {
  return property("string", "Color palette: auto, global, perFrame (default: auto)");
}
JSONValue diffingSchema() {
  return property("boolean",
                  "Skip encoding unchanged pixels between frames to reduce file size (default: "
                  "false)");
}

}  // namespace

void registerRenderTools(const ToolEnvironment& environment) {
  MCPServer& server = environment.server;
  SessionContext& context = environment.context;
  const JSONValue transforms = JSONValue::Object{
      {"type", "object"},
      {"description", "Frame transforms to apply"},
      {"properties",
       JSONValue::Object{
           {"cursor_smoothing", JSONValue::Object{{"type", "boolean"}}},
           {"click_indicators", JSONValue::Object{{"type", "boolean"}}},
           {"keystroke_badges", JSONValue::Object{{"type", "boolean"}}},
           {"type_smoothing", JSONValue::Object{{"type", "boolean"}}},
           {"include_title_bar",
            property("boolean", "Keep the real title bar (default: true); set false to crop it")},
           {"faux_title_bar", property("boolean",
                                       "Paint a clean synthetic title bar over the "
                                       "window (default: false)")},
           {"faux_title_bar_title", property("string", "Title text for faux_title_bar")},
           {"idle_strategy", property("string", "cut, ramp, or fade")},
           {"idle_threshold", property("number", "Seconds before idle handling (default: 2.0)")},
           {"deduplicate_frames",
            property("boolean",
                     "Merge consecutive near-identical frames to shrink the file, "
                     "preserving duration (default: false — every frame is kept)")},
       }},
  };
  server.registerTool(
      {"render_gif",
       "Render a completed recording session to a GIF file with optional transforms (cursor "
       "smoothing, click indicators, etc.). The capture is retained afterwards so you can "
       "re-render it at different settings; free it with release:true or discard_recording, or "
       "let it be evicted once newer captures exceed the retention cap.",
       objectSchema(
           {{"session_id", property("string", "Session ID from stop_recording")},
            {"output", property("string", "Output file path (default: recording-{id}.gif)")},
            {"max_width", property("integer", "Maximum GIF width in pixels (default: 800)")},
            {"loop_count", property("integer", "Loop count (0=infinite, default: 0)")},
            {"palette_strategy", paletteSchema()},
            {"frame_diffing", diffingSchema()},
            {"format", formatSchema()},
            {"release", property("boolean",
                                 "Free the capture's frames after this render "
                                 "instead of retaining it for re-rendering (default: "
                                 "false)")},
            {"transforms", transforms}},
           {"session_id"})},
      [&context, &server](const JSONValue& arguments) {
        return renderGIF(context, server.currentCall(), Arguments(arguments));
      });
  server.registerTool(
      {"process_gif",
       "Post-process an existing GIF file (resize, speed adjustment, idle handling).",
       objectSchema(
           {{"input", property("string", "Input GIF file path")},
            {"output",
             property("string", "Output path (default: INPUT.processed.gif beside the input)")},
            {"max_width", property("integer", "Resize to max width")},
            {"speed", property("number",
                               "Speed multiplier (1.5 = 50% faster, 0.5 = 50% "
                               "slower)")},
            {"idle_strategy", property("string", "Idle handling: cut, ramp, fade")},
            {"idle_threshold", property("number", "Idle threshold in seconds (default: 2.0)")},
            {"palette_strategy", paletteSchema()},
            {"frame_diffing", diffingSchema()},
            {"format", formatSchema()},
            {"deduplicate_frames",
             property("boolean",
                      "Merge consecutive near-identical frames to shrink the file, "
                      "preserving duration (default: false)")}},
           {"input"})},
      [&context, &server](const JSONValue& arguments) {
        return processGIF(context, server.currentCall(), Arguments(arguments));
      });
  server.registerTool(
      {"discard_recording",
       "Release a completed recording's frames to free memory when you are done rendering it. "
       "Idempotent: discarding an already-released capture succeeds.",
       objectSchema({{"session_id", property("string",
                                             "Session ID of the completed recording "
                                             "to discard")}},
                    {"session_id"})},
      [&context](const JSONValue& arguments) {
        return discardRecording(context, Arguments(arguments));
      });
}

}  // namespace brimble::mcp
