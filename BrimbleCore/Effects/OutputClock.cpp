#include "BrimbleCore/Effects/OutputClock.h"

#include <algorithm>
#include <utility>

namespace brimble {

OutputClock::OutputClock(std::vector<std::optional<double>> starts,
                         std::vector<SegmentClock> clocks, double length, double speed,
                         double loopStart)
    : starts_(std::move(starts)),
      clocks_(std::move(clocks)),
      length_(length),
      speed_(speed > 0 ? speed : 1),
      loopStart_(loopStart) {
  clocks_.resize(starts_.size());
}

std::optional<double> OutputClock::segmentStart(int segment) const {
  if (segment < 0 || segment >= segmentCount()) {
    return std::nullopt;
  }
  const auto start = starts_[static_cast<std::size_t>(segment)];
  return start ? std::optional(*start / speed_) : std::nullopt;
}

std::optional<double> OutputClock::segmentEnd(int segment) const {
  if (segment < 0 || segment >= segmentCount() || !starts_[static_cast<std::size_t>(segment)]) {
    return std::nullopt;
  }
  return (*starts_[static_cast<std::size_t>(segment)] +
          clocks_[static_cast<std::size_t>(segment)].length()) /
         speed_;
}

std::optional<double> OutputClock::outputTime(int segment, double sourceTime) const {
  if (segment < 0 || segment >= segmentCount() || !starts_[static_cast<std::size_t>(segment)]) {
    return std::nullopt;
  }
  const double start = *starts_[static_cast<std::size_t>(segment)];
  // The segment's clock maps output to source time and never runs backwards, so the first
  // output time that reaches `sourceTime` is found by bisection, whatever the easing.
  const SegmentClock& clock = clocks_[static_cast<std::size_t>(segment)];
  double low = 0;
  double high = clock.length();
  if (clock.sourceTime(high) < sourceTime) {
    return (start + high) / speed_;
  }
  for (int step = 0; step < 60 && high - low > 1e-6; ++step) {
    const double middle = (low + high) / 2;
    if (clock.sourceTime(middle) < sourceTime - 1e-9) {
      low = middle;
    } else {
      high = middle;
    }
  }
  return (start + high) / speed_;
}

}  // namespace brimble
