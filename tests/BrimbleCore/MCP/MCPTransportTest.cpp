#include "BrimbleCore/MCP/MCPTransport.h"

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

/// Everything the transport reads from `input`, each request re-encoded as text for comparison.
std::vector<std::string> readAll(const std::string& input) {
  std::istringstream in(input);
  std::ostringstream out;
  MCPTransport transport(in, out);
  std::vector<std::string> seen;
  while (true) {
    const MCPTransport::Incoming incoming = transport.readNextRequest();
    if (std::holds_alternative<MCPTransport::EndOfInput>(incoming)) {
      break;
    }
    if (const MCPError* error = std::get_if<MCPError>(&incoming)) {
      seen.push_back("error " + std::to_string(error->code()) + " " + error->message());
      continue;
    }
    const MCPRequest& request = std::get<MCPRequest>(incoming);
    std::string text = "request " + request.method;
    if (request.id) {
      text += request.id->stringValue() ? " id \"" + *request.id->stringValue() + "\""
                                        : " id " + std::to_string(*request.id->integerValue());
    }
    if (request.params) {
      text += " params " + request.params->encode();
    }
    seen.push_back(text);
  }
  EXPECT_EQ(out.str(), "") << "reading wrote to the output";
  return seen;
}

TEST(MCPTransport, ReadsOneRequestPerLineSkippingBlankLines) {
  EXPECT_EQ(readAll("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n"
                    "\n"
                    "   \t \r\n"
                    "{\"jsonrpc\":\"2.0\",\"id\":\"a\",\"method\":\"tools/list\",\"params\":{}}\r\n"
                    "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}"),
            (std::vector<std::string>{"request ping id 1", "request tools/list id \"a\" params {}",
                                      "request notifications/initialized"}));
  EXPECT_EQ(readAll(""), std::vector<std::string>{});
  EXPECT_EQ(readAll("\n\n  \n"), std::vector<std::string>{});
}

TEST(MCPTransport, TrimsUnicodeWhitespaceToo) {
  // NBSP, an ideographic space, a line separator and NEL around the request.
  EXPECT_EQ(readAll("\xC2\xA0\xE3\x80\x80{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"ping\"}"
                    "\xE2\x80\xA8\xC2\x85\n"
                    "\xE2\x80\x83\xE2\x80\x83\n"),
            (std::vector<std::string>{"request ping id 2"}));
}

TEST(MCPTransport, BadLinesBecomeParseErrorsAndReadingGoesOn) {
  EXPECT_EQ(
      readAll("not json\n"
              "{\"jsonrpc\":\"2.0\",\"id\":1.5,\"method\":\"ping\"}\n"
              "{\"jsonrpc\":\"2.0\",\"id\":true,\"method\":\"ping\"}\n"
              "{\"jsonrpc\":\"2.0\",\"id\":1.0,\"method\":\"ping\"}\n"
              "{\"jsonrpc\":\"2.0\",\"id\":[1],\"method\":\"ping\"}\n"
              "{\"jsonrpc\":\"2.0\",\"id\":9223372036854775808,\"method\":\"ping\"}\n"
              "{\"jsonrpc\":\"2.0\",\"id\":3}\n"
              "{\"id\":3,\"method\":\"ping\"}\n"
              "{\"jsonrpc\":2,\"id\":3,\"method\":\"ping\"}\n"
              "[{\"jsonrpc\":\"2.0\",\"id\":3,\"method\":\"ping\"}]\n"
              "a\xFF\n"
              "{\"jsonrpc\":\"2.0\",\"id\":4,\"method\":\"ping\"}\n"),
      (std::vector<std::string>{
          "error -32700 JSON parse error: syntax error while parsing value - invalid literal; "
          "last read: 'no' at line 1, column 2",
          "error -32700 JSON parse error: RequestID must be string or integer",
          "error -32700 JSON parse error: RequestID must be string or integer",
          "error -32700 JSON parse error: RequestID must be string or integer",
          "error -32700 JSON parse error: RequestID must be string or integer",
          "error -32700 JSON parse error: RequestID must be string or integer",
          "error -32700 JSON parse error: MCPRequest needs a string 'method'",
          "error -32700 JSON parse error: MCPRequest needs a string 'jsonrpc'",
          "error -32700 JSON parse error: MCPRequest needs a string 'jsonrpc'",
          "error -32700 JSON parse error: MCPRequest must be a JSON object",
          "error -32700 Invalid UTF-8 input",
          "request ping id 4",
      }));
}

