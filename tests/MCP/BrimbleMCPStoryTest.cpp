// `brimble mcp-server` driven by the official MCP SDK through a whole assistant story, on the
// embedded display (the SDK starts servers with a bare environment, so there is no $DISPLAY).
// The files it makes are checked with decoders we did not write: giflib and ImageMagick.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/MediaProbe.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
namespace fs = std::filesystem;

/// "WxH NFRAMES" as ImageMagick's identify sees an animation or a still.
std::string identify(const fs::path& file) {
  const auto result = testing::runCommand("identify -format '%wx%h\\n' " +
                                          testing::shellQuote(file.string()) + " 2>&1");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  std::vector<std::string> lines;
  std::string line;
  for (char c : result.output) {
    if (c == '\n') {
      lines.push_back(line);
      line.clear();
    } else {
      line += c;
    }
  }
  return (lines.empty() ? std::string("none") : lines.front()) + " " + std::to_string(lines.size());
}

class BrimbleMCPStory : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory_ = new testing::TempDirectory();  // NOLINT: lives for the suite, freed below
    const fs::path dir = directory_->path();
    fs::create_directories(dir / "scripts");
    fs::create_directories(dir / "tmp");
    testing::writeFile(dir / "scripts" / "demo.brim", "set fps 24\nwait 1\n");
    testing::writeFile(dir / "saved.gif", "GIF89a");
    testing::writeFile(dir / "history.json",
                       json({{"version", 1},
                             {"entries", json::array({{{"path", (dir / "saved.gif").string()},
                                                       {"filename", "saved.gif"},
                                                       {"createdAt", "2026-11-01T10:00:00Z"},
                                                       {"fileSize", 2621440}}})}})
                           .dump());
    fs::copy_file(BRIMBLE_SOURCE_DIR "/examples/browser-demo.html", dir / "page.html");
    testing::ChildProcess client({"env", "NODE_PATH=" BRIMBLE_NPM_DIR "/node_modules", "node",
                                  BRIMBLE_SOURCE_DIR "/tests/MCP/sdk-story.cjs", dir.string(),
                                  "file://" + (dir / "page.html").string(), BRIMBLE_BINARY,
                                  "mcp-server"});
    client.closeInput();
    seen_ = new json(json::parse(client.readRemainingOutput(240s), nullptr, false));  // NOLINT
    clientExit_ = client.wait(20s).value_or(-1);
    clientErrors_ = new std::string(client.errorOutput());  // NOLINT
  }
  static void TearDownTestSuite() {
    delete seen_;
    delete clientErrors_;
    delete directory_;
  }
  void SetUp() override {
    ASSERT_EQ(clientExit_, 0) << *clientErrors_;
    ASSERT_TRUE(seen_->is_object()) << *clientErrors_;
  }

  static const json& call(const std::string& key) { return (*seen_)["calls"][key]; }
  static std::string errorText(const std::string& key) {
    EXPECT_TRUE(call(key)["isError"].get<bool>()) << key << ": " << call(key).dump();
    return call(key)["value"].is_string() ? call(key)["value"].get<std::string>() : "";
  }
  static const json& value(const std::string& key) {
    EXPECT_FALSE(call(key)["isError"].get<bool>()) << key << ": " << call(key).dump();
    return call(key)["value"];
  }
  static fs::path dir() { return directory_->path(); }

  static testing::TempDirectory* directory_;
  static json* seen_;
  static std::string* clientErrors_;
  static int clientExit_;
};

testing::TempDirectory* BrimbleMCPStory::directory_ = nullptr;
json* BrimbleMCPStory::seen_ = nullptr;
std::string* BrimbleMCPStory::clientErrors_ = nullptr;
int BrimbleMCPStory::clientExit_ = -1;

TEST_F(BrimbleMCPStory, ClosesCleanlyWithProtocolLinesOnly) {
  EXPECT_EQ((*seen_)["transportErrors"], json::array());
  EXPECT_EQ((*seen_)["close"], json::parse(R"({"exitCode":0,"signal":null})"));
  const std::string stderrText = (*seen_)["stderr"];
  EXPECT_NE(stderrText.find("[Brimble MCP] Using display :"), std::string::npos) << stderrText;
  // Recordings still running at the end (fps1, fps120, region7680 were stopped; the kept ones
  // were not) ended with the server, and no frame file is left behind.
  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(dir() / "tmp")) {
    if (entry.path().filename().string().starts_with("brimble-frames-")) {
      left.push_back(entry.path().filename().string());
    }
  }
  EXPECT_EQ(left, std::vector<std::string>{});
}

