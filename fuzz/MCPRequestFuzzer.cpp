// Any bytes as an MCP server's standard input: line framing, the UTF-8 check, request decoding and
// dispatch never crash, hang or throw. Every output line is one compact JSON-RPC response (an
// object with "jsonrpc": "2.0" and exactly one of "result" and "error"), there are never more
// responses than input lines, and a line that decodes as a JSONValue survives encoding and
// decoding unchanged.

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "BrimbleCore/MCP/JSONValue.h"
#include "BrimbleCore/MCP/MCPServer.h"
#include "BrimbleCore/MCP/MCPTransport.h"
#include "BrimbleCore/Support/Log.h"

namespace {

void checkResponses(const std::string& output, std::size_t inputLines) {
  std::size_t responses = 0;
  std::size_t start = 0;
  for (std::size_t end; (end = output.find('\n', start)) != std::string::npos; start = end + 1) {
    const auto line = std::string_view(output).substr(start, end - start);
    const auto message = nlohmann::json::parse(line, nullptr, false);
    if (message.is_discarded() || !message.is_object() || message.value("jsonrpc", "") != "2.0" ||
        message.contains("result") == message.contains("error") || message.dump() != line) {
      std::abort();
    }
    ++responses;
  }
  if (start != output.size() || responses > inputLines) {
    std::abort();
  }
}

void checkRoundTrip(std::string_view text) {
  brimble::JSONValue value;
  try {
    value = brimble::JSONValue::decode(text);
  } catch (const brimble::JSONCodingError&) {
    return;
  }
  std::string encoded;
  try {
    encoded = value.encode();
  } catch (const brimble::JSONCodingError& error) {
    // Only numbers too large for a double (1e400) decode to something JSON cannot carry.
    if (error.code() != brimble::JSONCodingError::Code::notEncodable) {
      std::abort();
    }
    return;
  }
  if (!(brimble::JSONValue::decode(encoded) == value)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    brimble::setLogSink([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  const std::string bytes(reinterpret_cast<const char*>(data), size);

  std::istringstream input(bytes);
  std::ostringstream output;
  brimble::MCPTransport transport(input, output);
  brimble::MCPServer server(transport, "brimble", "1.0.0");
  server.registerTool(
      {"echo", "Echo the arguments.", brimble::JSONValue::Object{{"type", "object"}}},
      [](const brimble::JSONValue& arguments) { return arguments; });
  server.registerResource({"test://files/{name}", "Files", "", "text/plain"},
                          [](const std::string& uri) { return uri; });
  server.run();

  std::size_t inputLines = 1;
  for (const char c : bytes) {
    inputLines += c == '\n' ? 1 : 0;
  }
  checkResponses(output.str(), inputLines);
  checkRoundTrip(bytes);
  return 0;
}