TEST(MCPTransport, IdsKeepTheirCaseAndFullRange) {
  EXPECT_EQ(readAll("{\"jsonrpc\":\"2.0\",\"id\":-9223372036854775808,\"method\":\"a\"}\n"
                    "{\"jsonrpc\":\"2.0\",\"id\":9223372036854775807,\"method\":\"b\"}\n"
                    "{\"jsonrpc\":\"2.0\",\"id\":\"7\",\"method\":\"c\"}\n"
                    "{\"jsonrpc\":\"2.0\",\"id\":null,\"method\":\"d\",\"params\":null}\n"),
            (std::vector<std::string>{"request a id -9223372036854775808",
                                      "request b id 9223372036854775807", "request c id \"7\"",
                                      "request d"}));
  EXPECT_NE(RequestID(7), RequestID("7"));
  EXPECT_EQ(RequestID(7), RequestID(std::int64_t{7}));
}

TEST(MCPTransport, MalformedUTF8IsRefused) {
  for (const std::string bad : {"\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                                "\xE2\x82", "\x80", "\xF8\x88\x80\x80\x80"}) {
    EXPECT_FALSE(isValidUTF8(bad)) << ::testing::PrintToString(bad);
  }
  for (const std::string& good :
       std::vector<std::string>{"", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                "\xF4\x8F\xBF\xBF", std::string("nul\0inside", 10)}) {
    EXPECT_TRUE(isValidUTF8(good)) << ::testing::PrintToString(good);
  }
}

TEST(MCPTransport, ALineTooLongIsOneParseErrorAndTheNextLineIsRead) {
  std::string input(MCPTransport::kMaxLineBytes + 10, 'x');
  input += "\n{\"jsonrpc\":\"2.0\",\"id\":5,\"method\":\"ping\"}\n";
  EXPECT_EQ(readAll(input), (std::vector<std::string>{
                                "error -32700 JSON parse error: line longer than 67108864 bytes",
                                "request ping id 5"}));
}

TEST(MCPTransport, ResponsesAreOneCompactSortedLineEach) {
  std::istringstream in;
  std::ostringstream out;
  MCPTransport transport(in, out);
  transport.sendResult(RequestID("a"), JSONValue::Object{});
  transport.sendResult(RequestID(3), JSONValue::Object{{"z", 1}, {"a", JSONValue::Array{2.5}}});
  transport.sendError(std::nullopt, MCPError::parseError("Invalid UTF-8 input"));
  transport.sendError(RequestID(4), MCPError(-32000, "custom", JSONValue::Object{{"k", "v"}}));
  EXPECT_EQ(
      out.str(),
      "{\"id\":\"a\",\"jsonrpc\":\"2.0\",\"result\":{}}\n"
      "{\"id\":3,\"jsonrpc\":\"2.0\",\"result\":{\"a\":[2.5],\"z\":1}}\n"
      "{\"error\":{\"code\":-32700,\"message\":\"Invalid UTF-8 input\"},\"jsonrpc\":\"2.0\"}\n"
      "{\"error\":{\"code\":-32000,\"data\":{\"k\":\"v\"},\"message\":\"custom\"},\"id\":4,"
      "\"jsonrpc\":\"2.0\"}\n");
}

TEST(MCPTransport, AResponseThatCannotBeEncodedIsLoggedAndNotWritten) {
  std::istringstream in;
  std::ostringstream out;
  MCPTransport transport(in, out);
  testing::LogCapture log;
  transport.sendResult(RequestID(1), JSONValue::Object{{"x", std::nan("")}});
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "[Brimble MCP] Failed to encode response: JSON has no number nan"});
}

TEST(MCPTransport, AClosedOutputIsReportedOnce) {
  std::istringstream in;
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  MCPTransport transport(in, out);
  testing::LogCapture log;
  transport.sendResult(RequestID(1), JSONValue::Object{});
  transport.sendResult(RequestID(2), JSONValue::Object{});
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "[Brimble MCP] Failed to write response: the output is closed"});
}

}  // namespace
}  // namespace brimble