TEST_F(BrimbleMCPStory, EveryInputSchemaCompilesAndEveryRequiredArgumentIsNamed) {
  EXPECT_EQ((*seen_)["schemaErrors"], json::array());
  EXPECT_EQ((*seen_)["requiredTexts"], json::parse(R"json({
    "open_app": "'app' parameter is required",
    "focus_app": "'app' parameter is required",
    "type_text": "'text' parameter is required",
    "move_cursor": "'x' and 'y' parameters are required",
    "key_press": "'key' parameter is required (e.g. 'cmd+c', 'enter', 'shift+tab')",
    "scroll": "'direction' parameter is required (up, down, left, right)",
    "start_recording": "Either 'window_id' or 'app' is required",
    "record_region": "x, y, width, height are required",
    "stop_recording": "'session_id' is required",
    "pause_recording": "'session_id' is required",
    "resume_recording": "'session_id' is required",
    "record_simulator": "Simulator capture is not available in this MCP session.",
    "capture_still": "A target is required: 'simulator', 'window_id', 'app', or 'region'",
    "render_gif": "'session_id' is required",
    "process_gif": "'input' parameter is required",
    "discard_recording": "'session_id' is required",
    "execute_script": "Either 'script' (inline source) or 'file' (path) is required",
    "validate_script": "Either 'script' (inline source) or 'file' (path) is required",
    "list_elements": "Provide either 'url' (Chrome page) or 'app' (running app name) to inspect",
    "resolve_target": "'target' is required (e.g. \"text:Save\", \"css:#submit\")"
  })json"));
}

