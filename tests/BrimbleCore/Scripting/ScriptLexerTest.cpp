#include "BrimbleCore/Scripting/ScriptLexer.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "tests/Support/ErrorText.h"

namespace brimble {
namespace {

using Tokens = std::vector<Token>;

/// The tokens of a one-line script, without the line's opening `newline` marker.
Tokens lineTokens(const std::string& source) {
  Tokens tokens = ScriptLexer::tokenize(source);
  EXPECT_FALSE(tokens.empty()) << source;
  if (!tokens.empty()) {
    EXPECT_EQ(tokens.front(), Token::newline()) << source;
    tokens.erase(tokens.begin());
  }
  return tokens;
}

TEST(ScriptLexer, StringsVariablesAndCommentsBecomeTheirTokens) {
  const std::pair<std::string, Tokens> cases[] = {
      {R"(type "say \"hi\"\n")", {Token::word("type"), Token::string("say \"hi\"\n")}},
      {R"(type "a\tb\\c\xd" "")",
       {Token::word("type"), Token::string("a\tb\\cxd"), Token::string("")}},
      {R"(type "ab"cd)", {Token::word("type"), Token::string("ab"), Token::word("cd")}},
      // An escaped dollar sign is marked where it stands, so it names no variable.
      {R"(type "\$a $b \\$c")",
       {Token::word("type"), Token::string("$a $b \\$c", {0})}},
      // A hash starts a comment only after a blank and outside quotes.
      {R"(set intro-bg "#1a1a2e" # colour)",
       {Token::word("set"), Token::word("intro-bg"), Token::string("#1a1a2e")}},
      {"click 10 20#x", {Token::word("click"), Token::number(10), Token::word("20#x")}},
      {"wait 1\t# pause", {Token::word("wait"), Token::number(1)}},
      {"type $out_2[10] $name $a-b a$b",
       {Token::word("type"), Token::variableIndex("out_2", 10), Token::variable("name"),
        Token::variable("a"), Token::word("-b"), Token::word("a$b")}},
  };
  for (const auto& [source, tokens] : cases) {
    EXPECT_EQ(lineTokens(source), tokens) << source;
  }
  // An escaped quote does not close the string, so the hash is still inside it.
  EXPECT_EQ(ScriptLexer::stripInlineComment(R"(type "a\" # b")"), R"(type "a\" # b")");
}

TEST(ScriptLexer, AWordIsANumberOnlyWhenAllOfItIsADecimalNumber) {
  const std::pair<std::string, std::optional<double>> cases[] = {
      {"3", 3},      {"0.5", 0.5}, {"-2", -2},  {"1e3", 1000},    {"-0.25", -0.25},
      {".5", 0.5},   {"+2", 2},    {"1.", 1},   {"2.5E-1", 0.25}, {"001122", 1122},
      {"1.2.3", {}}, {"inf", {}},  {"nan", {}}, {"infinity", {}}, {"0x10", {}},
      {"1e", {}},    {"-", {}},    {".", {}},   {"1e999", {}},    {"3s", {}},
      {"cmd+c", {}}, {"--1", {}},
  };
  for (const auto& [word, number] : cases) {
    EXPECT_EQ(lineTokens("key " + word).at(1), number ? Token::number(*number) : Token::word(word))
        << word;
  }
}

TEST(ScriptLexer, EveryLineSeparatorCountsAndBlankAndCommentLinesProduceNothing) {
  const LexResult crlf = ScriptLexer::tokenizeLocated(
      "\xEF\xBB\xBF"
      "stop\r\n   \r\n# note\r\n  render  # now\r\n");
  EXPECT_EQ(crlf.tokens, (std::vector<LocatedToken>{{Token::newline(), 1, 1},
                                                    {Token::word("stop"), 1, 1},
                                                    {Token::newline(), 7, 1},
                                                    {Token::word("render"), 7, 1}}));
  EXPECT_EQ(crlf.lineTexts, (std::map<int, std::string>{{1, "stop"}, {7, "render"}}));
  EXPECT_TRUE(ScriptLexer::tokenize("# only\n\n\t\n").empty());
  // CR alone, VT, FF, NEL, LINE SEPARATOR and PARAGRAPH SEPARATOR each end a line.
  std::vector<int> lines;
  for (const LocatedToken& token : ScriptLexer::tokenizeLocated("a\rb\vc\fd\xC2\x85"
                                                                "e\xE2\x80\xA8"
                                                                "f\xE2\x80\xA9g")
                                       .tokens) {
    if (token.token.kind == Token::Kind::word) {
      lines.push_back(token.line);
    }
  }
  EXPECT_EQ(lines, (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
}

TEST(ScriptLexer, EachLexicalErrorIsLocatedAtItsTokenCountingCharacters) {
  const struct {
    std::string source;
    std::string located;
  } cases[] = {
      {"type $ x", "Line 1, Col 6: Expected variable name after $\n  type $ x\n       ^"},
      {"type $v[]", "Line 1, Col 6: Invalid array index\n  type $v[]\n       ^"},
      {"type $v[99999999999]",
       "Line 1, Col 6: Invalid array index\n  type $v[99999999999]\n       ^"},
      {"type $v[3", "Line 1, Col 6: Expected ] in variable index\n  type $v[3\n       ^"},
      {"wait 1\n\n  type  \"abc   ",
       "Line 3, Col 7: Unterminated string\n  type  \"abc\n        ^"},
      {R"(type "abc\)", "Line 1, Col 6: Unterminated string\n  type \"abc\\\n       ^"},
      // "é" is two bytes and one character.
      {"type \"héllo\" $",
       "Line 1, Col 14: Expected variable name after $\n  type \"héllo\" $\n               ^"},
  };
  for (const auto& [source, located] : cases) {
    EXPECT_EQ(testing::errorText<ScriptError>([&] { ScriptLexer::tokenizeLocated(source); }),
              located);
  }
}

}  // namespace
}  // namespace brimble
