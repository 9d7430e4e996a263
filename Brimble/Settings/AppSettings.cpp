#include "Brimble/Settings/AppSettings.h"

namespace brimble {

std::string_view rawValue(QualityPreset preset) noexcept {
  switch (preset) {
    case QualityPreset::small:
      return "small";
    case QualityPreset::balanced:
      return "balanced";
    case QualityPreset::high:
      return "high";
    case QualityPreset::custom:
      return "custom";
  }
  return "balanced";
}

std::optional<QualityPreset> qualityPresetFromRawValue(std::string_view text) noexcept {
  for (QualityPreset preset : {QualityPreset::small, QualityPreset::balanced, QualityPreset::high,
                               QualityPreset::custom}) {
    if (rawValue(preset) == text) {
      return preset;
    }
  }
  return std::nullopt;
}

EncodingSettings effectiveEncoding(const AppSettings& settings) {
  EncodingSettings encoding;
  encoding.format = settings.outputFormat;
  encoding.frameRate = settings.frameRate;
  encoding.loopCount = settings.loopCount;
  encoding.webpQuality = settings.webpQuality;
  encoding.webpLossless = settings.webpLossless;
  switch (settings.qualityPreset) {
    case QualityPreset::small:
      // Sized for chat and issue trackers, which commonly refuse images over a few MB.
      encoding.frameDiffing = true;
      encoding.frameDeduplication = true;
      encoding.maxFileSizeKB = 2048;
      break;
    case QualityPreset::balanced:
      encoding.frameDiffing = true;
      encoding.frameDeduplication = true;
      encoding.maxFileSizeKB = 0;
      break;
    case QualityPreset::high:
      // Every frame kept whole: nothing that a dedup threshold could judge "the same" is lost.
      encoding.frameDiffing = false;
      encoding.frameDeduplication = false;
      encoding.maxFileSizeKB = 0;
      break;
    case QualityPreset::custom:
      encoding.frameDiffing = settings.frameDiffing;
      encoding.frameDeduplication = settings.frameDeduplication;
      encoding.maxFileSizeKB = settings.maxFileSizeKB;
      break;
  }
  return encoding;
}

}  // namespace brimble
