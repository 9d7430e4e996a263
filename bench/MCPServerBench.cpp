// How quickly an MCP host gets answers: from starting `brimble mcp-server` to its answer to
// `initialize` (target: under 50 ms), and one `tools/list` round trip through pipes with 25 tools
// registered, the size of the full catalogue (target: under 5 ms).

#include "BrimbleCore/MCP/MCPServer.h"

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "BrimbleCore/MCP/MCPTransport.h"
#include "BrimbleCore/Support/FdStreamBuffer.h"
#include "BrimbleCore/Support/Log.h"
#include "tests/Support/ChildProcess.h"

namespace brimble {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* kInitialize =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18",)"
    R"("capabilities":{},"clientInfo":{"name":"bench","version":"1"}}})"
    "\n";

void BM_ProcessStartToInitialize(benchmark::State& state) {
  for (auto _ : state) {
    const auto started = Clock::now();
    testing::ChildProcess server({BRIMBLE_BINARY, "mcp-server"});
    server.write(kInitialize);
    const auto answer = server.readLine(5s);
    const auto answered = Clock::now();
    if (!answer || !answer->starts_with(R"({"id":1,"jsonrpc":"2.0","result":)")) {
      state.SkipWithError("no initialize answer");
      break;
    }
    state.SetIterationTime(std::chrono::duration<double>(answered - started).count());
    server.closeInput();
    server.wait(5s);
  }
}
BENCHMARK(BM_ProcessStartToInitialize)->UseManualTime()->Unit(benchmark::kMillisecond);

/// A tool shaped like the catalogue's: a sentence of description, a few typed properties.
MCPToolDefinition benchTool(int index) {
  JSONValue::Object properties;
  for (const char* name : {"app", "window_id", "fps", "output", "max_width"}) {
    properties.emplace(name, JSONValue::Object{{"type", index % 2 ? "string" : "number"},
                                               {"description", std::string("The ") + name +
                                                                   " to use (default: none)."}});
  }
  return {"tool_" + std::to_string(index),
          "Record, render or drive the screen in some way; returns a JSON summary of what "
          "happened so the assistant can decide what to do next.",
          JSONValue::Object{{"type", "object"},
                            {"properties", std::move(properties)},
                            {"required", JSONValue::Array{"app"}}}};
}

void BM_ToolsListRoundTrip(benchmark::State& state) {
  setLogSink([](std::string_view) {});
  int requests[2];
  int responses[2];
  if (::pipe2(requests, O_CLOEXEC) != 0 || ::pipe2(responses, O_CLOEXEC) != 0) {
    state.SkipWithError("pipe2 failed");
    return;
  }
  std::jthread serving([&] {
    FdInputBuffer inputBuffer(requests[0]);
    FdOutputBuffer outputBuffer(responses[1]);
    std::istream input(&inputBuffer);
    std::ostream output(&outputBuffer);
    MCPTransport transport(input, output);
    MCPServer server(transport, "brimble", "1.0.0");
    for (int i = 0; i < state.range(0); ++i) {
      server.registerTool(benchTool(i), [](const JSONValue&) { return JSONValue(); });
    }
    server.run();
    ::close(responses[1]);
  });

  const std::string request = R"({"jsonrpc":"2.0","id":7,"method":"tools/list"})"
                              "\n";
  std::string buffer(1 << 20, '\0');
  std::size_t responseBytes = 0;
  for (auto _ : state) {
    if (::write(requests[1], request.data(), request.size()) !=
        static_cast<ssize_t>(request.size())) {
      state.SkipWithError("write failed");
      break;
    }
    std::size_t got = 0;
    while (got == 0 || buffer[got - 1] != '\n') {
      const ssize_t n = ::read(responses[0], buffer.data() + got, buffer.size() - got);
      if (n <= 0) {
        state.SkipWithError("the server stopped answering");
        break;
      }
      got += static_cast<std::size_t>(n);
    }
    responseBytes = got;
  }
  ::close(requests[1]);
  serving.join();
  ::close(requests[0]);
  ::close(responses[0]);
  setLogSink({});
  state.counters["response_bytes"] = static_cast<double>(responseBytes);
}
BENCHMARK(BM_ToolsListRoundTrip)->Arg(25)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace brimble
