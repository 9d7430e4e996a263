#include "BrimbleCore/Automation/CDPConnection.h"

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <future>
#include <mutex>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/CDPError.h"
#include "BrimbleCore/Automation/ChromeLauncher.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;

/// A browser played by the test: the test reads what the connection sent and answers (or
/// closes) from its own thread, as the socket's thread would.
class FakeCDPTransport final : public CDPTransport {
 public:
  void start(Receiver receiver) override { receiver_ = std::move(receiver); }
  void send(std::string message) override {
    std::scoped_lock lock(mutex_);
    if (refusing_) {
      throw CDPError::connectionClosed();
    }
    sent_.push_back(nlohmann::json::parse(message));
    arrived_.notify_all();
  }
  void close() override {
    if (!std::exchange(closed_, true)) {
      receiver_(std::nullopt);
    }
  }

  /// The id of the next command the connection sends, once it has.
  int nextId() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return !sent_.empty(); });
    const int id = sent_.front().at("id");
    sent_.pop_front();
    return id;
  }
  void deliver(const std::string& message) { receiver_(message); }
  /// Sends fail from now on, as they do once the socket has died but before it says so.
  void refuseSends() { refusing_ = true; }

 private:
  Receiver receiver_;
  bool closed_ = false;  // touched by the test's thread only
  std::mutex mutex_;     // guards the fields below
  std::condition_variable arrived_;
  std::deque<nlohmann::json> sent_;
  bool refusing_ = false;
};

struct Harness {
  FakeCDPTransport* transport = nullptr;
  std::unique_ptr<CDPConnection> connection;

  Harness() {
    auto fake = std::make_unique<FakeCDPTransport>();
    transport = fake.get();
    connection = std::make_unique<CDPConnection>(std::move(fake));
  }
  std::future<nlohmann::json> call() {
    return std::async(std::launch::async,
                      [this] { return connection->send("Page.enable", {}, 5s); });
  }
};

/// What `body` returned, as JSON text, or the text of the CDPError it threw.
template <typename Body>
std::string outcome(Body body) {
  try {
    return nlohmann::json(body()).dump();
  } catch (const CDPError& error) {
    return error.what();
  }
}

TEST(CDPConnection, AnswersReachTheirCallersByIdAtOnceAndEventsAreIgnored) {
  struct Case {
    std::string answer;  // "ID" becomes the call's id
    std::string outcome;
  };
  const Case cases[] = {
      {R"({"id":ID,"result":{"v":2}})", R"({"v":2})"},
      {R"({"id":ID,"error":{"code":-32000,"message":"Cannot navigate"}})",
       "CDP error: Cannot navigate"},
      {R"({"id":ID,"result":"not an object"})", "Malformed CDP message"},
      // Half of a surrogate pair, as Chromium sends a string a page's script cut apart.
      {R"({"id":ID,"result":{"v":"a\ud83d","w":"\\ud83d\ude00","x":"\ud83d\ude00"}})",
       R"({"v":"a�","w":"\\ud83d�","x":"😀"})"},
      {R"({"id":ID,"result":{"v":"cut short)", "Malformed CDP message"},
  };
  Harness harness;
  testing::LogCapture log;
  for (const Case& test : cases) {
    auto answer = harness.call();
    std::string message = test.answer;
    message.replace(message.find("ID"), 2, std::to_string(harness.transport->nextId()));
    harness.transport->deliver(R"({"method":"Page.frameNavigated","params":{}})");
    harness.transport->deliver(message);
    EXPECT_EQ(outcome([&] { return answer.get(); }), test.outcome) << test.answer;
  }
  EXPECT_EQ(log.lines(), std::vector<std::string>{"BrimbleCore: Malformed CDP message"});

  // Out of order.
  auto first = harness.call();
  const int firstId = harness.transport->nextId();
  auto second = harness.call();
  const int secondId = harness.transport->nextId();
  harness.transport->deliver(R"({"id":)" + std::to_string(secondId) + R"(,"result":{"n":2}})");
  harness.transport->deliver(R"({"id":)" + std::to_string(firstId) + R"(,"result":{}})");
  EXPECT_EQ(first.get(), nlohmann::json::object());
  EXPECT_EQ(second.get(), (nlohmann::json{{"n", 2}}));
}

TEST(CDPConnection, ClosingOrAFailedSendFailsTheCallAndLeavesNothingPending) {
  Harness harness;
  harness.transport->refuseSends();
  EXPECT_EQ(outcome([&] { return harness.connection->send("Page.enable"); }),
            "CDP connection closed");
  EXPECT_EQ(harness.connection->pendingCount(), 0u);

  Harness closing;
  auto pending = closing.call();
  closing.transport->nextId();
  closing.transport->close();
  EXPECT_EQ(outcome([&] { return pending.get(); }), "CDP connection closed");
  EXPECT_EQ(outcome([&] { return closing.connection->send("Page.enable"); }),
            "CDP connection closed");
}

TEST(ChromeLauncher, FindsThePageAmongTheTargetsAndSaysWhenThereIsNoBrowser) {
  EXPECT_EQ(ChromeLauncher::pageTargetURL(R"([
      {"type":"browser_ui","webSocketDebuggerUrl":"ws://127.0.0.1:9/ui"},
      {"type":"page","url":"about:blank"},
      {"type":"page","webSocketDebuggerUrl":"ws://127.0.0.1:9/devtools/page/A"}])"),
            "ws://127.0.0.1:9/devtools/page/A");
  EXPECT_EQ(outcome([] { return ChromeLauncher::pageTargetURL(R"({"type":"page"})"); }),
            "Malformed /json/list response");
  EXPECT_EQ(outcome([] { return ChromeLauncher::pageTargetURL(R"([{"type":"service_worker"}])"); }),
            "no debuggable page target");

  testing::TempDirectory empty;
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", empty.path().c_str(), 1);
  EXPECT_EQ(outcome([] { return ChromeLauncher::launch(0, "about:blank").port(); }),
            "Google Chrome or Chromium is not installed");
  ::setenv("PATH", path.c_str(), 1);
}

}  // namespace
}  // namespace brimble
