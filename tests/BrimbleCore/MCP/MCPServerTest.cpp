#include "BrimbleCore/MCP/MCPServer.h"

#include <cmath>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/MCP/MCPToolError.h"
#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string request(const std::string& id, const std::string& method,
                    const std::string& params = "") {
  return "{\"jsonrpc\":\"2.0\",\"id\":" + id + ",\"method\":\"" + method + "\"" +
         (params.empty() ? "" : ",\"params\":" + params) + "}\n";
}

/// A server named "brimble" 1.0.0 fed from a string; `serve` runs it to the end of that input.
class MCPServerTest : public ::testing::Test {
 protected:
  std::vector<std::string> serve(const std::string& lines) {
    input_.str(lines);
    input_.clear();
    output_.str("");
    testing::LogCapture capture;
    server_.run();
    log_ = capture.lines();
    return splitLines(output_.str());
  }

  std::string serveOne(const std::string& line) {
    const auto lines = serve(line);
    EXPECT_EQ(lines.size(), 1u);
    return lines.empty() ? "" : lines.front();
  }

  void registerEcho() {
    server_.registerTool({"echo", "Echo the arguments.", JSONValue::Object{{"type", "object"}}},
                         [](const JSONValue& arguments) { return arguments; });
  }

  std::istringstream input_;
  std::ostringstream output_;
  MCPTransport transport_{input_, output_};
  MCPServer server_{transport_, "brimble", "1.0.0"};
  std::vector<std::string> log_;
};

TEST_F(MCPServerTest, InitializeReportsProtocolCapabilitiesAndServerInfo) {
  const std::string expected =
      R"({"id":1,"jsonrpc":"2.0","result":{"capabilities":{"resources":{},"tools":{}},)"
      R"("protocolVersion":"2024-11-05","serverInfo":{"name":"brimble","version":"1.0.0"}}})";
  EXPECT_EQ(serveOne(request("1", "initialize",
                             R"({"protocolVersion":"2099-01-01","capabilities":{},)"
                             R"("clientInfo":{"name":"x","version":"1"}})")),
            expected);
  // Asked again, it answers the same way.
  EXPECT_EQ(serveOne(request("1", "initialize")), expected);
  EXPECT_EQ(log_, (std::vector<std::string>{"[Brimble MCP] Server starting (brimble v1.0.0)",
                                            "[Brimble MCP] EOF on stdin, shutting down"}));
}

TEST_F(MCPServerTest, CapabilitiesListOnlyTheFlagsThatAreSet) {
  std::istringstream in(request("1", "initialize"));
  std::ostringstream out;
  MCPTransport transport(in, out);
  testing::LogCapture quiet;
  MCPServer toolsOnly(transport, "t", "2", MCPServerCapabilities{.tools = true});
  toolsOnly.run();
  EXPECT_EQ(out.str(), R"({"id":1,"jsonrpc":"2.0","result":{"capabilities":{"tools":{}},)"
                       R"("protocolVersion":"2024-11-05","serverInfo":{"name":"t","version":"2"}}})"
                       "\n");
  EXPECT_EQ(MCPServerCapabilities{}.toJSONValue().encode(), "{}");
  EXPECT_EQ((MCPServerCapabilities{.resources = true}).toJSONValue().encode(),
            R"({"resources":{}})");
}

TEST_F(MCPServerTest, PingAnswersAnEmptyObjectEchoingTheId) {
  EXPECT_EQ(serveOne(R"({"jsonrpc":"2.0","id":"a","method":"ping"})"),
            R"({"id":"a","jsonrpc":"2.0","result":{}})");
  EXPECT_EQ(serveOne(request("-12", "ping")), R"({"id":-12,"jsonrpc":"2.0","result":{}})");
}

TEST_F(MCPServerTest, NotificationsAreNeverAnswered) {
  EXPECT_EQ(serve(R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
                  "\n"
                  R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":1}})"
                  "\n"
                  R"({"jsonrpc":"2.0","method":"ping"})"
                  "\n"
                  R"({"jsonrpc":"2.0","method":"no/such/method"})"
                  "\n"),
            std::vector<std::string>{});
  EXPECT_EQ(log_, (std::vector<std::string>{
                      "[Brimble MCP] Server starting (brimble v1.0.0)",
                      "[Brimble MCP] Client initialized",
                      "[Brimble MCP] Ignoring notification: notifications/cancelled",
                      "[Brimble MCP] Ignoring notification: ping",
                      "[Brimble MCP] Ignoring notification: no/such/method",
                      "[Brimble MCP] EOF on stdin, shutting down",
                  }));
}

