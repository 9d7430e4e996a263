// The recording family: recordings that run between tool calls, held by the SessionContext, and
// single stills.

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <string>

#include <fmt/format.h>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/MCP/MCPToolSupport.h"
#include "BrimbleCore/MCP/MCPTools.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble::mcp {
namespace {

namespace fs = std::filesystem;

constexpr int kMaxRegionSide = 7680;
// A day: longer is a mistake, and it keeps the deadline arithmetic far from overflow.
constexpr double kMaxDurationSeconds = 24 * 60 * 60;

int frameRate(const Arguments& arguments) {
  if (!arguments.has("fps")) {
    return 30;
  }
  const auto fps = arguments.number("fps");
  if (!fps || !(*fps >= 1 && *fps <= 120) || *fps != std::trunc(*fps)) {
    const std::string got =
        fps ? numberText(*fps) : arguments["fps"].encode(JSONValue::Style::compact);
    fail("fps must be between 1 and 120 (got " + got + ")");
  }
  return static_cast<int>(*fps);
}

std::optional<std::chrono::steady_clock::time_point> stopTime(const Arguments& arguments) {
  if (!arguments.has("duration")) {
    return std::nullopt;
  }
  const auto duration = arguments.number("duration");
  if (!duration || !(*duration > 0 && *duration <= kMaxDurationSeconds)) {
    fail("duration must be a number of seconds greater than 0 and at most 86400");
  }
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(
             std::chrono::duration<double>(*duration));
}

/// The window a call names by `window_id` or `app`; no value when it names neither.
std::optional<WindowMatch> resolveWindow(MCPDesktop& desktop, const Arguments& arguments) {
  if (arguments.has("window_id")) {
    const auto id = arguments.number("window_id");
    const std::string shown =
        id ? numberText(*id) : arguments["window_id"].encode(JSONValue::Style::compact);
    if (!id || *id < 0 || *id > 0xFFFFFFFF || *id != std::trunc(*id)) {
      fail("Window ID " + shown + " not found. Use list_windows to see available windows.");
    }
    const auto window = desktop.windows().find(static_cast<std::uint32_t>(*id));
    if (!window) {
      fail("Window ID " + shown + " not found. Use list_windows to see available windows.");
    }
    return WindowMatch{*window, 0};
  }
  if (const auto app = arguments.string("app")) {
    const auto match = desktop.windows().find(*app);
    if (!match) {
      fail("No window found for app '" + *app + "'. Use list_windows to see available windows.");
    }
    return match;
  }
  return std::nullopt;
}

/// Fails the call unless a window can be recorded. Where the desktop's own dialog picks the
/// window (Wayland), sharing it is the permission, and asking for the screen first would put a
/// second dialog before it.
void requireWindowCapture(MCPDesktop& desktop) {
  bool userPicks = false;
  try {
    userPicks = desktop.screen().userPicksWindows();
  } catch (const std::exception&) {
    // requireScreen says what is missing.
  }
  if (!userPicks) {
    requireScreen(desktop);
  }
}

/// What a result says where the desktop's own dialog picks the window (Wayland).
std::string windowPickNote(const WindowInfo& window) {
  return "This desktop shares a window as the user picks it in its own dialog (asked once, then "
         "remembered while the window lives): what is recorded is the window picked there for \"" +
         window.title + "\".";
}

/// {x, y, w, h} of an object argument; no value when a field is missing or not a number.
std::optional<ScreenRect> rectArgument(const JSONValue& value) {
  const auto x = value["x"].numberValue();
  const auto y = value["y"].numberValue();
  // record_region spells the size out; a region here may too.
  const auto w = value["w"].isNull() ? value["width"].numberValue() : value["w"].numberValue();
  const auto h = value["h"].isNull() ? value["height"].numberValue() : value["h"].numberValue();
  if (!x || !y || !w || !h) {
    return std::nullopt;
  }
  for (double v : {*x, *y, *w, *h}) {
    if (!std::isfinite(v) || std::fabs(v) > 1e6) {
      return std::nullopt;
    }
  }
  return ScreenRect{static_cast<int>(std::lround(*x)), static_cast<int>(std::lround(*y)),
                    static_cast<int>(std::lround(*w)), static_cast<int>(std::lround(*h))};
}

JSONValue startRecording(const ToolEnvironment& environment, const Arguments& arguments) {
  MCPDesktop& desktop = environment.desktop;
  const int fps = frameRate(arguments);
  requireWindowCapture(desktop);
  const auto match = resolveWindow(desktop, arguments);
  if (!match) {
    fail("Either 'window_id' or 'app' is required");
  }
  SegmentRequest request;
  request.fps = fps;
  request.showCursor = arguments.boolean("show_cursor").value_or(true);
  request.target = CaptureTarget::windowOf(match->window.id);
  if (arguments.has("crop")) {
    const auto crop = rectArgument(arguments["crop"]);
    if (!crop) {
      fail("crop requires x, y, w, h numeric fields");
    }
    if (crop->width <= 0 || crop->height <= 0) {
      fail("crop width and height must be positive");
    }
    if (!match->window.positionKnown) {
      fail(
          "crop needs the window's place on screen, which this desktop does not tell; record "
          "the whole window, or a region of the display with record_region");
    }
    request.target = CaptureTarget::windowCropOf(match->window.contentFrame, *crop);
    if (request.target.area.empty()) {
      fail("crop lies outside the window's content area");
    }
  }
  const auto stopAt = stopTime(arguments);
  auto recorder = desktop.makeRecorder();
  try {
    recorder->start(request);
  } catch (const std::exception& error) {
    fail(std::string("Failed to start recording: ") + error.what());
  }
  const std::string id = environment.context.generateID();
  environment.context.addActiveRecording(
      id, ActiveRecording{.recorder = std::move(recorder),
                          .window = match->window,
                          .fps = fps,
                          .startTime = std::chrono::steady_clock::now(),
                          .paused = false,
                          .stopAt = stopAt});
  JSONValue::Object result{{"session_id", id},
                           {"recording", true},
                           {"target", targetJSON(match->window)},
                           {"other_matches", match->otherMatches}};
  if (desktop.screen().userPicksWindows()) {
    result.emplace("note", windowPickNote(match->window));
  }
  return result;
}

JSONValue recordRegion(const ToolEnvironment& environment, const Arguments& arguments) {
  const auto x = arguments.integer("x");
  const auto y = arguments.integer("y");
  const auto width = arguments.integer("width");
  const auto height = arguments.integer("height");
  if (!x || !y || !width || !height) {
    fail("x, y, width, height are required");
  }
  if (*width <= 0 || *height <= 0) {
    fail("width and height must be positive");
  }
  if (*width > kMaxRegionSide || *height > kMaxRegionSide) {
    fail(fmt::format("Region dimensions must not exceed 7680 pixels per axis (got {}×{})", *width,
                     *height));
  }
  const int fps = frameRate(arguments);
  requireScreen(environment.desktop);
  const auto stopAt = stopTime(arguments);
  SegmentRequest request;
  request.fps = fps;
  request.showCursor = arguments.boolean("show_cursor").value_or(true);
  request.target = CaptureTarget::screenAreaOf({*x, *y, *width, *height});
  auto recorder = environment.desktop.makeRecorder();
  try {
    recorder->start(request);
  } catch (const std::exception& error) {
    fail(std::string("Failed to start region recording: ") + error.what());
  }
  const std::string id = environment.context.generateID();
  environment.context.addActiveRecording(
      id, ActiveRecording{.recorder = std::move(recorder),
                          .window = std::nullopt,
                          .fps = fps,
                          .startTime = std::chrono::steady_clock::now(),
                          .paused = false,
                          .stopAt = stopAt});
  return JSONValue::Object{{"session_id", id}, {"recording", true}};
}

[[noreturn]] void noActiveRecording(const SessionContext& context, const std::string& id) {
  std::string active;
  for (const std::string& each : context.activeIDs()) {
    active += (active.empty() ? "" : ", ") + each;
  }
  fail("No active recording with session ID '" + id +
       "'. Active sessions: " + (active.empty() ? "none" : active));
}

JSONValue stopRecording(SessionContext& context, const Arguments& arguments) {
  const std::string id = sessionID(arguments);
  const auto summary = context.stopRecording(id);
  if (!summary) {
    noActiveRecording(context, id);
  }
  return JSONValue::Object{
      {"session_id", id}, {"frames", summary->frames}, {"elapsed", summary->elapsed}};
}

JSONValue pauseRecording(SessionContext& context, const Arguments& arguments, bool paused) {
  const std::string id = sessionID(arguments);
  const auto frames = context.setPaused(id, paused);
  if (!frames) {
    noActiveRecording(context, id);
  }
  return JSONValue::Object{
      {"paused", paused},
      {"frames", *frames},
      {"note", paused ? "Capture stream continues running. For true pause, use stop_recording + "
                        "start_recording."
                      : "Recording continues. Use stop_recording when done."}};
}

/// "WxH" with both positive; no value otherwise.
std::optional<ImageSize> parseSize(const std::string& text) {
  const auto x = text.find('x');
  if (x == std::string::npos) {
    return std::nullopt;
  }
  ImageSize size;
  const char* end = text.data() + text.size();
  const auto w = std::from_chars(text.data(), text.data() + x, size.width);
  const auto h = std::from_chars(text.data() + x + 1, end, size.height);
  if (w.ec != std::errc() || w.ptr != text.data() + x || h.ec != std::errc() || h.ptr != end ||
      size.width <= 0 || size.height <= 0 || size.width > kMaxRegionSide ||
      size.height > kMaxRegionSide) {
    return std::nullopt;
  }
  return size;
}

/// `image` copied onto a black canvas of `size` at (`left`, `top`), clipped.
Image placed(const Image& image, ImageSize size, int left, int top) {
  PixelBuffer pixels(static_cast<std::size_t>(size.width) * size.height * 4, 0);
  for (std::size_t i = 3; i < pixels.size(); i += 4) {
    pixels[i] = 0xFF;
  }
  for (int y = 0; y < image.height(); ++y) {
    const int ty = top + y;
    if (ty < 0 || ty >= size.height) {
      continue;
    }
    const auto row = image.row(y);
    for (int x = 0; x < image.width(); ++x) {
      const int tx = left + x;
      if (tx < 0 || tx >= size.width) {
        continue;
      }
      std::copy_n(row.begin() + x * 4, 4,
                  pixels.begin() + (static_cast<std::size_t>(ty) * size.width + tx) * 4);
    }
  }
  return Image::bgra8(size.width, size.height, std::move(pixels));
}

/// `image` at exactly `size`: "contain" scales it to fit and pads, "cover" scales it to fill
/// and crops the middle, "stretch" ignores its aspect ratio.
Image fitted(const Image& image, ImageSize size, const std::string& fit) {
  if (fit == "stretch") {
    return ImageScaler::resize(image, size);
  }
  const double sx = static_cast<double>(size.width) / image.width();
  const double sy = static_cast<double>(size.height) / image.height();
  const double scale = fit == "cover" ? std::max(sx, sy) : std::min(sx, sy);
  const ImageSize scaled{std::max(1, static_cast<int>(std::lround(image.width() * scale))),
                         std::max(1, static_cast<int>(std::lround(image.height() * scale)))};
  const Image resized = ImageScaler::resize(image, scaled);
  return placed(resized, size, (size.width - scaled.width) / 2, (size.height - scaled.height) / 2);
}

/// The rule every output follows (no device, pipe, link or folder), and an existing file is
/// replaced only when it is a picture.
void requireStillOutput(const fs::path& output) {
  try {
    checkWritable(output);
    std::error_code error;
    const std::string extension = lowercased(output.extension().string());
    if (fs::exists(output, error) && extension != ".png" && extension != ".jpg" &&
        extension != ".jpeg") {
      throw OutputPathError::notAnOutput(output);
    }
  } catch (const OutputPathError& error) {
    fail(error.what());
  }
}

MCPToolResult captureStill(MCPDesktop& desktop, const Arguments& arguments) {
  // A name or true: the one argument that takes either type, so it is read as it is.
  const JSONValue& simulatorArgument = arguments["simulator"];
  const std::string* simulatorName = simulatorArgument.stringValue();
  const bool simulator = arguments.has("simulator") &&
                         simulatorArgument.boolValue().value_or(true) &&
                         (simulatorName == nullptr || !simulatorName->empty());
  if (!simulator && !arguments.has("window_id") && !arguments.has("app") &&
      !arguments.has("region")) {
    fail("A target is required: 'simulator', 'window_id', 'app', or 'region'");
  }
  const auto output = arguments.string("output");
  if (!output || output->empty()) {
    fail("'output' is required");
  }
  const std::string format = arguments.string("format").value_or("png");
  if (format != "png" && format != "jpeg") {
    fail("format must be one of: png, jpeg");
  }
  std::optional<ImageSize> size;
  if (const auto sizeText = arguments.string("size")) {
    size = parseSize(*sizeText);
    if (!size) {
      fail("size must be WxH, for example 1320x2868");
    }
  }
  const std::string fit = arguments.string("fit").value_or("contain");
  if (fit != "contain" && fit != "cover" && fit != "stretch") {
    fail("fit must be one of: contain, cover, stretch");
  }
  std::optional<ScreenRect> region;
  if (!simulator && !arguments.has("window_id") && !arguments.has("app")) {
    region = rectArgument(arguments["region"]);
    if (!region || region->width <= 0 || region->height <= 0) {
      fail("region requires numbers x, y (0 is the screen's edge) and w, h greater than 0");
    }
  }
  if (simulator) {
    fail(kSimulatorUnavailable);
  }
  if (region) {
    requireScreen(desktop);
  } else {
    requireWindowCapture(desktop);
  }
  std::optional<WindowMatch> match;
  CaptureTarget target;
  if (region) {
    target = CaptureTarget::screenAreaOf(*region);
  } else {
    match = resolveWindow(desktop, arguments);
    target = CaptureTarget::windowOf(match->window.id);
  }
  std::optional<Image> image;
  try {
    image = desktop.screen().openStream(target, false)->grab();
  } catch (const std::exception& error) {
    fail(std::string("Failed to capture: ") + error.what());
  }
  if (!image || image->empty()) {
    fail("Failed to capture: nothing is visible there");
  }
  if (size) {
    *image = fitted(*image, *size, fit);
  }
  const fs::path path = fs::absolute(*output);
  requireStillOutput(path);
  try {
    const std::vector<std::uint8_t> bytes =
        format == "png" ? encodePNG(*image) : encodeJPEG(*image, 90);
    AtomicFile file(path, 0644);
    writeAllAt(file.fd(), bytes, 0, file.temporaryPath());
    file.commit();
  } catch (const std::exception& error) {
    fail("Failed to write " + path.string() + ": " + error.what());
  }
  JSONValue::Object result{
      {"path", path.string()}, {"width", image->width()}, {"height", image->height()}};
  if (match) {
    result.emplace("target", targetJSON(match->window));
    result.emplace("other_matches", match->otherMatches);
    if (desktop.screen().userPicksWindows()) {
      result.emplace("note", windowPickNote(match->window));
    }
  }
  return MCPToolResult(std::move(result), {imageContent(*image)});
}

}  // namespace

