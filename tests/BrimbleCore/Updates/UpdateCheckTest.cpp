#include "BrimbleCore/Updates/UpdateCheck.h"

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "BrimbleCore/Support/UniqueFd.h"
#include "BrimbleCore/Updates/PackageOwner.h"
#include "BrimbleCore/Updates/ReleaseVersion.h"
#include "BrimbleCore/Updates/UpdateError.h"
#include "tests/Support/Files.h"
#include "tests/Support/LocalHTTPServer.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

ReleaseVersion version(const std::string& text) {
  const auto parsed = ReleaseVersion::parse(text);
  EXPECT_TRUE(parsed) << text;
  return parsed.value_or(ReleaseVersion());
}

TEST(ReleaseVersion, NumbersCompareAsNumbersAndAPreReleaseComesBeforeItsRelease) {
  // Each is older than the next.
  const std::vector<std::string> ascending = {
      "0.9",        "1.4.0-alpha",  "1.4.0-alpha.1", "1.4.0-alpha.beta",
      "1.4.0-beta", "1.4.0-beta.2", "1.4.0-beta.11", "1.4.0-rc.1",
      "1.4",        "1.4.1",        "1.9",           "1.10",
      "v2.0.0",     "10.0"};
  for (std::size_t index = 0; index + 1 < ascending.size(); ++index) {
    EXPECT_LT(version(ascending[index]), version(ascending[index + 1]))
        << ascending[index] << " < " << ascending[index + 1];
    EXPECT_GT(version(ascending[index + 1]), version(ascending[index]));
  }
  EXPECT_EQ(version("1.4"), version("1.4.0"));
  EXPECT_EQ(version("v1.4.0"), version("1.4.0+build.7"));
  EXPECT_EQ(version("1.4.0-rc.01"), version("1.4.0-rc.1"));
  EXPECT_TRUE(version("1.4.0-rc.1").isPreRelease());
  for (const std::string bad :
       {"", "v", "soon", "1..2", "1.x", "1.4-", "1.4.0-rc..1", "-rc", "1.2.3.4567890123"}) {
    EXPECT_FALSE(ReleaseVersion::parse(bad)) << bad;
  }
}

class UpdateFeed : public ::testing::Test {
 protected:
  void serve(const std::string& name, const std::string& body) {
    testing::writeFile(folder_ / name, body);
  }
  UpdateError::Code failureOf(const std::string& url, const FeedLimits& limits = {}) {
    try {
      checkForUpdate(url, "1.3.2", limits);
    } catch (const UpdateError& error) {
      message_ = error.what();
      return error.code();
    }
    ADD_FAILURE() << url << " was read";
    return UpdateError::Code::unreachable;
  }

  testing::TempDirectory folder_;
  testing::LocalHTTPServer server_{folder_.path()};
  std::string message_;
};

TEST_F(UpdateFeed, ANewerReleaseIsDescribedWithItsNotesAndWhereToGetIt) {
  // A list, not in order: the greatest version is the newest, and unreadable entries are skipped.
  serve("feed.json", R"([
    {"version": "1.3.9", "date": "2026-10-01", "notes": "Older."},
    {"version": "1.4.0", "date": "2026-11-20", "notes": "Faster WebP.\nFewer colours lost.",
     "download": "https://example.org/brimble-1.4.0.tar.gz"},
    {"version": "later"},
    {"version": "1.4.0-rc.1", "date": "2026-11-01"}
  ])");
  const UpdateCheckResult result = checkForUpdate(server_.url("feed.json"), "1.3.2");
  EXPECT_EQ(result.status, UpdateStatus::updateAvailable);
  EXPECT_EQ(describeUpdate(result, std::nullopt),
            "Brimble 1.4.0 is available (you have 1.3.2), released 2026-11-20:\n"
            "Faster WebP.\nFewer colours lost.\n"
            "Get it from https://example.org/brimble-1.4.0.tar.gz");
  EXPECT_EQ(describeUpdate(result, "brimble"),
            "Brimble 1.4.0 is available (you have 1.3.2), released 2026-11-20:\n"
            "Faster WebP.\nFewer colours lost.\n"
            "This copy was installed from the brimble package: update it with your package "
            "manager (sudo apt update && sudo apt install --only-upgrade brimble).");
}

TEST_F(UpdateFeed, TheSameOrAnOlderReleaseIsNothingNew) {
  serve("same.json", R"({"version": "v1.3.2", "date": "2026-09-01", "notes": "n"})");
  serve("older.json", R"({"version": "1.3.2-rc.1"})");
  const UpdateCheckResult same = checkForUpdate(server_.url("same.json"), "1.3.2");
  EXPECT_EQ(same.status, UpdateStatus::upToDate);
  EXPECT_EQ(describeUpdate(same, std::nullopt), "Brimble 1.3.2 is the newest release.");
  EXPECT_EQ(checkForUpdate(server_.url("older.json"), "1.3.2").status, UpdateStatus::newerThanFeed);
}

TEST_F(UpdateFeed, AFeedThatCannotBeFetchedOrReadIsOneClearError) {
  serve("soon.json", R"({"version": "soon", "notes": "?"})");
  EXPECT_EQ(failureOf(server_.url("soon.json")), UpdateError::Code::unreadableFeed);
  EXPECT_EQ(message_, "The release feed " + server_.url("soon.json") +
                          " cannot be read: its \"version\" is not a version number");
  serve("page.html", "<html>Not found, try again</html>");
  EXPECT_EQ(failureOf(server_.url("page.html")), UpdateError::Code::unreadableFeed);
  serve("none.json", R"([{"notes": "no version"}])");
  EXPECT_EQ(failureOf(server_.url("none.json")), UpdateError::Code::unreadableFeed);

  EXPECT_EQ(failureOf(server_.url("missing.json")), UpdateError::Code::httpStatus);
  EXPECT_EQ(message_,
            "The release feed " + server_.url("missing.json") + " answered with HTTP status 404");
  serve("huge.json", "[" + std::string(300 * 1024, ' ') + "]");
  EXPECT_EQ(failureOf(server_.url("huge.json")), UpdateError::Code::tooLarge);

  const std::string closed = testing::closedPortURL();
  EXPECT_EQ(failureOf(closed), UpdateError::Code::unreachable);
  EXPECT_TRUE(message_.starts_with("Cannot reach the release feed " + closed + ": ")) << message_;
  EXPECT_EQ(failureOf("file:///etc/passwd"), UpdateError::Code::unreachable);

  // A server that takes the connection and never answers costs the timeout, no more.
  UniqueFd silent(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ASSERT_EQ(::bind(silent.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(silent.get(), 4), 0);
  ASSERT_EQ(::getsockname(silent.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(failureOf("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/",
                      {.timeout = std::chrono::milliseconds(300), .maxBytes = 1024}),
            UpdateError::Code::unreachable);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
}

TEST(PackageOwner, NamesThePackageThatInstalledAProgramAndNoneForABuiltOne) {
  EXPECT_EQ(packageOwning("/usr/bin/dpkg"), "dpkg");
  EXPECT_EQ(packageOwning(BRIMBLE_BINARY), std::nullopt);

  // A brimble package's file list names the program.
  testing::TempDirectory info;
  testing::writeFile(info / "brimble.list",
                     "/.\n/usr\n/usr/bin\n" + std::string(BRIMBLE_BINARY) + "\n/usr/share/doc\n");
  EXPECT_EQ(packageOwning(BRIMBLE_BINARY, info.path()), "brimble");
}

}  // namespace
}  // namespace brimble
