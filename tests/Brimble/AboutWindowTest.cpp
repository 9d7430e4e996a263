#include "Brimble/AboutWindow.h"

#include <filesystem>
#include <regex>
#include <string>

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <gtest/gtest.h>

#include "tests/Support/Files.h"
#include "tests/Support/OffscreenApplication.h"
#include "tests/Support/RunCommand.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

// The version the project declares, read from its build definition rather than from any header
// of ours: a program that says another has a version of its own somewhere.
std::string projectVersion() {
  const std::string cmake = testing::readFile(fs::path(BRIMBLE_SOURCE_DIR) / "CMakeLists.txt");
  std::smatch match;
  if (!std::regex_search(cmake, match, std::regex(R"(project\(Brimble VERSION ([0-9.]+))"))) {
    return {};
  }
  return match[1];
}

TEST(AboutWindow, TheCommandTheAppAndTheAboutWindowSayTheProjectsOneVersion) {
  const std::string version = projectVersion();
  ASSERT_FALSE(version.empty());
  EXPECT_EQ(testing::brimbleVersion(), version);
  EXPECT_EQ(testing::runCommand(std::string(BRIMBLE_APP_BINARY) + " --version").output,
            "brimble-app " + version + "\n");

  const testing::OffscreenApplication application;
  AboutWindow about;
  about.show();
  const auto* shown = about.findChild<QLabel*>("brimble-about-version");
  ASSERT_NE(shown, nullptr);
  EXPECT_EQ(shown->text().toStdString(), "Version " + version);

  QGuiApplication::clipboard()->clear();
  about.copyVersionButton()->click();
  const std::string copied = QGuiApplication::clipboard()->text().toStdString();
  EXPECT_EQ(copied.rfind("Brimble " + version + " (Qt " + qVersion() + ", ", 0), 0u) << copied;

  fs::create_directories(fs::path(BRIMBLE_ARTIFACT_DIR) / "about");
  EXPECT_TRUE(about.grab().save(
      QString::fromStdString((fs::path(BRIMBLE_ARTIFACT_DIR) / "about" / "window.png").string())));
}

}  // namespace
}  // namespace brimble