TEST_F(MCPServerTest, UnknownMethodsAreMethodNotFound) {
  EXPECT_EQ(serveOne(request("7", "prompts/list")),
            R"({"error":{"code":-32601,"message":"Unknown method: prompts/list"},"id":7,)"
            R"("jsonrpc":"2.0"})");
  // Method names are compared exactly.
  EXPECT_EQ(serveOne(request("8", "Ping")),
            R"({"error":{"code":-32601,"message":"Unknown method: Ping"},"id":8,"jsonrpc":"2.0"})");
}

TEST_F(MCPServerTest, BadLinesAreAnsweredWithoutAnIdAndServingGoesOn) {
  EXPECT_EQ(serve("not json\n"
                  "   \n"
                  R"({"jsonrpc":"2.0","id":1.5,"method":"ping"})"
                  "\n" +
                  request("2", "ping")),
            (std::vector<std::string>{
                R"({"error":{"code":-32700,"message":"JSON parse error: syntax error while )"
                R"(parsing value - invalid literal; last read: 'no' at line 1, column 2"},)"
                R"("jsonrpc":"2.0"})",
                R"({"error":{"code":-32700,"message":"JSON parse error: RequestID must be )"
                R"(string or integer"},"jsonrpc":"2.0"})",
                R"({"id":2,"jsonrpc":"2.0","result":{}})",
            }));
}

TEST_F(MCPServerTest, ToolsListShowsEveryToolInRegistrationOrder) {
  EXPECT_EQ(serveOne(request("1", "tools/list")),
            R"({"id":1,"jsonrpc":"2.0","result":{"tools":[]}})");
  server_.registerTool({"zeta", "Last letter.", JSONValue::Object{{"type", "object"}}},
                       [](const JSONValue&) { return JSONValue(); });
  server_.registerTool(
      {"alpha", "First letter.",
       JSONValue::Object{
           {"type", "object"},
           {"properties", JSONValue::Object{{"n", JSONValue::Object{{"type", "number"}}}}},
           {"required", JSONValue::Array{"n"}}}},
      [](const JSONValue&) { return JSONValue(); });
  EXPECT_EQ(serveOne(request("2", "tools/list")),
            R"({"id":2,"jsonrpc":"2.0","result":{"tools":[)"
            R"({"description":"Last letter.","inputSchema":{"type":"object"},"name":"zeta"},)"
            R"({"description":"First letter.","inputSchema":{"properties":{"n":{"type":"number"}},)"
            R"("required":["n"],"type":"object"},"name":"alpha"}]}})");
}

TEST_F(MCPServerTest, RegisteringANameAgainReplacesTheToolInItsPlace) {
  server_.registerTool({"a", "one", JSONValue::Object{}}, [](const JSONValue&) { return 1; });
  server_.registerTool({"b", "two", JSONValue::Object{}}, [](const JSONValue&) { return 2; });
  server_.registerTool({"a", "three", JSONValue::Object{}}, [](const JSONValue&) { return 3; });
  const auto definitions = server_.toolDefinitions();
  ASSERT_EQ(definitions.size(), 2u);
  EXPECT_EQ(definitions[0].description, "three");
  EXPECT_EQ(definitions[1].name, "b");
  EXPECT_EQ(serveOne(request("1", "tools/call", R"({"name":"a"})")),
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"3","type":"text"}]}})");
}

TEST_F(MCPServerTest, AToolResultIsOnePrettySortedTextBlock) {
  server_.registerTool({"pair", "", JSONValue::Object{}}, [](const JSONValue&) {
    return JSONValue::Object{{"b", 1}, {"a", 2}};
  });
  EXPECT_EQ(
      serveOne(request("1", "tools/call", R"({"name":"pair","arguments":{}})")),
      R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"{\n  \"a\": 2,\n  \"b\": 1\n}",)"
      R"("type":"text"}]}})");
}

TEST_F(MCPServerTest, ToolArgumentsDefaultToAnEmptyObject) {
  registerEcho();
  EXPECT_EQ(serve(request("1", "tools/call", R"({"name":"echo"})") +
                  request("2", "tools/call", R"({"name":"echo","arguments":null})") +
                  request("3", "tools/call", R"({"name":"echo","arguments":{"x":[1,"y"]}})")),
            (std::vector<std::string>{
                R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"{}","type":"text"}]}})",
                R"({"id":2,"jsonrpc":"2.0","result":{"content":[{"text":"{}","type":"text"}]}})",
                R"({"id":3,"jsonrpc":"2.0","result":{"content":[{"text":"{\n  \"x\": [\n    1,\n)"
                R"(    \"y\"\n  ]\n}","type":"text"}]}})",
            }));
}