void registerRecordingTools(const ToolEnvironment& environment) {
  MCPServer& server = environment.server;
  SessionContext& context = environment.context;
  MCPDesktop& desktop = environment.desktop;
  const JSONValue rectSchema = JSONValue::Object{
      {"type", "object"},
      {"properties", JSONValue::Object{{"x", JSONValue::Object{{"type", "number"}}},
                                       {"y", JSONValue::Object{{"type", "number"}}},
                                       {"w", property("number", "Width (or 'width')")},
                                       {"h", property("number", "Height (or 'height')")}}}};
  JSONValue cropSchema = rectSchema;
  (*cropSchema.objectValue())["description"] =
      "Sub-region to capture, relative to window content area";
  const JSONValue appSchema =
      property("string",
               "Application name. Resolves to the first matching window; when several match, check "
               "`target`/`other_matches` in the response or pass `window_id` to disambiguate.");
  const JSONValue sessionSchema = property("string", "Recording session ID");

  server.registerTool(
      {"start_recording",
       "Start recording a window. Returns a session ID plus a `target` object naming the "
       "resolved window (window_id, title, app, frame) and `other_matches` (how many other "
       "windows matched an `app` request) so you can confirm the right window was selected.",
       objectSchema({{"window_id", property("integer", "Window ID from list_windows")},
                     {"app", appSchema},
                     {"crop", cropSchema},
                     {"fps", property("integer", "Frame rate (default: 30)")},
                     {"show_cursor", property("boolean", "Include cursor (default: true)")},
                     {"duration", property("number", "Auto-stop after N seconds")}})},
      [environment](const JSONValue& arguments) {
        return startRecording(environment, Arguments(arguments));
      });
  server.registerTool(
      {"record_region", "Record a screen region by coordinates. Returns a session ID.",
       objectSchema({{"x", property("integer", "X coordinate of region origin")},
                     {"y", property("integer", "Y coordinate of region origin")},
                     {"width", property("integer", "Region width in points")},
                     {"height", property("integer", "Region height in points")},
                     {"fps", property("integer", "Frame rate (default: 30)")},
                     {"show_cursor", property("boolean", "Include cursor (default: true)")},
                     {"duration", property("number", "Auto-stop after N seconds")}},
                    {"x", "y", "width", "height"})},
      [environment](const JSONValue& arguments) {
        return recordRegion(environment, Arguments(arguments));
      });
  server.registerTool(
      {"stop_recording", "Stop an active recording session. Frames are preserved for render_gif.",
       objectSchema({{"session_id", property("string",
                                             "Recording session ID from "
                                             "start_recording or record_region")}},
                    {"session_id"})},
      [&context](const JSONValue& arguments) {
        return stopRecording(context, Arguments(arguments));
      });
  server.registerTool(
      {"pause_recording",
       "Pause an active recording session. Note: capture stream continues running (SCStream "
       "limitation). For true pause, use stop_recording + start_recording.",
       objectSchema({{"session_id", sessionSchema}}, {"session_id"})},
      [&context](const JSONValue& arguments) {
        return pauseRecording(context, Arguments(arguments), true);
      });
  server.registerTool({"resume_recording", "Resume a paused recording session.",
                       objectSchema({{"session_id", sessionSchema}}, {"session_id"})},
                      [&context](const JSONValue& arguments) {
                        return pauseRecording(context, Arguments(arguments), false);
                      });
  server.registerTool(
      {"record_simulator",
       "Record the iOS Simulator's device framebuffer at native resolution - the only way to "
       "produce an App Store-legal iOS asset. Captures no audio.",
       objectSchema({{"device", property("string",
                                         "Device UDID or name (default: the only "
                                         "booted simulator)")},
                     {"duration", property("number", "Seconds to record (default: 5)")},
                     {"size", property("string", "Exact output size as WxH, e.g. 1320x2868")},
                     {"fit", property("string",
                                      "contain (pad, default), cover (crop), or "
                                      "stretch")}})},
      [](const JSONValue&) -> MCPToolResult { fail(kSimulatorUnavailable); });
  JSONValue regionSchema = rectSchema;
  server.registerTool(
      {"capture_still",
       "Capture a single still image of a simulator, window, app, or screen region. For "
       "window/app captures the response echoes a `target` (window_id, title, app, frame) and "
       "`other_matches` so you can confirm which window was captured.",
       objectSchema({{"simulator", property("string",
                                            "Device UDID or name; pass true for the "
                                            "only booted simulator")},
                     {"window_id", property("integer", "Window ID from list_windows")},
                     {"app", appSchema},
                     {"region", regionSchema},
                     {"size", property("string", "Exact output size as WxH")},
                     {"fit", property("string", "contain (default), cover, or stretch")},
                     {"format", property("string", "png (default) or jpeg")},
                     {"output", property("string", "Output file path")}},
                    {"output"})},
      [&desktop](const JSONValue& arguments) {
        return captureStill(desktop, Arguments(arguments));
      });
}

}  // namespace brimble::mcp
