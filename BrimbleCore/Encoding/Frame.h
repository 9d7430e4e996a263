#pragma once

#include <optional>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// A frame as captured. Recorders produce them; effects and encoders consume them.
struct TimestampedFrame {
  Image image;
  /// Seconds since the start of the recording, on the recording's own (possibly remapped) clock.
  double timestamp = 0;
  /// Seconds on the capture clock before any remapping.
  double sourceTimestamp = 0;
  /// How long the frame should be shown, when known.
  std::optional<double> duration;

  TimestampedFrame() = default;
  /// Without a `sourceTimestamp`, the frame's source time is its `timestamp`.
  TimestampedFrame(Image frameImage, double time, std::optional<double> sourceTime = {},
                   std::optional<double> shownFor = {})
      : image(std::move(frameImage)),
        timestamp(time),
        sourceTimestamp(sourceTime.value_or(time)),
        duration(shownFor) {}
};

/// A frame ready for an encoder.
struct ProcessedFrame {
  Image image;
  /// Display time of this frame in seconds.
  double delay = 0;
  /// The capture-clock time of the source frame, when known.
  std::optional<double> sourceTimestamp;
};

}  // namespace brimble
