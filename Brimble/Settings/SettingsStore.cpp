#include "Brimble/Settings/SettingsStore.h"

#include <array>
#include <cstdlib>
#include <stdexcept>

#include <QtCore/QSettings>
#include <QtCore/QString>

#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

constexpr std::array kFrameRates = {12, 24, 30, 60};
constexpr std::array kCountdownDelays = {0, 3, 5, 10};

double readSeconds(const QSettings& store, const char* key, double fallback, double max) {
  bool ok = false;
  const double value = store.value(key).toDouble(&ok);
  return ok && value >= 0 && value <= max ? value : fallback;
}

int readInt(const QSettings& store, const char* key, int fallback, int min, int max) {
  bool ok = false;
  const int value = store.value(key).toInt(&ok);
  return ok && value >= min && value <= max ? value : fallback;
}

template <std::size_t N>
int readChoice(const QSettings& store, const char* key, int fallback,
               const std::array<int, N>& choices) {
  bool ok = false;
  const int value = store.value(key).toInt(&ok);
  for (int choice : choices) {
    if (ok && value == choice) {
      return value;
    }
  }
  return fallback;
}

bool readBool(const QSettings& store, const char* key, bool fallback) {
  const QString text = store.value(key).toString().toLower();
  if (text == "true" || text == "1") {
    return true;
  }
  if (text == "false" || text == "0") {
    return false;
  }
  return fallback;
}

}  // namespace

SettingsStore::SettingsStore() : file_(defaultPath()) {}

fs::path SettingsStore::defaultPath() {
  return userFolders::config() / "brimble.conf";
}

AppSettings SettingsStore::load() const {
  const QSettings store(QString::fromStdString(file_.string()), QSettings::IniFormat);
  const AppSettings defaults;
  AppSettings settings;
  settings.maxRecordingDuration =
      readSeconds(store, "maxRecordingDuration", defaults.maxRecordingDuration, 24 * 3600);
  settings.inactivityTimeout =
      readSeconds(store, "inactivityTimeout", defaults.inactivityTimeout, 3600);
  settings.countdownDelay =
      readChoice(store, "countdownDelay", defaults.countdownDelay, kCountdownDelays);
  const auto format =
      outputFormatFromRawValue(store.value("outputFormat").toString().toStdString());
  settings.outputFormat = format.value_or(defaults.outputFormat);
  settings.frameRate = readChoice(store, "frameRate", defaults.frameRate, kFrameRates);
  settings.loopCount = readInt(store, "loopCount", defaults.loopCount, 0, 65535);
  settings.showCursor = readBool(store, "showCursor", defaults.showCursor);
  const QString saveLocation = store.value("defaultSaveLocation").toString();
  settings.defaultSaveLocation = saveLocation.startsWith('/') ? fs::path(saveLocation.toStdString())
                                                              : userFolders::home() / "Pictures";
  settings.qualityPreset =
      qualityPresetFromRawValue(store.value("qualityPreset").toString().toStdString())
          .value_or(defaults.qualityPreset);
  settings.frameDiffing = readBool(store, "frameDiffing", defaults.frameDiffing);
  settings.frameDeduplication = readBool(store, "frameDeduplication", defaults.frameDeduplication);
  settings.maxFileSizeKB = readInt(store, "maxFileSizeKB", defaults.maxFileSizeKB, 0, 1 << 22);
  settings.webpQuality = readInt(store, "webpQuality", defaults.webpQuality, 0, 100);
  settings.webpLossless = readBool(store, "webpLossless", defaults.webpLossless);
  settings.autoStartAfterRegionSelection =
      readBool(store, "autoStartAfterRegionSelection", defaults.autoStartAfterRegionSelection);
  settings.showPreviewAfterCapture =
      readBool(store, "showPreviewAfterCapture", defaults.showPreviewAfterCapture);
  const QString hotkey = store.value("hotkey").toString().trimmed();
  settings.hotkey = hotkey.isEmpty() ? defaults.hotkey : hotkey.toStdString();
  settings.desktopShortcutOffered =
      readBool(store, "desktopShortcutOffered", defaults.desktopShortcutOffered);
  // Settings written before the welcome existed belong to someone who already uses the app.
  std::error_code error;
  settings.firstRunCompleted = readBool(store, "firstRunCompleted", fs::exists(file_, error));
  settings.checkForUpdates = readBool(store, "checkForUpdates", defaults.checkForUpdates);
  return settings;
}

void SettingsStore::save(const AppSettings& settings) const {
  QSettings store(QString::fromStdString(file_.string()), QSettings::IniFormat);
  store.setValue("maxRecordingDuration", settings.maxRecordingDuration);
  store.setValue("inactivityTimeout", settings.inactivityTimeout);
  store.setValue("countdownDelay", settings.countdownDelay);
  store.setValue("outputFormat", QString::fromUtf8(rawValue(settings.outputFormat).data(),
                                                   rawValue(settings.outputFormat).size()));
  store.setValue("frameRate", settings.frameRate);
  store.setValue("loopCount", settings.loopCount);
  store.setValue("showCursor", settings.showCursor);
  store.setValue("defaultSaveLocation",
                 QString::fromStdString(settings.defaultSaveLocation.string()));
  store.setValue("qualityPreset", QString::fromUtf8(rawValue(settings.qualityPreset).data(),
                                                    rawValue(settings.qualityPreset).size()));
  store.setValue("frameDiffing", settings.frameDiffing);
  store.setValue("frameDeduplication", settings.frameDeduplication);
  store.setValue("maxFileSizeKB", settings.maxFileSizeKB);
  store.setValue("webpQuality", settings.webpQuality);
  store.setValue("webpLossless", settings.webpLossless);
  store.setValue("autoStartAfterRegionSelection", settings.autoStartAfterRegionSelection);
  store.setValue("showPreviewAfterCapture", settings.showPreviewAfterCapture);
  store.setValue("hotkey", QString::fromStdString(settings.hotkey));
  store.setValue("desktopShortcutOffered", settings.desktopShortcutOffered);
  store.setValue("firstRunCompleted", settings.firstRunCompleted);
  store.setValue("checkForUpdates", settings.checkForUpdates);
  store.sync();
  if (store.status() != QSettings::NoError) {
    throw std::runtime_error("Couldn't write the settings file " + file_.string() + ".");
  }
}

}  // namespace brimble
