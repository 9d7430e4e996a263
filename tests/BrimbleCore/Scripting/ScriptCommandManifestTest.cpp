// That every command is in the manifest and parses is checked in ScriptParserTest.cpp; the
// descriptions and snippets are data, shown by `brimble commands`
// (tests/cli/ScriptCommandsTest.cpp).

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"

#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Scripting/ScriptParser.h"

namespace brimble {
namespace {

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

TEST(ScriptCommandManifest, JSONOmitsAbsentChoicesAndRoundTrips) {
  const nlohmann::json document = nlohmann::json::parse(commandManifest().encodeJSON());
  EXPECT_EQ(document.at("version"), 1);
  EXPECT_EQ(document.at("keywords").size(), 37u);
  EXPECT_EQ(document.at("commands").at(11), nlohmann::json::parse(R"({"name": "scroll",
      "description": "Simulate scroll wheel in a direction",
      "args": [{"name": "direction", "type": "string", "optional": false,
                "choices": ["up", "down", "left", "right"]},
               {"name": "ticks", "type": "number", "optional": true}],
      "snippet": "scroll ${1|up,down,left,right|} ${2:3}"})"));
  EXPECT_EQ(ScriptCommandManifest::decodeJSON(commandManifest().encodeJSON(2)), commandManifest());
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
      EXPECT_TRUE(std::string(error.what()).starts_with("Malformed command manifest: [json."))
          << error.what();
    }
  }
}

}  // namespace
}  // namespace brimble
