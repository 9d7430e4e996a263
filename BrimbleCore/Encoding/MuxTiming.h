#pragma once

#include <cstdint>
#include <optional>

namespace brimble::MuxTiming {

/// A GIF frame delay: seconds to centiseconds, halves away from zero, clamped to 65535. Zero for
/// anything not positive or not finite; there is no minimum.
std::uint16_t gifDelayCentiseconds(double seconds);

/// The NETSCAPE2.0 repetition count for a number of plays (0 = forever), or no value when the
/// file must carry no loop block: 1, 65535 and negative counts.
std::optional<std::uint16_t> netscapeRepetitions(int loopCount);

/// An APNG frame delay as the fcTL chunk's numerator/denominator pair.
struct APNGDelay {
  std::uint16_t numerator = 0;
  std::uint16_t denominator = 1;
  bool operator==(const APNGDelay&) const = default;
};

/// The closest fraction with 16-bit terms to `seconds`: exact for whole milliseconds, reduced to
/// lowest terms; zero for anything not positive or not finite; at most 65535 seconds.
APNGDelay apngRational(double seconds);

}  // namespace brimble::MuxTiming
