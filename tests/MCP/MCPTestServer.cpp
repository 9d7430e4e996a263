// An MCP server over the process's standard streams, set up exactly as `brimble mcp-server` is,
// with test tools and resources registered, so that tests can drive it as hosts do: with the
// official SDK client and with raw lines.

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

#include <sys/wait.h>

#include "BrimbleCore/MCP/JSONValue.h"
#include "BrimbleCore/MCP/MCPServer.h"
#include "BrimbleCore/MCP/MCPStandardStreams.h"
#include "BrimbleCore/MCP/MCPToolError.h"
#include "BrimbleCore/MCP/MCPTransport.h"

namespace brimble {
namespace {

JSONValue objectSchema(JSONValue::Object properties, JSONValue::Array required) {
  return JSONValue::Object{
      {"type", "object"}, {"properties", std::move(properties)}, {"required", std::move(required)}};
}

JSONValue numberProperty(const char* description) {
  return JSONValue::Object{{"type", "number"}, {"description", description}};
}

void registerTestCatalogue(MCPServer& server) {
  // Registered again below: the second "add" replaces this one in its place.
  server.registerTool({"add", "Placeholder.", objectSchema({}, {})},
                      [](const JSONValue&) { return JSONValue(); });
  server.registerTool(
      {"add", "Add two numbers.",
       objectSchema({{"a", numberProperty("First addend")}, {"b", numberProperty("Second addend")}},
                    {"a", "b"})},
      [](const JSONValue& arguments) -> JSONValue {
        const auto a = arguments["a"].numberValue();
        const auto b = arguments["b"].numberValue();
        if (!a || !b) {
          throw MCPToolError("Both 'a' and 'b' must be numbers.");
        }
        return JSONValue::Object{{"sum", *a + *b}, {"operands", JSONValue::Array{*a, *b}}};
      });
  server.registerTool(
      {"explode", "Fail with an unexpected error.", objectSchema({}, {})},
      [](const JSONValue&) -> JSONValue { throw std::runtime_error("the test tool blew up"); });
  server.registerTool(
      {"noisy", "Print to standard output from this process and from a child process.",
       objectSchema({}, {})},
      [](const JSONValue&) -> JSONValue {
        std::printf("printf from the server\n");
        std::fflush(stdout);
        std::cout << "std::cout from the server" << std::endl;
        // A shell that writes to its standard output and error and reads its standard input, the
        // way a careless helper program would.
        const int status = std::system(
            "echo 'child on stdout'; echo 'child on stderr' >&2; "
            "if read line; then echo \"child read: $line\"; else echo 'child read nothing'; fi");
        return JSONValue::Object{{"childExitStatus", WEXITSTATUS(status)}};
      });
  server.registerTool(
      {"sleep", "Sleep for some seconds.", objectSchema({{"seconds", numberProperty("")}}, {})},
      [](const JSONValue& arguments) -> JSONValue {
        const double seconds = arguments["seconds"].numberValue().value_or(0);
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        return JSONValue::Object{{"slept", seconds}};
      });
  server.registerTool({"echo", "Return the arguments.", objectSchema({}, {})},
                      [](const JSONValue& arguments) { return arguments; });
  server.registerTool({"throw_int", "Throw something that is no exception.", objectSchema({}, {})},
                      [](const JSONValue&) -> JSONValue { throw 42; });
  server.registerTool(
      {"not_a_number", "Return NaN, which JSON cannot carry.", objectSchema({}, {})},
      [](const JSONValue&) {
        return JSONValue::Object{{"v", std::nan("")}};
      });

  // Exact URIs are found before the template, which would match them too.
  server.registerResource(
      {"test://notes/readme", "Readme", "A fixed Markdown note.", "text/markdown"},
      [](const std::string&) { return std::string("# Notes\n\nHello."); });
  server.registerResource({"test://{path}", "Files", "Any file by path.", "application/json"},
                          [](const std::string& uri) {
                            return "{\"file\": \"" + uri.substr(std::string("test://").size()) +
                                   "\"}";
                          });
  server.registerResource(
      {"test://broken", "Broken", "Always fails.", "text/plain"},
      [](const std::string&) -> std::string { throw std::runtime_error("the disk is gone"); });
}

}  // namespace
}  // namespace brimble

int main() {
  using namespace brimble;
  MCPStandardStreams streams;
  MCPTransport transport(streams.input(), streams.output());
  MCPServer server(transport, "brimble-test", "0.0.1");
  registerTestCatalogue(server);
  server.run();
  return 0;
}
