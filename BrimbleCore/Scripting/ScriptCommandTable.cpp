#include "BrimbleCore/Scripting/ScriptCommandTable.h"

#include <utility>

#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"

namespace brimble {
namespace {

ScriptArgInfo required(std::string name, std::string type) {
  return {std::move(name), std::move(type), false, std::nullopt};
}

ScriptArgInfo optional(std::string name, std::string type) {
  return {std::move(name), std::move(type), true, std::nullopt};
}

ScriptArgInfo choice(std::string name, std::vector<std::string> choices, bool isOptional = false) {
  return {std::move(name), "string", isOptional, std::move(choices)};
}

std::vector<ScriptArgInfo> rect() {
  return {optional("x", "number"), optional("y", "number"), optional("width", "number"),
          optional("height", "number")};
}

std::vector<ScriptArgInfo> spotlightArgs() {
  std::vector<ScriptArgInfo> args = {choice("target", {"stdout", "region"}),
                                     optional("line", "variableIndex")};
  for (ScriptArgInfo& arg : rect()) {
    args.push_back(std::move(arg));
  }
  args.push_back(optional("duration", "number"));
  return args;
}

std::vector<ScriptArgInfo> titleCardArgs() {
  return {required("title", "string"), optional("subtitle", "string"),
          optional("duration", "number")};
}

template <typename Instruction>
InstructionForm form(InstructionTraits traits = {}) {
  return {ScriptInstruction(std::in_place_type<Instruction>).index(), traits};
}

constexpr InstructionTraits kAction{.action = true};
constexpr InstructionTraits kElementAction{.action = true, .drivesAppsByElement = true};
constexpr InstructionTraits kElementWait{.drivesAppsByElement = true};

const std::string kSimulatorUnavailable = "Simulator capture is not available on this platform.";
const std::string kSafariUnavailable =
    "Safari is not available on this platform; use 'browser chrome'";

using P = ScriptParser;

// One row per command, in the order the manifest lists them. A row's forms are the instructions
// its lines parse into, each with what the engine and the script check need to know of it.
std::vector<ScriptCommand> makeCommands() {
  return {
      {.info = {"set",
                "Set a script setting (fps, output, max-width, etc.)",
                {required("key", "string"), required("value", "string")},
                "set ${1:key} ${2:value}"},
       .parse = &P::parseSet,
       .forms = {form<SetInstruction>()}},
      {.info = {"open",
                "Open an application and create a new window",
                {required("app", "string")},
                R"(open "${1:Terminal}")"},
       .parse = &P::parseOpen,
       .forms = {form<OpenInstruction>(kAction)}},
      {.info = {"focus",
                "Bring an application's window to the front",
                {required("app", "string")},
                R"(focus "${1:Terminal}")"},
       .parse = &P::parseFocus,
       .forms = {form<FocusInstruction>(kAction)}},
      {.info = {"capture-window",
                "Capture a window reference by app name or ID",
                {choice("by", {"app", "id"}), required("window", "string"),
                 optional("as", "variable")},
                R"(capture-window app "${1:Terminal}" as \$${2:win})"},
       .parse = &P::parseCaptureWindow,
       .forms = {form<CaptureWindowInstruction>()}},
      {.info = {"record",
                "Record a window, screen region, window sub-region, or iOS Simulator "
                "(duration/continue; audio for MP4, not available for simulator)",
                {optional("window", "variable"), optional("crop", "flag"),
                 optional("region", "flag"), optional("simulator", "flag"), optional("x", "number"),
                 optional("y", "number"), optional("width", "number"), optional("height", "number"),
                 optional("duration", "number"), optional("continue", "flag"),
                 optional("audio", "flag")},
                R"(record \$${1:win} duration ${2:3.0} continue)"},
       .parse = &P::parseRecord,
       .forms = {form<RecordInstruction>()},
       .platformNote = "Not on Linux: record simulator (no iOS Simulator)"},
      {.info = {"stop", "Stop the active recording", {}, "stop"},
       .parse = &P::parseBare<StopInstruction>,
       .forms = {form<StopInstruction>()}},
      {.info = {"type",
                "Simulate typing text, optionally pressing Enter",
                {required("text", "string"), optional("enter", "flag"),
                 optional("delay", "number")},
                R"(type "${1:text}")"},
       .parse = &P::parseType,
       .forms = {form<TypeInstruction>(kAction)}},
      {.info = {"click",
                "Click at coordinates, current position, or an element target (e.g. text:Save)",
                {optional("x", "number"), optional("y", "number"), optional("target", "target"),
                 optional("right", "flag")},
                "click ${1:x} ${2:y}"},
       .parse = &P::parseClick,
       .forms = {form<ClickInstruction>(kAction), form<ClickTargetInstruction>(kElementAction)}},
      {.info = {"tap",
                "Tap the iOS Simulator at a device framebuffer pixel (the coordinates simctl "
                "screenshots use). Brings the Simulator to the front, so it steals focus.",
                {required("x", "number"), required("y", "number")},
                "tap ${1:x} ${2:y}"},
       .parse = &P::parseTap,
       .forms = {form<TapInstruction>()},
       .platformNote = "Not on Linux (no iOS Simulator)"},
      {.info = {"move",
                "Smoothly move the cursor to coordinates over a duration",
                {required("x", "number"), required("y", "number"), optional("duration", "number")},
                "move ${1:x} ${2:y} duration ${3:0.5}"},
       .parse = &P::parseMove,
       .forms = {form<MoveInstruction>(kAction)}},
      {.info = {"cursor",
                "Instantly set cursor position",
                {required("x", "number"), required("y", "number")},
                "cursor ${1:x} ${2:y}"},
       .parse = &P::parseCursor,
       .forms = {form<CursorInstruction>()}},
      {.info = {"scroll",
                "Simulate scroll wheel in a direction",
                {choice("direction", {"up", "down", "left", "right"}), optional("ticks", "number")},
                "scroll ${1|up,down,left,right|} ${2:3}"},
       .parse = &P::parseScroll,
       .forms = {form<ScrollInstruction>(kAction)}},
      {.info = {"key",
                "Simulate a key press with optional modifiers",
                {required("keyspec", "string")},
                "key ${1:enter}"},
       .parse = &P::parseKey,
       .forms = {form<KeyInstruction>(kAction)}},
      {.info = {"wait",
                "Pause execution for a number of seconds",
                {required("seconds", "number")},
                "wait ${1:1.0}"},
       .parse = &P::parseWait,
       .forms = {form<WaitInstruction>()}},
      {.info = {"wait-for-idle",
                "Wait until screen content stabilizes or timeout",
                {required("seconds", "number")},
                "wait-for-idle ${1:2.0}"},
       .parse = &P::parseWaitForIdle,
       .forms = {form<WaitForIdleInstruction>()}},
      {.info = {"run",
                "Execute a shell command, optionally capturing output",
                {required("command", "string"), optional("as", "variable")},
                R"(run "${1:command}" as \$${2:out})"},
       .parse = &P::parseRun,
       .forms = {form<RunInstruction>()}},
      {.info = {"spotlight", "Add a spotlight effect to a region or stdout line", spotlightArgs(),
                "spotlight region ${1:x} ${2:y} ${3:w} ${4:h} duration ${5:2.0}"},
       .parse = &P::parseSpotlight,
       .forms = {form<SpotlightInstruction>()}},
      {.info = {"spotlight-shift", "Animate spotlight from previous position to a new target",
                spotlightArgs(),
                "spotlight-shift region ${1:x} ${2:y} ${3:w} ${4:h} duration ${5:2.0}"},
       .parse = &P::parseSpotlight,
       .forms = {form<SpotlightShiftInstruction>()}},
      {.info = {"clear-fx", "Remove all active visual effects", {}, "clear-fx"},
       .parse = &P::parseBare<ClearFxInstruction>,
       .forms = {form<ClearFxInstruction>()}},
      {.info = {"remain", "Wait for the remaining duration of the current recording", {}, "remain"},
       .parse = &P::parseBare<RemainInstruction>,
       .forms = {form<RemainInstruction>()}},
      {.info = {"render", "Stop recording and render the GIF immediately", {}, "render"},
       .parse = &P::parseBare<RenderInstruction>,
       .forms = {form<RenderInstruction>()}},
      {.info = {"clear", "Send Ctrl+L to clear the target window", {}, "clear"},
       .parse = &P::parseBare<ClearInstruction>,
       .forms = {form<ClearInstruction>(kAction)}},
      {.info = {"resize",
                "Resize the target window to width x height",
                {required("width", "number"), required("height", "number")},
                "resize ${1:800} ${2:600}"},
       .parse = &P::parseResize,
       .forms = {form<ResizeInstruction>()}},
      {.info = {"intro", "Add a title card at the beginning of the GIF", titleCardArgs(),
                R"(intro "${1:Title}" subtitle "${2:Subtitle}")"},
       .parse = &P::parseIntro,
       .forms = {form<IntroInstruction>()}},
      {.info = {"outro", "Add a title card at the end of the GIF", titleCardArgs(),
                R"(outro "${1:Title}" subtitle "${2:Subtitle}")"},
       .parse = &P::parseIntro,
       .forms = {form<OutroInstruction>()}},
      {.info = {"dismiss-dialog",
                "Dismiss an unexpected dialog or sheet (optional: app, button keywords)",
                {optional("app", "string"), optional("button", "string")},
                R"(dismiss-dialog button "${1:OK}")"},
       .parse = &P::parseAppButtonKeywords,
       .forms = {form<DismissDialogInstruction>(kElementAction)}},
      {.info = {"click-button-in-dialog",
                "Click a named button in the frontmost dialog/sheet to proceed (requires "
                "Accessibility)",
                {required("button", "string"), optional("app", "string")},
                R"(click-button-in-dialog button "${1:Allow}")"},
       .parse = &P::parseAppButtonKeywords,
       .forms = {form<ClickButtonInDialogInstruction>(kElementAction)}},
      {.info = {"set-background",
                R"(Composite frames over a solid hex background color (e.g. "#FF0000"))",
                {required("color", "string")},
                R"(set-background color "${1:#1a1a2e}")"},
       .parse = &P::parseSetBackground,
       .forms = {form<SetBackgroundInstruction>()}},
      {.info = {"target",
                "Attach to a native app or Safari window for unobtrusive element-driven demos",
                {choice("kind", {"window", "app"}), required("match", "string"),
                 optional("as", "variable")},
                R"(target app "${1:Name}" as \$${2:app})"},
       .parse = &P::parseTarget,
       .forms = {form<TargetInstruction>()},
       .platformNote = "Not on Linux: Safari windows"},
      {.info =
           {"fill",
            "Set the value of an element matched by target (falls back to keystrokes for fields "
            "that reject direct value-setting)",
            {required("target", "target"), required("text", "string"), optional("enter", "flag")},
            R"(fill ${1:text:Field} "${2:value}")"},
       .parse = &P::parseFill,
       .forms = {form<FillInstruction>(kElementAction)}},
      {.info = {"move-to",
                "Move the synthetic cursor to an element without clicking",
                {required("target", "target")},
                "move-to ${1:text:Label}"},
       .parse = &P::parseMoveTo,
       .forms = {form<MoveToInstruction>(kElementAction)}},
      {.info = {"wait-for",
                "Wait until an element matching the target appears (or timeout)",
                {required("target", "target"), optional("timeout", "number")},
                "wait-for ${1:text:Label} timeout ${2:10}"},
       .parse = &P::parseWaitFor,
       .forms = {form<WaitForInstruction>(kElementWait)}},
      {.info = {"wait-for-text",
                "Wait until text matching a regular expression shows in the recorded window "
                "(anywhere, or in its last line), or fail after the timeout",
                {required("pattern", "string"), optional("timeout", "number"),
                 choice("in", {"screen", "line"}, true)},
                R"(wait-for-text "${1:Done}" timeout ${2:15})"},
       .parse = &P::parseWaitForText,
       .forms = {form<WaitForTextInstruction>()}},
      {.info = {"browser",
                "Launch a browser session: chrome (CDP, CSS selectors) or safari (AX)",
                {choice("engine", {"chrome", "safari"}), required("url", "string"),
                 optional("as", "variable")},
                R"(browser chrome "${1:...}" as \$${2:b})"},
       .parse = &P::parseBrowser,
       .forms = {form<BrowserInstruction>({.startsBrowser = true})},
       .platformNote = "Not on Linux: browser safari (use browser chrome)"},
      {.info = {"navigate",
                "Navigate the active browser session to a URL",
                {required("url", "string"), optional("show-typing", "flag")},
                R"(navigate "${1:...}")"},
       .parse = &P::parseNavigate,
       .forms = {form<NavigateInstruction>(kAction)}},
      {.info = {"highlight",
                "Highlight an element (resolved by target) for a duration",
                {required("target", "target"), optional("duration", "number"),
                 choice("style", {"outline", "glow", "box"}, true)},
                "highlight ${1:text:Save} duration ${2:2.0} style ${3|outline,glow,box|}"},
       .parse = &P::parseHighlight,
       .forms = {form<HighlightInstruction>()}},
      {.info = {"zoom",
                "Zoom toward an element (digital Ken-Burns, or CDP page zoom for Chrome)",
                {required("target", "target"), optional("scale", "number"),
                 optional("duration", "number"), choice("mode", {"digital", "page"}, true)},
                "zoom ${1:text:Logo} scale ${2:2.0} duration ${3:0.6} mode ${4|digital,page|}"},
       .parse = &P::parseZoom,
       .forms = {form<ZoomInstruction>()}},
      {.info = {"zoom-out",
                "Return the zoom to 1.0",
                {optional("duration", "number")},
                "zoom-out duration ${1:0.5}"},
       .parse = &P::parseZoomOut,
       .forms = {form<ZoomOutInstruction>()}},
      {.info = {"hide",
                "Stop putting frames into the output; the lines that follow still run (setup "
                "steps)",
                {},
                "hide"},
       .parse = &P::parseBare<HideInstruction>,
       .forms = {form<HideInstruction>()}},
      {.info = {"show",
                "Put frames into the output again after 'hide', starting from the screen as it "
                "is now",
                {},
                "show"},
       .parse = &P::parseBare<ShowInstruction>,
       .forms = {form<ShowInstruction>()}},
      {.info = {"require",
                "Stop before anything opens unless a program is on PATH",
                {required("program", "string")},
                R"(require "${1:git}")"},
       .parse = &P::parseRequire,
       .forms = {form<RequireInstruction>()}},
      {.info = {"env",
                "Set an environment variable for the shell commands that follow",
                {required("name", "string"), required("value", "string")},
                R"(env ${1:NAME} "${2:value}")"},
       .parse = &P::parseEnv,
       .forms = {form<EnvInstruction>()}},
      {.info = {"screenshot",
                "Write the current picture of what is recorded (or of the target window, or the "
                "screen) to a PNG file",
                {required("path", "string")},
                R"(screenshot "${1:screenshot.png}")"},
       .parse = &P::parseScreenshot,
       .forms = {form<ScreenshotInstruction>()}},
      {.info = {"include",
                "Run the lines of another script here (a file beside this one)",
                {required("path", "string")},
                R"(include "${1:setup.brim}")"},
       .parse = &P::parseInclude,
       .forms = {form<IncludeInstruction>()}},
      {.info = {"output",
                "Write the render to one more file (.gif, .webp, .png, .mp4) or, ending in /, a "
                "folder of PNG frames; the first replaces the default output",
                {required("path", "string")},
                R"(output "${1:demo.mp4}")"},
       .parse = &P::parseOutput,
       .forms = {form<OutputInstruction>()}},
      {.info = {"caption",
                "Burn a subtitle into the frames from this moment (wrapped, on a plate; "
                "bottom by default)",
                {required("text", "string"), optional("duration", "number"),
                 choice("position", {"top", "bottom"}, true)},
                R"(caption "${1:Text}" duration ${2:3} position ${3|bottom,top|})"},
       .parse = &P::parseCaption,
       .forms = {form<CaptionInstruction>()}},
      {.info = {"chapter",
                "Mark a named chapter at this moment in the output's timeline",
                {required("name", "string")},
                R"(chapter "${1:Name}")"},
       .parse = &P::parseChapter,
       .forms = {form<ChapterInstruction>()}},
  };
}

}  // namespace

ScriptCommandTable::ScriptCommandTable() : commands_(makeCommands()) {
  for (const ScriptCommand& command : commands_) {
    byName_.emplace(command.info.name, &command);
    for (const InstructionForm& form : command.forms) {
      byAlternative_[form.alternative] = &command;
      traits_[form.alternative] = form.traits;
    }
  }
}

const ScriptCommandTable& ScriptCommandTable::shared() {
  static const ScriptCommandTable table;
  return table;
}

const ScriptCommand* ScriptCommandTable::find(std::string_view name) const {
  const auto found = byName_.find(name);
  return found != byName_.end() ? found->second : nullptr;
}

std::string_view commandName(const ScriptInstruction& instruction) {
  return ScriptCommandTable::shared().commandOf(instruction).info.name;
}

std::optional<std::string> unavailableOnThisPlatform(const ScriptInstruction& instruction) {
  if (std::holds_alternative<TapInstruction>(instruction)) {
    return kSimulatorUnavailable;
  }
  if (const auto* record = std::get_if<RecordInstruction>(&instruction);
      record != nullptr && record->target.kind == RecordTarget::Kind::simulator) {
    return kSimulatorUnavailable;
  }
  if (const auto* browser = std::get_if<BrowserInstruction>(&instruction);
      browser != nullptr && browser->engine == BrowserEngine::safari) {
    return kSafariUnavailable;
  }
  return std::nullopt;
}

std::vector<std::string> scriptCommandNames() {
  std::vector<std::string> names;
  for (const ScriptCommand& command : ScriptCommandTable::shared().commands()) {
    names.push_back(command.info.name);
  }
  return names;
}

std::vector<std::string> scriptSettingNames() {
  std::vector<std::string> names;
  for (const ScriptSettingInfo& setting : scriptSettingsTable()) {
    names.push_back(setting.name);
  }
  names.emplace_back("intro-bg");
  names.emplace_back("intro-fg");
  return names;
}

const std::vector<std::string>& scriptModifierNames() {
  static const std::vector<std::string> names = {
      "cmd", "command", "ctrl", "control", "shift", "alt", "opt", "option", "super", "meta", "win"};
  return names;
}

const std::vector<std::string>& scriptKeyNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> keys = {"enter",     "return",        "tab",   "space",  "delete",
                                     "escape",    "esc",           "up",    "down",   "left",
                                     "right",     "home",          "end",   "pageup", "pagedown",
                                     "backspace", "forwarddelete", "insert"};
    for (int number = 1; number <= 12; ++number) {
      keys.push_back("f" + std::to_string(number));
    }
    return keys;
  }();
  return names;
}

}  // namespace brimble