TEST_F(MCPServerTest, ToolFailuresAreResultsWithIsError) {
  server_.registerTool({"refuse", "", JSONValue::Object{}}, [](const JSONValue&) -> JSONValue {
    throw MCPToolError("No window matches 'Termnial'.");
  });
  server_.registerTool({"crash", "", JSONValue::Object{}}, [](const JSONValue&) -> JSONValue {
    throw std::runtime_error("out of frames");
  });
  server_.registerTool({"throwInt", "", JSONValue::Object{}},
                       [](const JSONValue&) -> JSONValue { throw 42; });
  EXPECT_EQ(serve(request("1", "tools/call", R"({"name":"refuse"})") +
                  request("2", "tools/call", R"({"name":"crash"})") +
                  request("3", "tools/call", R"({"name":"throwInt"})")),
            (std::vector<std::string>{
                R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"No window matches )"
                R"('Termnial'.","type":"text"}],"isError":true}})",
                R"({"id":2,"jsonrpc":"2.0","result":{"content":[{"text":"Internal error: out of )"
                R"(frames","type":"text"}],"isError":true}})",
                R"({"id":3,"jsonrpc":"2.0","result":{"content":[{"text":"Internal error: unknown )"
                R"(error","type":"text"}],"isError":true}})",
            }));
}

TEST_F(MCPServerTest, AResultThatCannotBeEncodedBecomesAnEmptyObject) {
  server_.registerTool({"nan", "", JSONValue::Object{}}, [](const JSONValue&) {
    return JSONValue::Object{{"v", std::nan("")}};
  });
  EXPECT_EQ(serveOne(request("1", "tools/call", R"({"name":"nan"})")),
            R"({"id":1,"jsonrpc":"2.0","result":{"content":[{"text":"{}","type":"text"}]}})");
  EXPECT_EQ(log_.at(1), "BrimbleCore: MCP jsonEncode failed; returning empty object");
}

TEST_F(MCPServerTest, MalformedToolCallsAreJSONRPCErrors) {
  registerEcho();
  const std::string missingName =
      R"({"error":{"code":-32602,"message":"tools/call requires 'name' parameter"},"id":1,)"
      R"("jsonrpc":"2.0"})";
  for (const std::string params :
       {"", R"({})", R"({"name":7})", R"([])", R"("echo")", R"({"arguments":{}})"}) {
    EXPECT_EQ(serveOne(request("1", "tools/call", params)), missingName) << params;
  }
  EXPECT_EQ(serveOne(request("2", "tools/call", R"({"name":"Echo"})")),
            R"({"error":{"code":-32601,"message":"Unknown tool: Echo"},"id":2,"jsonrpc":"2.0"})");
}

TEST_F(MCPServerTest, ResourcesListShowsEveryResource) {
  server_.registerResource({"brimble://docs/scripting-reference", "Scripting Reference",
                            "The language.", "text/markdown"},
                           [](const std::string&) { return std::string("# Ref"); });
  server_.registerResource(
      {"script://library/{name}", "Script Source", "One script.", "text/plain"},
      [](const std::string&) { return std::string(); });
  EXPECT_EQ(serveOne(request("1", "resources/list")),
            R"({"id":1,"jsonrpc":"2.0","result":{"resources":[)"
            R"({"description":"The language.","mimeType":"text/markdown","name":"Scripting )"
            R"(Reference","uri":"brimble://docs/scripting-reference"},)"
            R"({"description":"One script.","mimeType":"text/plain","name":"Script Source",)"
            R"("uri":"script://library/{name}"}]}})");
}

TEST_F(MCPServerTest, ResourceReadsFindExactURIsThenTemplatePrefixes) {
  std::vector<std::string> reads;
  server_.registerResource({"gif://library", "GIF Library", "", "application/json"},
                           [&](const std::string& uri) {
                             reads.push_back("library " + uri);
                             return std::string("[]");
                           });
  server_.registerResource({"gif://{path}", "Saved GIF", "", "application/json"},
                           [&](const std::string& uri) {
                             reads.push_back("gif " + uri);
                             return std::string("{\"size\":1}");
                           });
  EXPECT_EQ(serve(request("1", "resources/read", R"({"uri":"gif://library"})") +
                  request("2", "resources/read", R"({"uri":"gif:///home/me/a.gif"})") +
                  request("3", "resources/read", R"({"uri":"gif://"})")),
            (std::vector<std::string>{
                R"({"id":1,"jsonrpc":"2.0","result":{"contents":[{"mimeType":"text/plain",)"
                R"("text":"[]","uri":"gif://library"}]}})",
                R"({"id":2,"jsonrpc":"2.0","result":{"contents":[{"mimeType":"text/plain",)"
                R"("text":"{\"size\":1}","uri":"gif:///home/me/a.gif"}]}})",
                R"({"id":3,"jsonrpc":"2.0","result":{"contents":[{"mimeType":"text/plain",)"
                R"("text":"{\"size\":1}","uri":"gif://"}]}})",
            }));
  EXPECT_EQ(reads, (std::vector<std::string>{"library gif://library", "gif gif:///home/me/a.gif",
                                             "gif gif://"}));
}