TEST_F(BrimbleMCPStory, RecordsATerminalWhileTypingAndRendersItInEveryFormat) {
  const json& opened = value("openTerminal");
  const json& started = value("start");
  EXPECT_EQ(started["target"]["window_id"], opened["window_id"]);
  EXPECT_EQ(started["recording"], true);
  EXPECT_EQ(started["other_matches"], 0);
  const std::string id = started["session_id"];
  EXPECT_TRUE(id.size() == 12 && id.starts_with("rec-") &&
              id.find_first_not_of("0123456789abcdef", 4) == std::string::npos)
      << id;
  bool listed = false;
  for (const json& window : value("listTerminals")["windows"]) {
    listed = listed || window["id"] == opened["window_id"];
  }
  EXPECT_TRUE(listed) << call("listTerminals").dump();

  const json& stopped = value("stop");
  EXPECT_GT(stopped["frames"].get<int>(), 5);
  EXPECT_GT(stopped["elapsed"].get<double>(), 0.4);

  // GIF at the default path, decoded by giflib: it shows the typed text changing the window.
  const json& gif = value("renderGIF");
  EXPECT_EQ(gif["path"], (dir() / ("recording-" + id + ".gif")).string());
  EXPECT_EQ(gif["retained"], true);
  const auto decoded = testing::decodeGIFFile(gif["path"].get<std::string>());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(gif["dimensions"],
            std::to_string(decoded->width) + "x" + std::to_string(decoded->height));
  EXPECT_LE(decoded->width, 800);
  EXPECT_EQ(static_cast<int>(decoded->frames.size()), gif["frames"].get<int>());
  EXPECT_FALSE(decoded->frames.front().hasSamePixels(decoded->frames.back()));
  EXPECT_EQ(call("renderGIF")["extra"],
            json::parse(R"([{"type":"image","mimeType":"image/png","bytes":)" +
                        std::to_string(call("renderGIF")["extra"][0]["bytes"].get<int>()) + "}]"));
  // The picture the assistant sees is a frame as rendered, at the file's size.
  EXPECT_EQ(identify(dir() / "renderGIF-image.png"), gif["dimensions"].get<std::string>() + " 1");
  EXPECT_EQ(identify(dir() / "renderWebP-image.png"),
            value("renderWebP")["dimensions"].get<std::string>() + " 1");

  // Diffing stores only what changed: the same frames in far fewer bytes.
  const json& diffed = value("renderDiffed");
  const auto undiffed = testing::decodeGIFFile(dir() / "diffed.gif");
  ASSERT_TRUE(undiffed);
  EXPECT_EQ(undiffed->frames.size(), decoded->frames.size());
  EXPECT_LT(diffed["size_mb"].get<double>(), 0.8 * gif["size_mb"].get<double>());

  // Idle handling of a finished GIF: a cut shortens the pause, a fade also dips to black.
  const auto darkest = [](const testing::DecodedGIF& clip) {
    double least = 255;
    for (const Image& frame : clip.frames) {
      least = std::min(least, testing::meanBrightness(frame));
    }
    return least;
  };
  const auto cut = testing::decodeGIFFile(dir() / "idle-cut.gif");
  const auto fade = testing::decodeGIFFile(dir() / "idle-fade.gif");
  ASSERT_TRUE(cut && fade);
  EXPECT_GT(fade->frames.size(), cut->frames.size());
  EXPECT_LT(darkest(*fade), 0.2 * darkest(*cut));

  // WebP with transforms and APNG, read by ImageMagick.
  const json& webp = value("renderWebP");
  EXPECT_EQ(
      identify(webp["path"].get<std::string>()),
      webp["dimensions"].get<std::string>() + " " + std::to_string(webp["frames"].get<int>()));
  EXPECT_LE(std::stoi(webp["dimensions"].get<std::string>()), 400);
  const json& apng = value("renderAPNG");
  EXPECT_EQ(std::stoi(apng["dimensions"].get<std::string>()), 320);
  EXPECT_TRUE(testing::readFile(apng["path"].get<std::string>()).find("acTL") != std::string::npos);

  // MP4 goes to the video writer: H.264 of the same size and frame count.
  const json& mp4 = value("renderMP4");
  const auto video =
      testing::streamOfType(testing::probeStreams(mp4["path"].get<std::string>()), "video");
  ASSERT_TRUE(video);
  EXPECT_EQ(video->codecName, "h264");
  EXPECT_EQ(std::to_string(video->width) + "x" + std::to_string(video->height),
            mp4["dimensions"].get<std::string>());
  EXPECT_EQ(video->frames, mp4["frames"].get<int>());
  EXPECT_EQ(errorText("renderBadWidth"), "max_width must be greater than 0");
  EXPECT_EQ(errorText("renderBadLoop"), "loop_count must be >= 0 (0 = infinite)");

  const json& processed = value("process");
  const auto small = testing::decodeGIFFile(processed["path"].get<std::string>());
  ASSERT_TRUE(small);
  EXPECT_EQ(small->width, 200);
  EXPECT_EQ(processed["dimensions"], "200x" + std::to_string(small->height));
  // Twice as fast: half the play time of the source, to the centisecond per frame.
  int sourceTime = 0;
  int processedTime = 0;
  for (int delay : decoded->delaysCentiseconds) {
    sourceTime += delay;
  }
  for (int delay : small->delaysCentiseconds) {
    processedTime += delay;
  }
  EXPECT_NEAR(processedTime, sourceTime / 2.0, small->delaysCentiseconds.size() + 2.0);
  EXPECT_TRUE(errorText("processMissing").starts_with("Failed to decode GIF: "));
}

