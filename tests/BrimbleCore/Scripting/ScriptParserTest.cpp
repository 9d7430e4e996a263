#include "BrimbleCore/Scripting/ScriptParser.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"
#include "tests/Support/ErrorText.h"

namespace brimble {
namespace {

using V = ScriptValue;

V num(double value) {
  return V::number(value);
}
V str(std::string text) {
  return V::string(std::move(text));
}
V var(std::string name) {
  return V::variable(std::move(name));
}
ScriptRect rect(double x, double y, double w, double h) {
  return {num(x), num(y), num(w), num(h)};
}

std::string parseError(const std::string& source) {
  return testing::errorText<ScriptError>([&] { ScriptParser::parse(source); });
}

// "Line L, Col C: message", then the source line and a caret under column C.
std::string located(int line, int column, const std::string& message, const std::string& text) {
  return "Line " + std::to_string(line) + ", Col " + std::to_string(column) + ": " + message +
         "\n  " + text + "\n  " + std::string(static_cast<std::size_t>(column - 1), ' ') + "^";
}

TEST(ScriptParser, EveryCommandParsesWhateverTheCaseAndTheOptionOrder) {
  const RecordInstruction window{
      {RecordTarget::Kind::window, "term", std::nullopt}, num(3), true, false};
  const SpotlightTarget line{SpotlightTarget::Kind::stdout, "out", 1, std::nullopt};
  const SpotlightTarget region{SpotlightTarget::Kind::region, "", 0, rect(0, 0, 100, 50)};
  const struct {
    std::string source;
    ScriptInstruction expected;
  } cases[] = {
      // Settings, applications and windows; command words and keywords in any case.
      {"set fps 30", SetInstruction{"fps", num(30)}},
      {"SET Output \"demo.gif\"", SetInstruction{"output", str("demo.gif")}},
      {"open Terminal", OpenInstruction{str("Terminal")}},
      {"focus $app", FocusInstruction{var("app")}},
      {"capture-window app \"Terminal\" as $term",
       CaptureWindowInstruction{{WindowReference::Kind::appName, str("Terminal")}, "term"}},
      {"Capture-Window ID 0x1A00007 AS $w",
       CaptureWindowInstruction{{WindowReference::Kind::windowID, num(0x1A00007)}, "w"}},
      {"capture-window id 1234",
       CaptureWindowInstruction{{WindowReference::Kind::windowID, num(1234)}, std::nullopt}},
      {"target window \"Inbox\" as $mail",
       TargetInstruction{TargetInstruction::Kind::window, str("Inbox"), "mail"}},
      {"target APP \"TextEdit\"",
       TargetInstruction{TargetInstruction::Kind::app, str("TextEdit"), std::nullopt}},
      // Recording: options after the target in any order.
      {"record $term duration 3.0 continue", window},
      {"Record $term CONTINUE Duration 3", window},
      {"record $w crop 0 10 400 300 audio",
       RecordInstruction{{RecordTarget::Kind::windowCrop, "w", rect(0, 10, 400, 300)},
                         std::nullopt,
                         false,
                         true}},
      {"record region 10 20 300 200 duration $d",
       RecordInstruction{
           {RecordTarget::Kind::region, "", rect(10, 20, 300, 200)}, var("d"), false, false}},
      {"record simulator duration 5",
       RecordInstruction{{RecordTarget::Kind::simulator, "", std::nullopt}, num(5), false, false}},
      {"stop", StopInstruction{}},
      {"remain", RemainInstruction{}},
      {"RENDER", RenderInstruction{}},
      {"clear", ClearInstruction{}},
      {"clear-fx", ClearFxInstruction{}},
      // Typing, keys and the pointer.
      {"type \"x\" DELAY 0.1 Enter", TypeInstruction{str("x"), true, num(0.1)}},
      {"type $out[1]", TypeInstruction{V::variableIndex("out", 1), false, std::nullopt}},
      {"key cmd+c", KeyInstruction{str("cmd+c")}},
      {"click right", ClickInstruction{std::nullopt, std::nullopt, true}},
      {"click RIGHT 10 20", ClickInstruction{num(10), num(20), true}},
      {"click \"text:Save As\" Right", ClickTargetInstruction{str("text:Save As"), true}},
      {"tap 100 200", TapInstruction{num(100), num(200)}},
      {"move 100 200", MoveInstruction{num(100), num(200), num(0.3)}},
      {"cursor 5 6", CursorInstruction{num(5), num(6)}},
      {"scroll down", ScrollInstruction{ScrollDirection::down, num(3)}},
      {"scroll \"left\" $n", ScrollInstruction{ScrollDirection::left, var("n")}},
      // Numbers may be quoted or come from variables; a string that names one stays a string.
      {"wait .5", WaitInstruction{num(0.5)}},
      {"wait \"1.5\"", WaitInstruction{num(1.5)}},
      {"wait \"$base\"", WaitInstruction{str("$base")}},
      {"wait-for-idle 2.0", WaitForIdleInstruction{num(2)}},
      {"resize \"800\" $h", ResizeInstruction{num(800), var("h")}},
      // Shell commands and spotlights.
      {"run \"ls\" as $out", RunInstruction{str("ls"), "out"}},
      {"spotlight stdout $out[1] duration 2", SpotlightInstruction{line, num(2)}},
      {"spotlight region 0 0 100 50", SpotlightInstruction{region, num(2)}},
      {"spotlight-shift STDOUT $out[1] Duration 1.5", SpotlightShiftInstruction{line, num(1.5)}},
      // Title cards, dialogs and the background (a colour that lexes as a number keeps six digits).
      {"intro \"Title\"", IntroInstruction{str("Title"), std::nullopt, std::nullopt}},
      {"outro \"Bye\" DURATION 2 Subtitle $who", OutroInstruction{str("Bye"), var("who"), num(2)}},
      {"dismiss-dialog button OK app Finder", DismissDialogInstruction{str("Finder"), str("OK")}},
      {"click-button-in-dialog app X Button Y", ClickButtonInDialogInstruction{str("Y"), str("X")}},
      {"set-background color 7", SetBackgroundInstruction{str("000007")}},
      // Element targets and the browser.
      {"fill text:Name \"Ada\" enter", FillInstruction{str("text:Name"), str("Ada"), true}},
      {"move-to text:Save", MoveToInstruction{str("text:Save")}},
      {"wait-for text:Done", WaitForInstruction{str("text:Done"), num(10)}},
      {"browser Safari \"u\" as $b", BrowserInstruction{BrowserEngine::safari, str("u"), "b"}},
      {"navigate \"u\" Show-Typing", NavigateInstruction{str("u"), true}},
      {"highlight text:Save",
       HighlightInstruction{str("text:Save"), num(2), HighlightStyle::outline}},
      {"highlight \"#a\" style GLOW duration 1",
       HighlightInstruction{str("#a"), num(1), HighlightStyle::glow}},
      {"zoom \"#login\"", ZoomInstruction{str("#login"), num(2), num(0.6), std::nullopt}},
      {"zoom x mode page scale 3 duration 1",
       ZoomInstruction{str("x"), num(3), num(1), ZoomMode::page}},
      {"zoom-out", ZoomOutInstruction{num(0.5)}},
      // Setup steps and what the script needs around it.
      {"HIDE", HideInstruction{}},
      {"show", ShowInstruction{}},
      {"require git", RequireInstruction{str("git")}},
      {"env LANG \"C.UTF-8\"", EnvInstruction{"LANG", str("C.UTF-8")}},
      {"screenshot \"shots/$n.png\"", ScreenshotInstruction{str("shots/$n.png")}},
      {"include \"setup.brim\"", IncludeInstruction{"setup.brim"}},
      {"Output \"demo.mp4\"", OutputInstruction{str("demo.mp4")}},
      {"set output \"demo.gif\" \"frames/\"",
       SetInstruction{"output", str("demo.gif"), {str("frames/")}}},
      // Captions and chapters.
      {"caption \"Hello\"", CaptionInstruction{str("Hello"), std::nullopt, false}},
      {"Caption $line POSITION Top Duration 2.5", CaptionInstruction{var("line"), num(2.5), true}},
      {"chapter \"Setup\"", ChapterInstruction{str("Setup")}},
      {"wait-for-text \"\\\\$ $\"", WaitForTextInstruction{str("\\$ $"), num(15), false}},
      {"Wait-For-Text Done IN Line timeout 3", WaitForTextInstruction{str("Done"), num(3), true}},
  };
  std::set<std::string> commands;
  for (const auto& [source, expected] : cases) {
    const std::vector<LocatedInstruction> parsed = ScriptParser::parse(source);
    ASSERT_EQ(parsed.size(), 1u) << source;
    EXPECT_TRUE(parsed[0].instruction == expected)
        << source << " parsed as alternative " << parsed[0].instruction.index() << ", expected "
        << expected.index();
    std::string word = source.substr(0, source.find(' '));
    std::transform(word.begin(), word.end(), word.begin(), ::tolower);
    EXPECT_EQ(commandName(parsed[0].instruction), word);
    commands.insert(word);
  }
  // Every command of the manifest has a case here.
  EXPECT_EQ(commands, std::set<std::string>(commandKeywords().begin(), commandKeywords().end()));
}

TEST(ScriptParser, EachErrorNamesTheProblemAndPointsAtItsToken) {
  const struct {
    std::string source;
    int column;
    std::string message;
  } cases[] = {
      // Commands and the end of the line.
      {"\"hello\" world", 1, "Expected command"},
      {"BOGUS", 1, "Unknown command 'BOGUS'"},
      {"wait", 1, "Unexpected end of line"},
      {"record $w duration", 1, "Unexpected end of line"},
      {"wait 1 2", 8, "Unexpected '2' in wait"},
      {"type hello world", 12, "Unexpected 'world' in type\n  expected enter or delay"},
      {"run ls -la", 8, "Unexpected '-la' in run\n  expected as $variable"},
      {"record $w duration 3 loop", 22,
       "Unexpected 'loop' in record\n  expected duration, continue or audio"},
      {"click 10 20 30", 13, "Unexpected '30' in click\n  expected <x> <y>, <target> or right"},
      // Missing arguments.
      {"type", 1, "'type' requires text"},
      {"tap 1", 1, "'tap' requires x y (device framebuffer pixels)"},
      {"record", 1, "'record' requires window variable or 'region'"},
      {"record window", 8, "'record' requires window variable or 'region'"},
      {"record $w crop 1 2 3 duration 3", 22, "'record' requires x y w h"},
      {"capture-window", 1, "'capture-window' requires target specification"},
      {"spotlight-shift region 1 2 x 4", 28, "'spotlight-shift' requires x y width height"},
      {"dismiss-dialog app", 1, "'dismiss-dialog' requires app name"},
      {"browser firefox \"u\"", 9, "'browser' requires browser engine"},
      {"fill text:Name", 1, "'fill' requires text"},
      {"set fps", 1, "'set' requires key and value"},
      {"target window", 1, "'target' requires window \"Match\""},
      {"click 10", 1, "'click' requires x y"},
      // Invalid values name the value and what it was for.
      {"wait-for text:Done timeout soon", 28,
       "Invalid value 'soon' for 'wait-for timeout'\n  expected a number"},
      {"highlight x style dotted", 19,
       "Invalid value 'dotted' for 'highlight style'\n  expected outline|glow|box"},
      {"zoom \"#login\" mode tilt", 20,
       "Invalid value 'tilt' for 'zoom mode'\n  expected digital|page"},
      {"wait two", 6, "Invalid value 'two' for 'wait seconds'\n  expected a number"},
      {"capture-window id main", 19,
       "Invalid value 'main' for 'capture-window id'\n  expected a number"},
      {"scroll sideways", 8,
       "Invalid value 'sideways' for 'scroll direction'\n  expected up|down|left|right"},
      {"spotlight line 3", 11,
       "Invalid value 'line' for 'spotlight target'\n  expected stdout|region"},
      {"caption \"Hi\" position middle", 23,
       "Invalid value 'middle' for 'caption position'\n  expected top|bottom"},
      {"caption \"Hi\" duration long", 23,
       "Invalid value 'long' for 'caption duration'\n  expected a number"},
      {"caption", 1, "'caption' requires caption text"},
      {"chapter", 1, "'chapter' requires chapter name"},
      {"wait-for-text x in window", 20,
       "Invalid value 'window' for 'wait-for-text scope'\n  expected screen|line"},
      {"chapter \"A\" \"B\"", 13, "Unexpected 'B' in chapter"},
      // Keyword and variable clauses.
      {"record simulator duration 5 AUDIO", 29,
       "simctl captures no audio, so 'audio' cannot be used with 'record simulator'."},
      {"capture-window window \"x\"", 16, "Expected 'app' or 'id', got 'window'"},
      {"capture-window app \"T\" as term", 27, "'as' must be followed by $variable"},
      {"target tab \"x\"", 8, "Expected 'window' or 'app', got 'tab'"},
      {"spotlight stdout $out", 18, "Expected $variable[N] for stdout target"},
      {"dismiss-dialog button OK button Cancel", 26,
       "Duplicate 'button' keyword in dismiss-dialog"},
      {"dismiss-dialog cancel", 16,
       "Unexpected keyword 'cancel' in dismiss-dialog (expected 'app' or 'button')"},
      {"dismiss-dialog", 1, "Expected 'app' or 'button' keyword in dismiss-dialog"},
      {"record $w duration 1 duration 2", 22, "Duplicate 'duration' keyword in record"},
      {"set-background red", 16, "Expected 'color', got 'red'"},
      {"set", 1, "Expected setting name"},
  };
  for (const auto& [source, column, message] : cases) {
    EXPECT_EQ(parseError(source), located(1, column, message, source)) << source;
  }
}

TEST(ScriptParser, LinesAreNumberedAsTheLexerCountsThemEvenInCRLFFiles) {
  EXPECT_EQ(ScriptParser::parse("# demo\r\nset fps 24   # slower\r\n\r\n  wait 1\r\n"),
            (std::vector<LocatedInstruction>{{SetInstruction{"fps", num(24)}, 3, "set fps 24"},
                                             {WaitInstruction{num(1)}, 7, "wait 1"}}));
  EXPECT_TRUE(ScriptParser::parse("# nothing\n\n").empty());
  EXPECT_EQ(parseError("wait 1\r\nwait 2\r\n  bogus  # typo\r\n"),
            located(5, 1, "Unknown command 'bogus'", "bogus"));
  // Lexical errors come through unchanged.
  EXPECT_EQ(parseError("stop\ntype \"abc"), located(2, 6, "Unterminated string", "type \"abc"));
}

}  // namespace
}  // namespace brimble
