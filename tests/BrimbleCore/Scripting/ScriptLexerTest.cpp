#include "BrimbleCore/Scripting/ScriptLexer.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"

namespace brimble {
namespace {

std::vector<Token> lineTokens(const std::string& source) {
  std::vector<Token> tokens = ScriptLexer::tokenize(source);
  EXPECT_FALSE(tokens.empty()) << source;
  if (!tokens.empty()) {
    EXPECT_EQ(tokens.front(), Token::newline()) << source;
    tokens.erase(tokens.begin());
  }
  return tokens;
}

std::string lexError(const std::string& source) {
  try {
    ScriptLexer::tokenizeLocated(source);
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.code(), ScriptError::Code::annotated);
    return error.what();
  }
  ADD_FAILURE() << "no error for " << source;
  return {};
}

TEST(ScriptLexer, StringEscapesResolveAndQuotesAreRemoved) {
  EXPECT_EQ(lineTokens(R"(type "say \"hi\"\n")"),
            (std::vector<Token>{Token::word("type"), Token::string("say \"hi\"\n")}));
  EXPECT_EQ(lineTokens(R"(type "a\tb\\c\xd")"),
            (std::vector<Token>{Token::word("type"), Token::string("a\tb\\cxd")}));
  EXPECT_EQ(lineTokens(R"(type "")"), (std::vector<Token>{Token::word("type"), Token::string("")}));
  // A string ends at its closing quote even when a word follows without a blank.
  EXPECT_EQ(lineTokens(R"(type "ab"cd)"),
            (std::vector<Token>{Token::word("type"), Token::string("ab"), Token::word("cd")}));
}

TEST(ScriptLexer, HashStartsACommentOnlyAfterABlankAndOutsideQuotes) {
  EXPECT_EQ(
      lineTokens(R"(set intro-bg "#1a1a2e")"),
      (std::vector<Token>{Token::word("set"), Token::word("intro-bg"), Token::string("#1a1a2e")}));
  EXPECT_EQ(lineTokens("click 10 20#x"),
            (std::vector<Token>{Token::word("click"), Token::number(10), Token::word("20#x")}));
  EXPECT_EQ(lineTokens("click 10 20 #x"),
            (std::vector<Token>{Token::word("click"), Token::number(10), Token::number(20)}));
  EXPECT_EQ(lineTokens("wait 1\t# pause"),
            (std::vector<Token>{Token::word("wait"), Token::number(1)}));
}

TEST(ScriptLexer, StripInlineCommentKeepsQuotedAndGluedHashes) {
  EXPECT_EQ(ScriptLexer::stripInlineComment("wait 1 # pause"), "wait 1");
  EXPECT_EQ(ScriptLexer::stripInlineComment(R"(type "a # b"   # c)"), R"(type "a # b")");
  EXPECT_EQ(ScriptLexer::stripInlineComment("a#b # c"), "a#b");
  EXPECT_EQ(ScriptLexer::stripInlineComment("# all of it"), "");
  // An escaped quote does not close the string, so the hash is still inside it.
  EXPECT_EQ(ScriptLexer::stripInlineComment(R"(type "a\" # b")"), R"(type "a\" # b")");
}

TEST(ScriptLexer, VariablesAndIndexedVariables) {
  EXPECT_EQ(lineTokens("type $out_2[10] $name"),
            (std::vector<Token>{Token::word("type"), Token::variableIndex("out_2", 10),
                                Token::variable("name")}));
  // The name ends at the first character that cannot be part of it.
  EXPECT_EQ(lineTokens("type $a-b"),
            (std::vector<Token>{Token::word("type"), Token::variable("a"), Token::word("-b")}));
  EXPECT_EQ(lineTokens("key a$b"), (std::vector<Token>{Token::word("key"), Token::word("a$b")}));
}

TEST(ScriptLexer, EachLexicalErrorIsLocatedAtItsTokenWithACaret) {
  EXPECT_EQ(lexError("type $"),
            "Line 1, Col 6: Expected variable name after $\n  type $\n       ^");
  EXPECT_EQ(lexError("type $ x"),
            "Line 1, Col 6: Expected variable name after $\n  type $ x\n       ^");
  EXPECT_EQ(lexError("$[0]"), "Line 1, Col 1: Expected variable name after $\n  $[0]\n  ^");
  EXPECT_EQ(lexError("type $v[]"), "Line 1, Col 6: Invalid array index\n  type $v[]\n       ^");
  EXPECT_EQ(lexError("type $v[a]"), "Line 1, Col 6: Invalid array index\n  type $v[a]\n       ^");
  EXPECT_EQ(lexError("type $v[99999999999]"),
            "Line 1, Col 6: Invalid array index\n  type $v[99999999999]\n       ^");
  EXPECT_EQ(lexError("type $v[3"),
            "Line 1, Col 6: Expected ] in variable index\n  type $v[3\n       ^");
  EXPECT_EQ(lexError("wait 1\n\n  type  \"abc   "),
            "Line 3, Col 7: Unterminated string\n  type  \"abc\n        ^");
  EXPECT_EQ(lexError(R"(type "abc\)"),
            "Line 1, Col 6: Unterminated string\n  type \"abc\\\n       ^");
}

TEST(ScriptLexer, ColumnsCountCharactersOfTheTrimmedLine) {
  const LexResult result = ScriptLexer::tokenizeLocated("   wait 1");
  EXPECT_EQ(result.tokens,
            (std::vector<LocatedToken>{
                {Token::newline(), 1, 1}, {Token::word("wait"), 1, 1}, {Token::number(1), 1, 6}}));
  // "é" is two bytes and one character.
  EXPECT_EQ(lexError("type \"héllo\" $"),
            "Line 1, Col 14: Expected variable name after $\n  type \"héllo\" $\n"
            "               ^");
}

TEST(ScriptLexer, BlankAndCommentLinesProduceNothingButStillCount) {
  const LexResult result = ScriptLexer::tokenizeLocated("\n   \n# note\n  # indented\nstop\n\t\n");
  EXPECT_EQ(result.tokens,
            (std::vector<LocatedToken>{{Token::newline(), 5, 1}, {Token::word("stop"), 5, 1}}));
  EXPECT_EQ(result.lineTexts, (std::map<int, std::string>{{5, "stop"}}));
  EXPECT_TRUE(ScriptLexer::tokenize("").empty());
  EXPECT_TRUE(ScriptLexer::tokenize("# only\n\n").empty());
}

TEST(ScriptLexer, EveryLineSeparatorCountsSoCRLFLinesAreOdd) {
  const LexResult crlf = ScriptLexer::tokenizeLocated("stop\r\nrender\r\nstop # end\r\n");
  EXPECT_EQ(crlf.tokens, (std::vector<LocatedToken>{{Token::newline(), 1, 1},
                                                    {Token::word("stop"), 1, 1},
                                                    {Token::newline(), 3, 1},
                                                    {Token::word("render"), 3, 1},
                                                    {Token::newline(), 5, 1},
                                                    {Token::word("stop"), 5, 1}}));
  EXPECT_EQ(crlf.lineTexts, (std::map<int, std::string>{{1, "stop"}, {3, "render"}, {5, "stop"}}));

  // CR alone, VT, FF, NEL, LINE SEPARATOR and PARAGRAPH SEPARATOR each end a line.
  const LexResult mixed = ScriptLexer::tokenizeLocated(
      "a\rb\vc\fd\xC2\x85"
      "e\xE2\x80\xA8"
      "f\xE2\x80\xA9g");
  std::vector<int> lines;
  for (const LocatedToken& token : mixed.tokens) {
    if (token.token.kind == Token::Kind::word) {
      lines.push_back(token.line);
    }
  }
  EXPECT_EQ(lines, (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
}

TEST(ScriptLexer, AByteOrderMarkIsNotPartOfTheFirstCommand) {
  EXPECT_EQ(ScriptLexer::tokenize("\xEF\xBB\xBFstop"),
            (std::vector<Token>{Token::newline(), Token::word("stop")}));
}

TEST(ScriptLexer, AWordIsANumberOnlyWhenAllOfItIsADecimalNumber) {
  struct Case {
    std::string word;
    std::optional<double> number;
  };
  const std::vector<Case> cases = {
      {"3", 3},      {"0.5", 0.5}, {"-2", -2},  {"1e3", 1000},    {"-0.25", -0.25},
      {".5", 0.5},   {"+2", 2},    {"1.", 1},   {"2.5E-1", 0.25}, {"001122", 1122},
      {"1.2.3", {}}, {"inf", {}},  {"nan", {}}, {"infinity", {}}, {"0x10", {}},
      {"1e", {}},    {"-", {}},    {".", {}},   {"1e999", {}},    {"3s", {}},
      {"cmd+c", {}}, {"--1", {}},
  };
  for (const Case& c : cases) {
    const std::vector<Token> tokens = lineTokens("key " + c.word);
    ASSERT_EQ(tokens.size(), 2u) << c.word;
    if (c.number) {
      EXPECT_EQ(tokens[1], Token::number(*c.number)) << c.word;
    } else {
      EXPECT_EQ(tokens[1], Token::word(c.word)) << c.word;
    }
  }
}

TEST(ScriptLexer, TokenDescriptionsReadAsWritten) {
  EXPECT_EQ(Token::word("cmd+c").description(), "cmd+c");
  EXPECT_EQ(Token::string("a b").description(), "a b");
  EXPECT_EQ(Token::number(3).description(), "3");
  EXPECT_EQ(Token::number(0.25).description(), "0.25");
  EXPECT_EQ(Token::number(-1.5).description(), "-1.5");
  EXPECT_EQ(Token::variable("out").description(), "$out");
  EXPECT_EQ(Token::variableIndex("out", 2).description(), "$out[2]");
}

TEST(ScriptLexer, EqualityIsPerCase) {
  EXPECT_NE(Token::word("3"), Token::string("3"));
  EXPECT_NE(Token::variable("a"), Token::word("a"));
  EXPECT_NE(Token::variableIndex("a", 0), Token::variable("a"));
  EXPECT_EQ(Token::variableIndex("a", 1), Token::variableIndex("a", 1));
}

}  // namespace
}  // namespace brimble