TEST_F(BrimbleMCPStory, RefusesToRenderOrDiscardWhatIsStillRecordingOrGone) {
  const std::string id = value("start")["session_id"];
  EXPECT_EQ(errorText("renderWhileRecording"),
            "Recording '" + id +
                "' is still recording. Stop it first with stop_recording (or let its duration "
                "elapse), then render_gif.");
  EXPECT_EQ(errorText("discardWhileRecording"),
            "Recording '" + id +
                "' is still recording. Stop it with stop_recording before "
                "discarding.");
  EXPECT_EQ(errorText("stopAgain"),
            "No active recording with session ID '" + id + "'. Active sessions: none");
  EXPECT_EQ(value("discard"), json({{"session_id", id}, {"discarded", true}}));
  EXPECT_EQ(
      value("discardAgain"),
      json({{"session_id", id}, {"discarded", true}, {"note", "Frames were already released."}}));
  const std::string released =
      "' was captured but its frames have been released - discarded via discard_recording, or "
      "evicted after 3 newer captures took its place. Re-record to render it again.";
  EXPECT_EQ(errorText("renderDiscarded"), "Recording '" + id + released);
  EXPECT_EQ(errorText("discardUnknown"), "No recording with session ID 'rec-00000000' to discard.");
  EXPECT_EQ(errorText("renderUnknown"),
            "No recording with session ID 'rec-00000000'. It may never have existed or the "
            "session was torn down.");

  // The fourth completed recording evicted the first; a render with release frees its own.
  const json& regions = (*seen_)["regionIDs"];
  EXPECT_EQ(errorText("renderEvicted"), "Recording '" + regions[0].get<std::string>() + released);
  EXPECT_EQ(value("renderKept")["retained"], false);
  EXPECT_EQ(errorText("renderReleased"), "Recording '" + regions[1].get<std::string>() + released);
  std::set<std::string> unique(regions.begin(), regions.end());
  EXPECT_EQ(unique.size(), 4u);
}

TEST_F(BrimbleMCPStory, KeepsTheDesignedLimits) {
  EXPECT_EQ(errorText("fps0"), "fps must be between 1 and 120 (got 0)");
  EXPECT_EQ(errorText("fps121"), "fps must be between 1 and 120 (got 121)");
  EXPECT_EQ(value("fps1")["recording"], true);
  EXPECT_EQ(value("fps120")["recording"], true);
  EXPECT_EQ(errorText("region7681"),
            "Region dimensions must not exceed 7680 pixels per axis (got 7681×100)");
  EXPECT_EQ(value("region7680")["recording"], true);
  EXPECT_EQ(errorText("badWindow"),
            "Window ID 12345 not found. Use list_windows to see available windows.");
  EXPECT_EQ(errorText("noApp"),
            "No window found for app 'no-such-app-anywhere'. Use list_windows "
            "to see available windows.");
  EXPECT_EQ(errorText("badCrop"), "crop width and height must be positive");
  EXPECT_EQ(errorText("simulator"), "Simulator capture is not available in this MCP session.");
  EXPECT_EQ(errorText("badDirection"),
            "Invalid direction 'sideways'. Must be: up, down, left, right");
  EXPECT_EQ(errorText("badKey"), "Unknown modifier 'hyper' in 'hyper+q'");
}

TEST_F(BrimbleMCPStory, PausesCropsAndDrivesThePointer) {
  EXPECT_EQ(value("pause")["paused"], true);
  EXPECT_EQ(value("pause")["note"],
            "Capture stream continues running. For true pause, use "
            "stop_recording + start_recording.");
  EXPECT_EQ(value("resume")["paused"], false);
  EXPECT_EQ(value("resume")["note"], "Recording continues. Use stop_recording when done.");
  EXPECT_TRUE(errorText("pauseUnknown")
                  .starts_with("No active recording with session ID 'rec-00000000'. Active "
                               "sessions: "));
  // The crop is of the window's content, so the frames are exactly its size.
  const auto cropped = testing::decodeGIFFile(value("cropRender")["path"].get<std::string>());
  ASSERT_TRUE(cropped);
  EXPECT_EQ(cropped->width, 200);
  EXPECT_EQ(cropped->height, 100);
  EXPECT_EQ(value("focus")["focused"], true);
  EXPECT_EQ(errorText("focusMissing"), "Failed to focus no-such-app-anywhere");
  EXPECT_EQ(value("move"), json::parse(R"({"moved":true,"x":120,"y":80,"duration":0.2})"));
  EXPECT_EQ(value("click"), json::parse(R"({"clicked":true,"x":121,"y":81,"button":"right"})"));
  // Without coordinates the click lands where the pointer is.
  EXPECT_EQ(value("clickHere"), json::parse(R"({"clicked":true,"x":121,"y":81,"button":"left"})"));
  EXPECT_EQ(value("scroll"), json::parse(R"({"scrolled":"down","ticks":2})"));
  EXPECT_EQ(
      value("settings")["settings"],
      json::parse(
          (*seen_)["reads"]["brimble://schema/settings"]["text"].get<std::string>())["settings"]);
  EXPECT_EQ(value("commands")["commands"][0]["command"], "set");
  EXPECT_GT(value("commands")["commands"].size(), 30u);
}

