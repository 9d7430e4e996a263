#include "BrimbleCore/Automation/CDPConnection.h"

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/CDPError.h"
#include "BrimbleCore/Automation/ChromeLauncher.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

/// A browser played by the test: what the connection sends is recorded; the test answers (or
/// closes) from its own thread, as the socket's thread would.
class FakeCDPTransport final : public CDPTransport {
 public:
  void start(Receiver receiver) override { receiver_ = std::move(receiver); }
  void send(std::string message) override {
    std::scoped_lock lock(mutex_);
    if (closed_) {
      throw CDPError::connectionClosed();
    }
    sent_.push_back(nlohmann::json::parse(message));
    arrived_.notify_all();
  }
  void close() override {
    {
      std::scoped_lock lock(mutex_);
      if (closed_) {
        return;
      }
      closed_ = true;
    }
    receiver_(std::nullopt);
  }

  /// The next command the connection sent, waiting for it.
  nlohmann::json nextSent() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return !sent_.empty(); });
    nlohmann::json command = sent_.front();
    sent_.pop_front();
    return command;
  }
  void deliver(const std::string& message) { receiver_(message); }

 private:
  Receiver receiver_;
  std::mutex mutex_;  // guards the fields below
  std::condition_variable arrived_;
  std::deque<nlohmann::json> sent_;
  bool closed_ = false;
};

struct Harness {
  FakeCDPTransport* transport = nullptr;
  std::unique_ptr<CDPConnection> connection;

  Harness() {
    auto fake = std::make_unique<FakeCDPTransport>();
    transport = fake.get();
    connection = std::make_unique<CDPConnection>(std::move(fake));
  }

  /// Sends `method` on another thread and answers its command with `answer` (its id filled in).
  std::future<nlohmann::json> call(const std::string& method, const std::string& answerTemplate) {
    auto result =
        std::async(std::launch::async, [this, method] { return connection->send(method); });
    const nlohmann::json command = transport->nextSent();
    EXPECT_EQ(command["method"], method);
    EXPECT_EQ(command["params"], nlohmann::json::object());
    std::string answer = answerTemplate;
    const auto at = answer.find("ID");
    if (at != std::string::npos) {
      answer.replace(at, 2, std::to_string(command["id"].get<int>()));
    }
    transport->deliver(answer);
    return result;
  }
};

template <typename Body>
void expectCDPError(const std::string& message, Body body) {
  try {
    body();
    ADD_FAILURE() << "no error; expected \"" << message << "\"";
  } catch (const CDPError& error) {
    EXPECT_EQ(std::string(error.what()), message);
  }
}

TEST(CDPConnection, AnswersReachTheirCallersByIdAndEventsAreIgnored) {
  Harness harness;
  auto first =
      std::async(std::launch::async, [&] { return harness.connection->send("Page.enable"); });
  const auto firstCommand = harness.transport->nextSent();
  auto second =
      std::async(std::launch::async, [&] { return harness.connection->send("Runtime.enable"); });
  const auto secondCommand = harness.transport->nextSent();
  EXPECT_NE(firstCommand["id"], secondCommand["id"]);
  // Out of order, with an event in between.
  harness.transport->deliver(R"({"method":"Page.frameNavigated","params":{}})");
  harness.transport->deliver(R"({"id":)" + secondCommand["id"].dump() +
                             R"(,"result":{"which":2}})");
  harness.transport->deliver(R"({"id":)" + firstCommand["id"].dump() + R"(,"result":{}})");
  EXPECT_EQ(first.get(), nlohmann::json::object());
  EXPECT_EQ(second.get(), (nlohmann::json{{"which", 2}}));
}

TEST(CDPConnection, ErrorsMalformedAnswersAndClosingFailTheCall) {
  Harness harness;
  auto failed = harness.call("Page.navigate",
                             R"({"id":ID,"error":{"code":-32000,"message":"Cannot navigate"}})");
  expectCDPError("CDP error: Cannot navigate", [&] { failed.get(); });
  auto malformed = harness.call("Runtime.evaluate", R"({"id":ID,"result":"not an object"})");
  expectCDPError("Malformed CDP message", [&] { malformed.get(); });

  testing::LogCapture log;
  harness.transport->deliver("not json at all");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"BrimbleCore: Malformed CDP message"});

  auto pending =
      std::async(std::launch::async, [&] { return harness.connection->send("Runtime.evaluate"); });
  harness.transport->nextSent();
  harness.transport->close();
  expectCDPError("CDP connection closed", [&] { pending.get(); });
  expectCDPError("CDP connection closed", [&] { harness.connection->send("Page.enable"); });
}

TEST(ChromeLauncher, FindsThePageAmongTheTargets) {
  EXPECT_EQ(ChromeLauncher::pageTargetURL(R"([
      {"type":"browser_ui","webSocketDebuggerUrl":"ws://127.0.0.1:9/ui"},
      {"type":"page","url":"about:blank"},
      {"type":"page","webSocketDebuggerUrl":"ws://127.0.0.1:9/devtools/page/A"}])"),
            "ws://127.0.0.1:9/devtools/page/A");
  expectCDPError("Malformed /json/list response",
                 [] { ChromeLauncher::pageTargetURL(R"({"type":"page"})"); });
  expectCDPError("no debuggable page target",
                 [] { ChromeLauncher::pageTargetURL(R"([{"type":"service_worker"}])"); });
}

TEST(ChromeLauncher, WithoutABrowserSaysSo) {
  testing::TempDirectory empty;
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", empty.path().c_str(), 1);
  expectCDPError("Google Chrome or Chromium is not installed",
                 [] { ChromeLauncher::launch(0, "about:blank"); });
  ::setenv("PATH", path.c_str(), 1);
}

}  // namespace
}  // namespace brimble
