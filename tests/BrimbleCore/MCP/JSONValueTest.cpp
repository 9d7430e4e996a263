#include "BrimbleCore/MCP/JSONValue.h"

#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace brimble {
namespace {

JSONCodingError::Code decodeErrorCode(const std::string& text) {
  try {
    JSONValue::decode(text);
  } catch (const JSONCodingError& error) {
    return error.code();
  }
  ADD_FAILURE() << "decoded: " << text;
  return JSONCodingError::Code::cannotDecode;
}

TEST(JSONValue, DecodesEveryCase) {
  const JSONValue value = JSONValue::decode(
      R"({"s":"text","n":-2.5,"i":30,"t":true,"f":false,"a":[1,"x"],"o":{},"z":null})");
  EXPECT_EQ(value["s"].kind(), JSONValue::Kind::string);
  EXPECT_EQ(*value["s"].stringValue(), "text");
  EXPECT_EQ(value["n"].numberValue(), -2.5);
  // Integers arrive as numbers: there is no integer case.
  EXPECT_EQ(value["i"].kind(), JSONValue::Kind::number);
  EXPECT_EQ(value["i"].numberValue(), 30.0);
  EXPECT_EQ(value["t"].boolValue(), true);
  EXPECT_EQ(value["f"].boolValue(), false);
  ASSERT_NE(value["a"].arrayValue(), nullptr);
  EXPECT_EQ(*value["a"].arrayValue(), (JSONValue::Array{1, "x"}));
  EXPECT_EQ(value["o"].kind(), JSONValue::Kind::object);
  EXPECT_TRUE(value["z"].isNull());
  // A missing member, or a member of something that is not an object, reads as null.
  EXPECT_TRUE(value["missing"].isNull());
  EXPECT_TRUE(value["s"]["deeper"].isNull());
}

TEST(JSONValue, LiteralsOfEveryKindBuildValues) {
  const JSONValue schema = JSONValue::Object{
      {"type", "object"},
      {"count", 3},
      {"ratio", 0.5},
      {"strict", true},
      {"required", JSONValue::Array{"name", std::string("app"), std::string_view("x")}},
      {"default", nullptr},
  };
  EXPECT_EQ(schema.encode(),
            R"({"count":3,"default":null,"ratio":0.5,"required":["name","app","x"],)"
            R"("strict":true,"type":"object"})");
  EXPECT_EQ(JSONValue(std::int64_t{-7}).encode(), "-7");
  EXPECT_EQ(JSONValue(false).encode(), "false");
  EXPECT_EQ(JSONValue().encode(), "null");
}

TEST(JSONValue, WholeNumbersAreWrittenWithoutAFraction) {
  EXPECT_EQ(JSONValue(30.0).encode(), "30");
  EXPECT_EQ(JSONValue(-1.0).encode(), "-1");
  EXPECT_EQ(JSONValue(1e15).encode(), "1000000000000000");
  EXPECT_EQ(JSONValue(0.1).encode(), "0.1");
  EXPECT_EQ(JSONValue(2.5e-8).encode(), "2.5e-08");
  // Past the 64-bit integers a whole number keeps floating-point notation.
  EXPECT_EQ(JSONValue(1e300).encode(), "1e+300");
  EXPECT_EQ(JSONValue::decode("12.0").encode(), "12");
}

TEST(JSONValue, EncodingIsCompactWithSortedKeysOrPrettyOnRequest) {
  const JSONValue value = JSONValue::decode(R"({"b":1,"a":{"d":[true],"c":"é"}})");
  EXPECT_EQ(value.encode(), R"({"a":{"c":"é","d":[true]},"b":1})");
  EXPECT_EQ(
      value.encode(JSONValue::Style::pretty),
      "{\n  \"a\": {\n    \"c\": \"é\",\n    \"d\": [\n      true\n    ]\n  },\n  \"b\": 1\n}");
  EXPECT_EQ(JSONValue("quote \" and \n newline").encode(), R"("quote \" and \n newline")");
}

TEST(JSONValue, DecodeAndEncodeRoundTrip) {
  const std::string text = R"({"a":[1,2.25,"three",null,{"x":false}],"b":"\u0001"})";
  EXPECT_EQ(JSONValue::decode(text).encode(), text);
  EXPECT_EQ(JSONValue::decode(text), JSONValue::decode(JSONValue::decode(text).encode()));
}

TEST(JSONValue, NonFiniteNumbersCannotBeEncoded) {
  for (const double number : {std::nan(""), std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity()}) {
    try {
      JSONValue(JSONValue::Array{1, number}).encode();
      ADD_FAILURE() << number;
    } catch (const JSONCodingError& error) {
      EXPECT_EQ(error.code(), JSONCodingError::Code::notEncodable);
    }
  }
  try {
    JSONValue(std::numeric_limits<double>::infinity()).encode();
  } catch (const JSONCodingError& error) {
    EXPECT_STREQ(error.what(), "JSON has no number inf");
  }
}

TEST(JSONValue, InvalidUTF8InStringsIsWrittenAsReplacementCharacters) {
  EXPECT_EQ(JSONValue(std::string("a\xFF"
                                  "b"))
                .encode(),
            "\"a\xEF\xBF\xBD"
            "b\"");
}

TEST(JSONValue, BadTextIsAnInvalidJSONErrorWithThePosition) {
  EXPECT_EQ(decodeErrorCode("not json"), JSONCodingError::Code::invalidJSON);
  EXPECT_EQ(decodeErrorCode("{\"a\":1,}"), JSONCodingError::Code::invalidJSON);
  EXPECT_EQ(decodeErrorCode(""), JSONCodingError::Code::invalidJSON);
  EXPECT_EQ(decodeErrorCode("[1] [2]"), JSONCodingError::Code::invalidJSON);
  try {
    JSONValue::decode("nope");
  } catch (const JSONCodingError& error) {
    EXPECT_STREQ(error.what(),
                 "syntax error while parsing value - invalid literal; last read: 'no' at line 1, "
                 "column 2");
  }
}

TEST(JSONValue, NestingIsLimitedSoNothingRunsOutOfStack) {
  const int limit = JSONValue::kMaxNestingDepth;
  const std::string deepest = std::string(limit, '[') + "1" + std::string(limit, ']');
  EXPECT_EQ(JSONValue::decode(deepest).encode(), deepest);
  const std::string tooDeep = std::string(limit + 1, '[') + std::string(limit + 1, ']');
  EXPECT_EQ(decodeErrorCode(tooDeep), JSONCodingError::Code::nestingTooDeep);
  EXPECT_EQ(decodeErrorCode(std::string(100000, '[')), JSONCodingError::Code::nestingTooDeep);
  std::string objects;
  for (int i = 0; i < 600; ++i) {
    objects += "{\"a\":";
  }
  try {
    JSONValue::decode(objects);
    ADD_FAILURE() << "decoded 600 nested objects";
  } catch (const JSONCodingError& error) {
    EXPECT_STREQ(error.what(), "arrays and objects nested deeper than 512 levels");
  }
}

}  // namespace
}  // namespace brimble
