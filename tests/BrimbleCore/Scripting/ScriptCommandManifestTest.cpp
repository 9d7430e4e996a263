// That every command is in the manifest and parses is checked in ScriptParserTest.cpp; its JSON
// form (choices only where there are some) and its round trip through `brimble commands --json`
// in tests/cli/ScriptCommandsTest.cpp.

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"

#include <string>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace brimble
