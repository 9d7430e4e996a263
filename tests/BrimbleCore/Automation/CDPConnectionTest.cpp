#include "BrimbleCore/Automation/CDPConnection.h"

#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/CDPError.h"
#include "BrimbleCore/Automation/ChromeLauncher.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;

/// A browser played by the test: each command is answered at once with the messages `answer`
/// makes for its id, delivered as the socket's thread would deliver them.
class FakeCDPTransport final : public CDPTransport {
 public:
  std::function<std::vector<std::string>(int id)> answer;
  bool refusing = false;  // sends fail, as once the socket has died but before it says so

  void start(Receiver receiver) override { receiver_ = std::move(receiver); }
  void send(std::string message) override {
    if (refusing) {
      throw CDPError::connectionClosed();
    }
    for (const std::string& reply : answer(nlohmann::json::parse(message).at("id"))) {
      receiver_(reply);
    }
  }
  void close() override { receiver_(std::nullopt); }

 private:
  Receiver receiver_;
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

TEST(CDPConnection, AnswersReachTheirCallersByIdAtOnceAndFailedSendsOrClosingFailTheCall) {
  const std::pair<std::string, std::string> cases[] = {
      {R"({"id":ID,"result":{"v":2}})", R"({"v":2})"},
      {R"({"id":ID,"error":{"code":-32000,"message":"Cannot navigate"}})",
       "CDP error: Cannot navigate"},
      {R"({"id":ID,"result":"not an object"})", "Malformed CDP message"},
      // Half of a surrogate pair, as Chromium sends a string a page's script cut apart.
      {R"({"id":ID,"result":{"v":"a\ud83d","w":"\\ud83d\ude00","x":"\ud83d\ude00"}})",
       R"({"v":"a�","w":"\\ud83d�","x":"😀"})"},
      {R"({"id":ID,"result":{"v":"cut short)", "Malformed CDP message"}};
  auto transport = std::make_unique<FakeCDPTransport>();
  FakeCDPTransport& browser = *transport;
  CDPConnection connection(std::move(transport));
  testing::LogCapture log;
  for (const auto& [answer, expected] : cases) {
    browser.answer = [&](int id) {
      std::string reply = answer;
      reply.replace(reply.find("ID"), 2, std::to_string(id));
      // An event and an answer to a call that is not waiting any more come first.
      return std::vector<std::string>{R"({"method":"Page.frameNavigated","params":{}})",
                                      R"({"id":)" + std::to_string(id - 1) + R"(,"result":{}})",
                                      reply};
    };
    EXPECT_EQ(outcome([&] { return connection.send("Page.enable", {}, 2s); }), expected) << answer;
  }
  EXPECT_EQ(log.lines(), std::vector<std::string>{"BrimbleCore: Malformed CDP message"});

  // A send that fails leaves nothing pending; closing fails the call waiting and all later ones.
  browser.refusing = true;
  EXPECT_EQ(outcome([&] { return connection.send("Page.enable"); }), "CDP connection closed");
  EXPECT_EQ(connection.pendingCount(), 0u);

  browser.refusing = false;
  browser.answer = [&](int) {
    browser.close();
    return std::vector<std::string>{};
  };
  EXPECT_EQ(outcome([&] { return connection.send("Page.enable", {}, 2s); }),
            "CDP connection closed");
  EXPECT_EQ(outcome([&] { return connection.send("Page.enable"); }), "CDP connection closed");
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
