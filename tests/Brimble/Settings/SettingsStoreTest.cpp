#include "Brimble/Settings/SettingsStore.h"

#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

TEST(SettingsStore, LivesUnderTheXDGConfigFolderAndWritesTheCamelCaseKeys) {
  testing::TempDirectory folder;
  const char* previous = std::getenv("XDG_CONFIG_HOME");
  const std::string saved = previous != nullptr ? previous : "";
  setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
  const SettingsStore store;
  if (previous != nullptr) {
    setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
  } else {
    unsetenv("XDG_CONFIG_HOME");
  }
  EXPECT_EQ(store.file(), folder / "brimble" / "brimble.conf");

  AppSettings settings;
  settings.outputFormat = OutputFormat::webp;
  settings.qualityPreset = QualityPreset::custom;
  settings.maxFileSizeKB = 500;
  settings.countdownDelay = 0;
  settings.defaultSaveLocation = "/srv/clips";
  store.save(settings);
  const std::string text = testing::readFile(store.file());
  for (const char* line :
       {"maxRecordingDuration=300", "inactivityTimeout=0", "countdownDelay=0", "outputFormat=webp",
        "frameRate=24", "showCursor=true", "defaultSaveLocation=/srv/clips", "qualityPreset=custom",
        "maxFileSizeKB=500", "webpQuality=80", "webpLossless=false",
        "autoStartAfterRegionSelection=false", "showPreviewAfterCapture=false",
        "hotkey=Ctrl+Shift+G"}) {
    EXPECT_NE(text.find(std::string(line) + "\n"), std::string::npos) << line;
  }
  const AppSettings back = store.load();
  EXPECT_EQ(back.outputFormat, OutputFormat::webp);
  EXPECT_EQ(back.maxFileSizeKB, 500);
  EXPECT_EQ(back.countdownDelay, 0);
  EXPECT_EQ(back.defaultSaveLocation, "/srv/clips");
}

TEST(SettingsStore, MissingOrBadValuesReadAsDefaults) {
  testing::TempDirectory folder;
  const SettingsStore missing(folder / "none.conf");
  const AppSettings defaults = missing.load();
  EXPECT_EQ(defaults.countdownDelay, 3);
  EXPECT_EQ(defaults.frameRate, 24);
  EXPECT_EQ(defaults.qualityPreset, QualityPreset::balanced);
  EXPECT_EQ(defaults.maxRecordingDuration, 300);
  EXPECT_EQ(defaults.defaultSaveLocation.filename(), "Pictures");

  std::ofstream(folder / "bad.conf") << "[General]\n"
                                        "frameRate=25\n"
                                        "countdownDelay=-4\n"
                                        "outputFormat=bmp\n"
                                        "showCursor=perhaps\n"
                                        "maxRecordingDuration=forever\n"
                                        "webpQuality=101\n"
                                        "qualityPreset=tiny\n"
                                        "defaultSaveLocation=relative/path\n"
                                        "inactivityTimeout=12.5\n";
  const AppSettings bad = SettingsStore(folder / "bad.conf").load();
  EXPECT_EQ(bad.frameRate, 24);
  EXPECT_EQ(bad.countdownDelay, 3);
  EXPECT_EQ(bad.outputFormat, OutputFormat::gif);
  EXPECT_TRUE(bad.showCursor);
  EXPECT_EQ(bad.maxRecordingDuration, 300);
  EXPECT_EQ(bad.webpQuality, 80);
  EXPECT_EQ(bad.qualityPreset, QualityPreset::balanced);
  EXPECT_TRUE(bad.defaultSaveLocation.is_absolute());
  EXPECT_EQ(bad.inactivityTimeout, 12.5);  // a good value among bad ones is kept
}

TEST(SettingsStore, PresetsDecideDiffingDedupAndBudgetUnlessCustom) {
  AppSettings settings;
  settings.frameDiffing = false;
  settings.maxFileSizeKB = 321;
  settings.qualityPreset = QualityPreset::balanced;
  EXPECT_TRUE(effectiveEncoding(settings).frameDiffing);
  EXPECT_EQ(effectiveEncoding(settings).maxFileSizeKB, 0);
  settings.qualityPreset = QualityPreset::small;
  EXPECT_EQ(effectiveEncoding(settings).maxFileSizeKB, 2048);
  settings.qualityPreset = QualityPreset::high;
  EXPECT_FALSE(effectiveEncoding(settings).frameDeduplication);
  settings.qualityPreset = QualityPreset::custom;
  EXPECT_FALSE(effectiveEncoding(settings).frameDiffing);
  EXPECT_EQ(effectiveEncoding(settings).maxFileSizeKB, 321);
}

TEST(SettingsStore, TheWelcomeIsDueOnlyWithoutSettingsAndOnceClosedStaysDone) {
  testing::TempDirectory folder;
  const SettingsStore fresh(folder / "fresh.conf");
  EXPECT_FALSE(fresh.load().firstRunCompleted) << "a new user is welcomed";
  AppSettings settings = fresh.load();
  settings.firstRunCompleted = true;
  fresh.save(settings);
  EXPECT_NE(testing::readFile(fresh.file()).find("firstRunCompleted=true\n"), std::string::npos);
  EXPECT_TRUE(fresh.load().firstRunCompleted);

  // Someone who already chose settings, before the welcome existed, is not shown it.
  std::ofstream(folder / "earlier.conf") << "[General]\nframeRate=30\n";
  EXPECT_TRUE(SettingsStore(folder / "earlier.conf").load().firstRunCompleted);
}

}  // namespace
}  // namespace brimble
