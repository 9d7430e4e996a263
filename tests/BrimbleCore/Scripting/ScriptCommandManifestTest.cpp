#include "BrimbleCore/Scripting/ScriptCommandManifest.h"

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Scripting/ScriptParser.h"

namespace brimble {
namespace {

const ScriptCommandSpec& spec(const std::string& name) {
  for (const ScriptCommandSpec& command : commandManifest().commands) {
    if (command.name == name) {
      return command;
    }
  }
  throw std::runtime_error("no command " + name);
}

TEST(ScriptCommandManifest, ListsEveryCommandInOrderWithItsKeyword) {
  const std::vector<std::string> expected = {"set",
                                             "open",
                                             "focus",
                                             "capture-window",
                                             "record",
                                             "stop",
                                             "type",
                                             "click",
                                             "tap",
                                             "move",
                                             "cursor",
                                             "scroll",
                                             "key",
                                             "wait",
                                             "wait-for-idle",
                                             "run",
                                             "spotlight",
                                             "spotlight-shift",
                                             "clear-fx",
                                             "remain",
                                             "render",
                                             "clear",
                                             "resize",
                                             "intro",
                                             "outro",
                                             "dismiss-dialog",
                                             "click-button-in-dialog",
                                             "set-background",
                                             "target",
                                             "fill",
                                             "move-to",
                                             "wait-for",
                                             "browser",
                                             "navigate",
                                             "highlight",
                                             "zoom",
                                             "zoom-out"};
  std::vector<std::string> names;
  for (const ScriptCommandSpec& command : commandManifest().commands) {
    names.push_back(command.name);
  }
  EXPECT_EQ(names, expected);
  EXPECT_EQ(commandKeywords(), expected);
  EXPECT_EQ(commandManifest().version, 1);
}

TEST(ScriptCommandManifest, EveryCommandIsOneTheParserKnows) {
  for (const std::string& name : commandKeywords()) {
    try {
      ScriptParser::parse(name);
    } catch (const ScriptError& error) {
      EXPECT_EQ(std::string(error.what()).find("Unknown command"), std::string::npos)
          << name << ": " << error.what();
    }
  }
}

TEST(ScriptCommandManifest, DescriptionsAreExact) {
  EXPECT_EQ(spec("set").description, "Set a script setting (fps, output, max-width, etc.)");
  EXPECT_EQ(spec("record").description,
            "Record a window, screen region, window sub-region, or iOS Simulator "
            "(duration/continue; audio for MP4, not available for simulator)");
  EXPECT_EQ(spec("tap").description,
            "Tap the iOS Simulator at a device framebuffer pixel (the coordinates simctl "
            "screenshots use). Brings the Simulator to the front, so it steals focus.");
  EXPECT_EQ(spec("clear").description, "Send Ctrl+L to clear the target window");
  EXPECT_EQ(spec("set-background").description,
            "Composite frames over a solid hex background color (e.g. \"#FF0000\")");
  EXPECT_EQ(spec("fill").description,
            "Set the value of an element matched by target (falls back to keystrokes for fields "
            "that reject direct value-setting)");
  EXPECT_EQ(spec("zoom-out").description, "Return the zoom to 1.0");
}

TEST(ScriptCommandManifest, SnippetsCarryDefaultsAndEscapedDollars) {
  EXPECT_EQ(spec("record").snippet, "record \\$${1:win} duration ${2:3.0} continue");
  EXPECT_EQ(spec("scroll").snippet, "scroll ${1|up,down,left,right|} ${2:3}");
  EXPECT_EQ(spec("capture-window").snippet, "capture-window app \"${1:Terminal}\" as \\$${2:win}");
  EXPECT_EQ(spec("browser").snippet, "browser chrome \"${1:...}\" as \\$${2:b}");
  EXPECT_EQ(spec("highlight").snippet,
            "highlight ${1:text:Save} duration ${2:2.0} style ${3|outline,glow,box|}");
  EXPECT_EQ(spec("zoom").snippet,
            "zoom ${1:text:Logo} scale ${2:2.0} duration ${3:0.6} mode ${4|digital,page|}");
  EXPECT_EQ(spec("fill").snippet, "fill ${1:text:Field} \"${2:value}\"");
  EXPECT_EQ(spec("dismiss-dialog").snippet, "dismiss-dialog button \"${1:OK}\"");
}

// Each snippet with its placeholders filled in is a line the parser accepts.
TEST(ScriptCommandManifest, FilledInSnippetsParse) {
  for (const ScriptCommandSpec& command : commandManifest().commands) {
    std::string line;
    const std::string& snippet = command.snippet;
    for (std::size_t i = 0; i < snippet.size(); ++i) {
      if (snippet.compare(i, 2, "\\$") == 0) {
        line += '$';
        ++i;
      } else if (snippet.compare(i, 2, "${") == 0) {
        const std::size_t close = snippet.find('}', i);
        const std::string body = snippet.substr(i + 2, close - i - 2);
        const std::size_t mark = body.find_first_of(":|");
        std::string value = body.substr(mark + 1);
        if (body[mark] == '|') {
          value = value.substr(0, value.find(','));
        }
        line += value == "x" || value == "y" || value == "w" || value == "h" ? "10" : value;
        i = close;
      } else {
        line += snippet[i];
      }
    }
    EXPECT_NO_THROW(ScriptParser::parse(line)) << line;
  }
}

TEST(ScriptCommandManifest, ChoicesAreListedForRestrictedArguments) {
  const auto choicesOf = [](const std::string& command, const std::string& arg) {
    for (const ScriptArgSpec& spec : spec(command).args) {
      if (spec.name == arg) {
        return spec.choices;
      }
    }
    return std::optional<std::vector<std::string>>();
  };
  EXPECT_EQ(choicesOf("scroll", "direction"),
            (std::vector<std::string>{"up", "down", "left", "right"}));
  EXPECT_EQ(choicesOf("highlight", "style"), (std::vector<std::string>{"outline", "glow", "box"}));
  EXPECT_EQ(choicesOf("zoom", "mode"), (std::vector<std::string>{"digital", "page"}));
  EXPECT_EQ(choicesOf("type", "text"), std::nullopt);
  EXPECT_EQ(spec("wait").args,
            (std::vector<ScriptArgSpec>{{"seconds", "number", false, std::nullopt}}));
}

TEST(ScriptCommandManifest, JSONOmitsAbsentChoicesAndRoundTrips) {
  const nlohmann::json document = nlohmann::json::parse(commandManifest().encodeJSON());
  EXPECT_EQ(document.at("version"), 1);
  EXPECT_EQ(document.at("keywords").size(), 37u);
  const nlohmann::json& scroll = document.at("commands").at(11);
  EXPECT_EQ(scroll.at("name"), "scroll");
  EXPECT_EQ(scroll.at("args").at(0),
            nlohmann::json::parse(R"({"name": "direction", "type": "string", "optional": false,
                                      "choices": ["up", "down", "left", "right"]})"));
  EXPECT_EQ(scroll.at("args").at(1),
            nlohmann::json::parse(R"({"name": "ticks", "type": "number", "optional": true})"));

  EXPECT_EQ(ScriptCommandManifest::decodeJSON(commandManifest().encodeJSON(2)), commandManifest());
}

TEST(ScriptCommandManifest, DecodesAManifestWithoutChoiceKeys) {
  const ScriptCommandManifest decoded = ScriptCommandManifest::decodeJSON(R"({
    "version": 2,
    "commands": [{"name": "wait", "description": "Pause", "snippet": "wait ${1:1}",
                  "args": [{"name": "seconds", "type": "number", "optional": false}]}],
    "keywords": ["wait"]})");
  const ScriptCommandManifest expected{
      2,
      {{"wait", "Pause", {{"seconds", "number", false, std::nullopt}}, "wait ${1:1}"}},
      {"wait"}};
  EXPECT_EQ(decoded, expected);
}

TEST(ScriptCommandManifest, MalformedDocumentsAreRefused) {
  for (const std::string text :
       {"", "[]", "{\"version\": 1}", "{\"version\": \"1\", \"commands\": [], \"keywords\": []}",
        R"({"version": 1, "commands": [{"name": "x"}], "keywords": []})"}) {
    try {
      ScriptCommandManifest::decodeJSON(text);
      ADD_FAILURE() << "accepted " << text;
    } catch (const ScriptManifestError& error) {
      EXPECT_EQ(error.code(), ScriptManifestError::Code::malformed);
      EXPECT_EQ(std::string(error.what()).rfind("Malformed command manifest: ", 0), 0u)
          << error.what();
    }
  }
}

}  // namespace
}  // namespace brimble