TEST_F(BrimbleMCPStory, ARecordingWithADurationStopsItself) {
  const std::string id = value("timed")["session_id"];
  EXPECT_EQ(errorText("timedStop"),
            "No active recording with session ID '" + id + "'. Active sessions: none");
  const auto decoded = testing::decodeGIFFile(value("timedRender")["path"].get<std::string>());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width, 200);
  int total = 0;
  for (int delay : decoded->delaysCentiseconds) {
    total += delay;
  }
  EXPECT_NEAR(total, 50, 20);  // 0.5 s, give or take two frames at 10 fps
}

TEST_F(BrimbleMCPStory, StillsComeBackAsFilesAndAsImagesTheAssistantCanSee) {
  const json& still = value("still");
  EXPECT_EQ(still["target"]["window_id"], value("openTerminal")["window_id"]);
  EXPECT_EQ(identify(still["path"].get<std::string>()),
            std::to_string(still["width"].get<int>()) + "x" +
                std::to_string(still["height"].get<int>()) + " 1");
  const json& extra = call("still")["extra"];
  ASSERT_EQ(extra.size(), 1u);
  EXPECT_EQ(extra[0]["type"], "image");
  EXPECT_EQ(extra[0]["mimeType"], "image/png");
  EXPECT_GT(extra[0]["bytes"].get<int>(), 100);
  EXPECT_EQ(identify(value("stillJPEG")["path"].get<std::string>()), "150x150 1");
  EXPECT_EQ(testing::readFile(dir() / "still.jpg").substr(0, 3), "\xFF\xD8\xFF");
}

TEST_F(BrimbleMCPStory, RunsAndChecksScripts) {
  const json& executed = value("execute");
  EXPECT_EQ(executed["path"], (dir() / "script.gif").string());
  const auto decoded = testing::decodeGIFFile(dir() / "script.gif");
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width, 240);
  EXPECT_EQ(value("validateGood"), json::parse(R"({"valid":true,"instruction_count":2,
                            "warnings":["Warning: script has no 'record' commands"]})"));
  EXPECT_EQ(value("validateBad"), json::parse(R"({"valid":false,"warnings":[],
                            "error":"Line 2, Col 1: Unknown command 'bogus'\n  bogus 1\n  ^"})"));
  EXPECT_EQ(errorText("validateMissingFile"),
            "Failed to read file: " + (dir() / "none.brim").string());
}

TEST_F(BrimbleMCPStory, FindsTheElementsOfALocalPage) {
  const json& listed = value("listElements");
  EXPECT_EQ(listed["count"].get<int>(), static_cast<int>(listed["elements"].size()));
  EXPECT_LE(listed["count"].get<int>(), 500);
  bool hasName = false;
  for (const json& element : listed["elements"]) {
    hasName = hasName || element["selector"] == "css:#name";
  }
  EXPECT_TRUE(hasName) << listed.dump();
  EXPECT_EQ(value("crowded"), json::parse(R"({"count":500,"listed":500})"));
  const json& found = value("resolveFound");
  ASSERT_EQ(found["found"], true) << found.dump();
  EXPECT_GT(found["rect"]["width"].get<int>(), 0);
  EXPECT_EQ(value("resolveMissing")["found"], false);
  // A GTK application shows its elements on the accessibility bus, each with a selector that
  // finds it again; xterm shows none.
  const json& native = value("elementsOfApp");
  EXPECT_GT(native["count"].get<int>(), 5) << native.dump();
  bool button = false;
  for (const json& element : native["elements"]) {
    button = button || (element["role"] == "push button" &&
                        element["selector"].get<std::string>().starts_with("role:push button/"));
  }
  EXPECT_TRUE(button) << native.dump();
  EXPECT_THAT(errorText("elementsOfTerminal"), ::testing::HasSubstr("shows no accessibility tree"));
}

