#include "BrimbleCore/Encoding/MuxTiming.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace brimble::MuxTiming {

std::uint16_t gifDelayCentiseconds(double seconds) {
  if (!(seconds > 0) || !std::isfinite(seconds)) {
    return 0;
  }
  const double centiseconds = std::round(seconds * 100);  // std::round rounds halves away from 0
  return static_cast<std::uint16_t>(std::min(centiseconds, 65535.0));
}

std::optional<std::uint16_t> netscapeRepetitions(int loopCount) {
  if (loopCount == 0) {
    return 0;
  }
  if (loopCount == 1 || loopCount == 65535 || loopCount < 0) {
    return std::nullopt;
  }
  // Truncating to 16 bits is deliberate: 65536 plays become 65535 repetitions, 65537 wraps to 0.
  return static_cast<std::uint16_t>(loopCount - 1);
}

APNGDelay apngRational(double seconds) {
  if (!(seconds > 0) || !std::isfinite(seconds)) {
    return {0, 1};
  }
  constexpr double kMax = std::numeric_limits<std::uint16_t>::max();
  if (seconds >= kMax) {
    return {std::numeric_limits<std::uint16_t>::max(), 1};
  }
  // Prefer the finest denominator that still keeps the numerator within 16 bits: milliseconds for
  // delays up to about a minute, coarser units beyond.
  for (const double denominator : {1000.0, 100.0, 10.0, 1.0}) {
    const double numerator = std::round(seconds * denominator);
    if (numerator <= kMax) {
      const auto n = static_cast<unsigned>(numerator);
      const auto d = static_cast<unsigned>(denominator);
      const unsigned divisor = n == 0 ? d : std::gcd(n, d);
      return {static_cast<std::uint16_t>(n / divisor), static_cast<std::uint16_t>(d / divisor)};
    }
  }
  return {static_cast<std::uint16_t>(std::round(seconds)), 1};
}

}  // namespace brimble::MuxTiming
