#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "BrimbleCore/Encoding/OutputFormat.h"

namespace brimble {

/// The encoding presets: every preset but `custom` decides frame diffing, deduplication and the
/// file-size budget itself.
enum class QualityPreset { small, balanced, high, custom };

/// "small", "balanced", "high", "custom".
std::string_view rawValue(QualityPreset preset) noexcept;
std::optional<QualityPreset> qualityPresetFromRawValue(std::string_view text) noexcept;

/// The application's preferences as values; the SettingsStore reads and writes them. A plain
/// value, so the recording session can be tested without a settings file.
struct AppSettings {
  /// Seconds; a recording stops by itself after this long (0: never).
  double maxRecordingDuration = 300;
  /// Seconds without a change on screen after which a recording stops (0: never).
  double inactivityTimeout = 0;
  /// Seconds of countdown before capture (0: none).
  int countdownDelay = 3;
  OutputFormat outputFormat = OutputFormat::gif;
  int frameRate = 24;
  int loopCount = 0;
  bool showCursor = true;
  std::filesystem::path defaultSaveLocation;
  QualityPreset qualityPreset = QualityPreset::balanced;
  /// Used only by the `custom` preset.
  bool frameDiffing = true;
  bool frameDeduplication = true;
  /// Used only by the `custom` preset; 0: no budget.
  int maxFileSizeKB = 0;
  int webpQuality = 80;
  bool webpLossless = false;
  bool autoStartAfterRegionSelection = false;
  bool showPreviewAfterCapture = false;
  /// The global shortcut in Qt's portable text ("Ctrl+Shift+G").
  std::string hotkey = "Ctrl+Shift+G";
  /// Whether the user was asked to add the desktop's own shortcut for the app, where the
  /// desktop gives apps no global shortcuts; asked once, whatever the answer.
  bool desktopShortcutOffered = false;
  /// The welcome window has been closed once, so it no longer opens by itself.
  bool firstRunCompleted = false;
  /// Read the release feed at most once a day at start and tell of a newer release. Off until
  /// the user turns it on: nothing reaches the network unasked.
  bool checkForUpdates = false;
};

/// What an encode uses once the preset has been applied.
struct EncodingSettings {
  OutputFormat format = OutputFormat::gif;
  int frameRate = 24;
  int loopCount = 0;
  bool frameDiffing = true;
  bool frameDeduplication = true;
  int maxFileSizeKB = 0;
  int webpQuality = 80;
  bool webpLossless = false;
};

/// The effective encoding settings: the preset forces diffing, deduplication and the budget
/// unless it is `custom`.
EncodingSettings effectiveEncoding(const AppSettings& settings);

}  // namespace brimble
