// Decoding, member access, parse errors and NaN are also met through the server in
// MCPServerTest.cpp.

#include "BrimbleCore/MCP/JSONValue.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/Support/ErrorText.h"

namespace brimble {
namespace {

TEST(JSONValue, EncodesSortedWithWholeNumbersWithoutAFraction) {
  const std::pair<JSONValue, std::string> cases[] = {
      {JSONValue::Array{3, 0.5, true, nullptr, std::string("s"), std::string_view("v")},
       R"([3,0.5,true,null,"s","v"])"},
      {-1.0, "-1"},
      {1e15, "1000000000000000"},
      {2.5e-8, "2.5e-08"},
      {1e300, "1e+300"},  // past the 64-bit integers a whole number stays floating-point
      {JSONValue::decode("12.0"), "12"},
      {std::int64_t{-7}, "-7"},
      {JSONValue(), "null"},
      {"quote \" and \n newline", R"("quote \" and \n newline")"},
      {std::string("a\xFF"), "\"a\xEF\xBF\xBD\""},  // invalid UTF-8 becomes U+FFFD
  };
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(value.encode(), text);
  }
  const std::string text = R"({"a":[1,2.25,"three",null,{"x":false}],"b":"\u0001"})";
  EXPECT_EQ(JSONValue::decode(text).encode(), text);
  EXPECT_EQ(
      JSONValue::decode(R"({"b":1,"a":{"d":[true],"c":"é"}})").encode(JSONValue::Style::pretty),
      "{\n  \"a\": {\n    \"c\": \"é\",\n    \"d\": [\n      true\n    ]\n  },\n  \"b\": 1\n}");
}

TEST(JSONValue, DeepNestingIsRefusedBeforeItExhaustsTheStack) {
  const int limit = JSONValue::kMaxNestingDepth;
  const std::string deepest = std::string(limit, '[') + "1" + std::string(limit, ']');
  EXPECT_EQ(JSONValue::decode(deepest).encode(), deepest);
  std::string objects;
  for (int i = 0; i < 600; ++i) {
    objects += "{\"a\":";
  }
  for (const std::string& tooDeep : {"[" + deepest + "]", std::string(100000, '['), objects}) {
    EXPECT_EQ(testing::errorText<JSONCodingError>([&] { JSONValue::decode(tooDeep); }),
              "arrays and objects nested deeper than 512 levels");
  }
}

}  // namespace
}  // namespace brimble
