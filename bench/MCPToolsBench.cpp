// The MCP tools as a host sees them, through pipes to the real `brimble mcp-server --headless`
// (its own embedded display): a `tools/list` round trip with the full catalogue (target: under
// 5 ms), `list_windows` (under 50 ms), `start_recording` of a window with the display up (answered
// within 300 ms) and `render_gif` of a 10-second recording 800 pixels wide (under 3 s on 2
// cores). Prints the median of each, and the worst.
//
//   BrimbleMCPToolsBench [RUNS]

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "tests/Support/ChildProcess.h"

namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

class Server {
 public:
  explicit Server(const std::string& tmp)
      : process_({BRIMBLE_BINARY, "mcp-server", "--headless"},
                 std::vector<std::string>{"PATH=/usr/local/bin:/usr/bin:/bin", "TMPDIR=" + tmp,
                                          "HOME=" + tmp}) {
    request("initialize", json::object());
  }
  ~Server() {
    process_.closeInput();
    process_.wait(20s);
  }

  /// Sends a request and returns its reply and the seconds it took.
  std::pair<json, double> request(const std::string& method, const json& params) {
    const int id = ++lastID_;
    const auto started = Clock::now();
    process_.write(
        json({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}).dump() +
        "\n");
    while (true) {
      const auto line = process_.readLine(120s);
      if (!line) {
        fmt::print(stderr, "no reply to {}:\n{}\n", method, process_.errorOutput());
        std::exit(1);
      }
      const json reply = json::parse(*line);
      if (reply.value("id", json()) == id) {
        return {reply, std::chrono::duration<double>(Clock::now() - started).count()};
      }
    }
  }
  /// A tool's result, parsed; exits when it failed.
  std::pair<json, double> call(const std::string& name, const json& arguments) {
    auto [reply, seconds] = request("tools/call", {{"name", name}, {"arguments", arguments}});
    const json& result = reply["result"];
    if (result.value("isError", false)) {
      fmt::print(stderr, "{} failed: {}\n", name, result["content"][0]["text"].get<std::string>());
      std::exit(1);
    }
    return {json::parse(result["content"][0]["text"].get<std::string>()), seconds};
  }

 private:
  brimble::testing::ChildProcess process_;
  int lastID_ = 0;
};

void report(const std::string& what, std::vector<double> seconds, double targetMilliseconds) {
  std::sort(seconds.begin(), seconds.end());
  const double median = seconds[seconds.size() / 2] * 1000;
  const double worst = seconds.back() * 1000;
  fmt::print("{:<44} median {:9.2f} ms   worst {:9.2f} ms   target < {:g} ms   {}\n", what, median,
             worst, targetMilliseconds, median < targetMilliseconds ? "ok" : "MISSED");
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  const std::filesystem::path tmp =
      std::filesystem::temp_directory_path() / ("brimble-mcp-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(tmp);
  {
    Server server(tmp.string());
    std::vector<double> list;
    for (int i = 0; i < std::max(runs, 20); ++i) {
      list.push_back(server.request("tools/list", json::object()).second);
    }
    report("tools/list (26 tools)", list, 5);

    // The display comes up on the first call that needs it; that one is not timed.
    server.call("open_app", {{"app", "Terminal"}});
    std::vector<double> windows;
    for (int i = 0; i < std::max(runs, 20); ++i) {
      windows.push_back(server.call("list_windows", json::object()).second);
    }
    report("list_windows", windows, 50);

    std::vector<double> starts;
    for (int i = 0; i < runs; ++i) {
      auto [started, seconds] = server.call("start_recording", {{"app", "Terminal"}});
      starts.push_back(seconds);
      server.call("stop_recording", {{"session_id", started["session_id"]}});
      server.call("discard_recording", {{"session_id", started["session_id"]}});
    }
    report("start_recording (window, display up)", starts, 300);

    // 10 s of an 800-px-wide region that changes: a terminal printing.
    auto [region, ignored] = server.call(
        "record_region", {{"x", 0}, {"y", 0}, {"width", 800}, {"height", 500}, {"fps", 30}});
    (void)ignored;
    server.call("type_text", {{"text", "for i in $(seq 1 40); do date +%N; sleep 0.2; done"},
                              {"enter", true},
                              {"delay", 0.01}});
    std::this_thread::sleep_for(10s);
    const auto stopped = server.call("stop_recording", {{"session_id", region["session_id"]}});
    std::vector<double> renders;
    for (int i = 0; i < std::min(runs, 3); ++i) {
      renders.push_back(server
                            .call("render_gif", {{"session_id", region["session_id"]},
                                                 {"output", (tmp / "bench.gif").string()}})
                            .second);
    }
    report(fmt::format("render_gif ({} frames, 10 s, 800 px)", stopped.first["frames"].get<int>()),
           renders, 3000);
  }
  std::filesystem::remove_all(tmp);
  return 0;
}