TEST_F(BrimbleMCPStory, ReportsPermissionsAndTheDisplayInUse) {
  json permissions = value("permissions");
  // In its own display the server has everything it needs, whatever the user's desktop lacks.
  for (const json& check : permissions["checks"]) {
    EXPECT_FALSE(check["required"] && check["status"] == "missing") << check.dump();
  }
  EXPECT_GT(permissions["checks"].size(), 5U);
  permissions.erase("checks");
  EXPECT_EQ(permissions, json::parse(R"({"screen_recording":true,"accessibility":true,
                            "note":"All required permissions granted.","backend":"x11",
                            "backend_reason":"no desktop session was named or found, so brimble started its own embedded display"})"));
  const json& status = value("status");
  EXPECT_EQ(status["display"]["embedded"], true);
  EXPECT_EQ(status["permissions"]["screen_recording"], true);
  EXPECT_FALSE(status["cli_version"].get<std::string>().empty());
  EXPECT_FALSE(status["summary"].get<std::string>().empty());
}

TEST_F(BrimbleMCPStory, ServesEveryResource) {
  const json& reads = (*seen_)["reads"];
  const auto text = [&](const std::string& uri) {
    EXPECT_EQ(reads[uri]["mimeType"], "text/plain") << uri << ": " << reads[uri].dump();
    return reads[uri]["text"].is_string() ? reads[uri]["text"].get<std::string>() : "";
  };
  const std::string reference = text("brimble://docs/scripting-reference");
  EXPECT_TRUE(
      reference.starts_with("# Brimble Scripting Reference (.brim)\n\nLine-oriented DSL "
                            "for creating multi-step GIF demos.\n"));
  EXPECT_NE(reference.find("\n## Window Management\n\n- `open <app>` — "), std::string::npos)
      << reference;
  for (const char* key :
       {"hello", "git-workflow", "multi-window", "spotlight-demo", "polish-demo"}) {
    EXPECT_EQ(text(std::string("brimble://examples/") + key),
              testing::readFile(std::string(BRIMBLE_SOURCE_DIR "/examples/") + key + ".brim"));
  }
  EXPECT_EQ(reads["brimble://examples/nope"]["error"],
            "MCP error -32603: Resource read error: Unknown example 'nope'. Available: hello, "
            "git-workflow, multi-window, spotlight-demo, polish-demo");
  EXPECT_EQ(json::parse(text("brimble://schema/settings"))["settings"][0],
            json::parse(R"({"name":"fps","type":"integer","default":30,"enum":[12,24,30,60]})"));
  EXPECT_EQ(text("brimble://status/permissions"),
            "{\n  \"screen_recording\": true,\n  \"accessibility\": true,\n"
            "  \"screen_recording_note\": \"Granted\",\n  \"accessibility_note\": \"Granted\"\n}");
  const json recordings = json::parse(text("brimble://recordings"));
  EXPECT_EQ(recordings["recordings"][0]["path"], value("renderGIF")["path"]);
  EXPECT_EQ(recordings["recordings"][0]["dimensions"], value("renderGIF")["dimensions"]);
  EXPECT_EQ(json::parse(text("gif://library")),
            json::parse(R"({"gifs":[{"path":")" + (dir() / "saved.gif").string() +
                        R"(","size_mb":2.5,"date":"2026-11-01T10:00:00Z"}]})"));
  EXPECT_EQ(json::parse(text("gif://" + (dir() / "saved.gif").string()))["size_mb"], 2.5);
  EXPECT_EQ(reads["gif:///nowhere.gif"]["error"],
            "MCP error -32603: Resource read error: No saved GIF with path: /nowhere.gif");
  const json library = json::parse(text("script://library"));
  EXPECT_EQ(library["directory"], (dir() / "scripts").string());
  EXPECT_EQ(library["scripts"][0]["name"], "demo");
  EXPECT_EQ(library["scripts"][0]["size_bytes"], 18);
  EXPECT_EQ(text("script://library/demo"), "set fps 24\nwait 1\n");
  EXPECT_EQ(reads["script://library/../x"]["error"],
            "MCP error -32603: Resource read error: Invalid script name: ../x");
  EXPECT_EQ(reads["script://library/missing"]["error"],
            "MCP error -32603: Resource read error: Script 'missing' not found. Available: demo");
}

}  // namespace
}  // namespace brimble