TEST_F(MCPServerTest, TheFirstMatchingTemplateInRegistrationOrderWins) {
  server_.registerResource({"script://{any}", "", "", ""},
                           [](const std::string&) { return std::string("broad"); });
  server_.registerResource({"script://library/{name}", "", "", ""},
                           [](const std::string&) { return std::string("narrow"); });
  EXPECT_EQ(serveOne(request("1", "resources/read", R"({"uri":"script://library/demo"})")),
            R"({"id":1,"jsonrpc":"2.0","result":{"contents":[{"mimeType":"text/plain",)"
            R"("text":"broad","uri":"script://library/demo"}]}})");
}

TEST_F(MCPServerTest, ResourceReadFailuresAreJSONRPCErrors) {
  server_.registerResource({"brimble://examples/{name}", "", "", "text/plain"},
                           [](const std::string& uri) -> std::string {
                             throw MCPToolError("Unknown example '" + uri.substr(19) + "'.");
                           });
  server_.registerResource({"brimble://recordings", "", "", "text/plain"},
                           [](const std::string&) -> std::string { return "[]"; });
  EXPECT_EQ(serve(request("1", "resources/read", R"({})") +
                  request("2", "resources/read", R"({"uri":3})") +
                  request("3", "resources/read", R"({"uri":"brimble://recording"})") +
                  request("4", "resources/read", R"({"uri":"brimble://examples/nope"})")),
            (std::vector<std::string>{
                R"({"error":{"code":-32602,"message":"resources/read requires 'uri' parameter"},)"
                R"("id":1,"jsonrpc":"2.0"})",
                R"({"error":{"code":-32602,"message":"resources/read requires 'uri' parameter"},)"
                R"("id":2,"jsonrpc":"2.0"})",
                R"({"error":{"code":-32602,"message":"Unknown resource: brimble://recording"},)"
                R"("id":3,"jsonrpc":"2.0"})",
                R"({"error":{"code":-32603,"message":"Resource read error: Unknown example )"
                R"('nope'."},"id":4,"jsonrpc":"2.0"})",
            }));
}

TEST_F(MCPServerTest, RequestsAreServedOneAtATimeInOrder) {
  std::vector<std::string> calls;
  server_.registerTool({"note", "", JSONValue::Object{}}, [&](const JSONValue& arguments) {
    calls.push_back(*arguments["text"].stringValue());
    return JSONValue(static_cast<double>(calls.size()));
  });
  std::string lines;
  for (int i = 0; i < 20; ++i) {
    lines += request(std::to_string(i), "tools/call",
                     R"({"name":"note","arguments":{"text":"call )" + std::to_string(i) + "\"}}");
  }
  const auto responses = serve(lines);
  ASSERT_EQ(responses.size(), 20u);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(responses[i], "{\"id\":" + std::to_string(i) +
                                ",\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":\"" +
                                std::to_string(i + 1) + "\",\"type\":\"text\"}]}}");
    EXPECT_EQ(calls[i], "call " + std::to_string(i));
  }
}

TEST_F(MCPServerTest, RegistrationFromAnotherThreadIsSafeWhileServing) {
  registerEcho();
  std::string lines;
  for (int i = 0; i < 200; ++i) {
    lines += request(std::to_string(i), "tools/list");
  }
  std::jthread registrar([this] {
    for (int i = 0; i < 200; ++i) {
      server_.registerTool({"t" + std::to_string(i % 7), "", JSONValue::Object{}},
                           [](const JSONValue&) { return JSONValue(); });
      server_.registerResource({"r://" + std::to_string(i % 5), "", "", ""},
                               [](const std::string&) { return std::string(); });
    }
  });
  const auto responses = serve(lines);
  registrar.join();
  EXPECT_EQ(responses.size(), 200u);
  EXPECT_EQ(server_.toolDefinitions().size(), 8u);
  EXPECT_EQ(server_.resourceDefinitions().size(), 5u);
}

}  // namespace
}  // namespace brimble
