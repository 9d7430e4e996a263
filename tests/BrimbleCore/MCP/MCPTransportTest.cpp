// What the transport reads from each kind of line, and how it answers, is checked with raw lines
// in MCPServerTest.cpp.

#include "BrimbleCore/MCP/MCPTransport.h"

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

TEST(MCPTransport, ErrorDataIsWrittenAndWriteFailuresAreLoggedOnce) {
  std::istringstream in;
  std::ostringstream out;
  MCPTransport transport(in, out);
  testing::LogCapture log;
  transport.sendError(RequestID("a"), MCPError(-32000, "custom", JSONValue::Object{{"k", "v"}}));
  transport.sendResult(RequestID(1), JSONValue::Object{{"x", -INFINITY}});
  EXPECT_EQ(
      out.str(),
      "{\"error\":{\"code\":-32000,\"data\":{\"k\":\"v\"},\"message\":\"custom\"},\"id\":\"a\","
      "\"jsonrpc\":\"2.0\"}\n");
  out.setstate(std::ios::badbit);
  transport.sendResult(RequestID(2), JSONValue::Object{});
  transport.sendResult(RequestID(3), JSONValue::Object{});
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "[Brimble MCP] Failed to encode response: JSON has no number -inf",
                             "[Brimble MCP] Failed to write response: the output is closed"}));
}

}  // namespace
}  // namespace brimble
