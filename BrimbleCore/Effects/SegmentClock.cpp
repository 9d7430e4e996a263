#include "BrimbleCore/Effects/SegmentClock.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string_view>

namespace brimble {
namespace {

bool isModifier(std::string_view key) {
  for (std::string_view prefix : {"Control", "Alt", "Super", "Meta", "Hyper"}) {
    if (key.starts_with(prefix)) {
      return true;
    }
  }
  return false;
}

bool isTypedKey(std::string_view key) {
  // Key names of the keyboard map: printable characters have one-letter names ("a", "A") or
  // the names of punctuation ("comma", "period"), which the chords never need as badges.
  return key.size() == 1 || key == "space" || key == "BackSpace" || key == "comma" ||
         key == "period" || key == "minus" || key == "slash" || key == "apostrophe" ||
         key == "semicolon" || key == "equal" || key == "quotedbl" || key == "underscore";
}

}  // namespace

SegmentClock::SegmentClock(double length) : outputLength_(std::max(length, 0.0)) {
  pieces_.push_back({0, outputLength_, 0, outputLength_, false});
}

std::vector<TimeSpan> SegmentClock::idleStretches(std::span<const double> changeTimes,
                                                  std::span<const double> inputTimes, double length,
                                                  double threshold) {
  std::vector<double> activity(changeTimes.begin(), changeTimes.end());
  activity.insert(activity.end(), inputTimes.begin(), inputTimes.end());
  activity.push_back(0);
  std::sort(activity.begin(), activity.end());
  activity.push_back(length);
  std::vector<TimeSpan> stretches;
  for (std::size_t i = 1; i < activity.size(); ++i) {
    const double start = std::max(activity[i - 1], 0.0);
    const double end = std::min(activity[i], length);
    if (end - start > threshold) {
      stretches.push_back({start, end});
    }
  }
  return stretches;
}

std::vector<double> SegmentClock::typedKeyTimes(std::span<const InputEvent> events) {
  std::vector<double> times;
  int modifiersHeld = 0;
  for (const InputEvent& event : events) {
    if (event.kind != InputEvent::Kind::keyDown && event.kind != InputEvent::Kind::keyUp) {
      continue;
    }
    const bool down = event.kind == InputEvent::Kind::keyDown;
    if (isModifier(event.key)) {
      modifiersHeld = std::max(0, modifiersHeld + (down ? 1 : -1));
    } else if (down && modifiersHeld == 0 && isTypedKey(event.key)) {
      times.push_back(event.timestamp);
    }
  }
  return times;
}

std::vector<TimeSpan> SegmentClock::typingBursts(std::span<const double> keyTimes) {
  std::vector<TimeSpan> bursts;
  std::size_t first = 0;
  for (std::size_t i = 1; i <= keyTimes.size(); ++i) {
    if (i == keyTimes.size() || keyTimes[i] - keyTimes[i - 1] > kBurstGap) {
      if (i - first >= 3) {
        bursts.push_back({keyTimes[first], keyTimes[i - 1]});
      }
      first = i;
    }
  }
  return bursts;
}

SegmentClock SegmentClock::remapped(double length, std::span<const TimeSpan> stretches,
                                    std::optional<IdleStrategy> strategy,
                                    std::span<const TimeSpan> bursts,
                                    std::span<const double> keyTimes) {
  SegmentClock clock(length);
  clock.pieces_.clear();
  double output = 0;
  double source = 0;
  const auto play = [&](double sourceEnd, double outputLength, bool eased) {
    if (sourceEnd <= source && outputLength <= 0) {
      return;
    }
    clock.pieces_.push_back({output, output + outputLength, source, sourceEnd, eased});
    output += outputLength;
    source = sourceEnd;
  };
  const auto jump = [&](double sourceTime) { source = sourceTime; };

  // Idle stretches have no input and bursts are made of it, so the two never overlap; they are
  // handled in the order of their times.
  struct Region {
    TimeSpan span;
    bool idle = false;
  };
  std::vector<Region> regions;
  if (strategy) {
    for (const TimeSpan& stretch : stretches) {
      regions.push_back({stretch, true});
    }
  }
  for (const TimeSpan& burst : bursts) {
    regions.push_back({burst, false});
  }
  std::sort(regions.begin(), regions.end(),
            [](const Region& a, const Region& b) { return a.span.start < b.span.start; });

  for (const Region& region : regions) {
    const double start = std::clamp(region.span.start, source, length);
    const double end = std::clamp(region.span.end, start, length);
    play(start, start - source, false);
    if (region.idle) {
      const double stretch = end - start;
      const double beat = std::min(kIdleBeat, stretch);
      if (*strategy == IdleStrategy::ramp) {
        play(end, std::max(beat, stretch / kRampSpeed), true);
      } else {
        play(start + beat / 2, beat / 2, false);
        if (*strategy == IdleStrategy::fade) {
          clock.dips_.push_back(output);
        }
        jump(end - beat / 2);
        play(end, beat / 2, false);
      }
    } else {
      // The keys of the burst land at equal steps of the burst's own length.
      const auto firstKey = std::lower_bound(keyTimes.begin(), keyTimes.end(), start);
      const auto lastKey = std::upper_bound(firstKey, keyTimes.end(), end);
      const auto keys = std::span<const double>(firstKey, lastKey);
      if (keys.size() < 2) {
        continue;
      }
      const double step = (end - start) / static_cast<double>(keys.size() - 1);
      for (std::size_t i = 1; i < keys.size(); ++i) {
        play(keys[i], step, false);
      }
    }
  }
  play(length, length - source, false);
  clock.outputLength_ = output;
  if (clock.pieces_.empty()) {
    clock.pieces_.push_back({0, 0, 0, 0, false});
  }
  return clock;
}

double SegmentClock::sourceTime(double outputTime) const {
  const double t = std::clamp(outputTime, 0.0, outputLength_);
  auto piece = std::upper_bound(pieces_.begin(), pieces_.end(), t,
                                [](double time, const Piece& p) { return time < p.outputStart; });
  if (piece != pieces_.begin()) {
    --piece;
  }
  const double span = piece->outputEnd - piece->outputStart;
  if (span <= 0) {
    return piece->sourceEnd;
  }
  const double u = std::clamp((t - piece->outputStart) / span, 0.0, 1.0);
  const double distance = piece->sourceEnd - piece->sourceStart;
  if (!piece->eased) {
    return piece->sourceStart + u * distance;
  }
  // Cubic Hermite from real-time speed back to real-time speed; monotone since the stretch is
  // never played slower than real time on average.
  const double u2 = u * u;
  const double u3 = u2 * u;
  return piece->sourceStart + span * (2 * u3 - 3 * u2 + u) + distance * (3 * u2 - 2 * u3);
}

double SegmentClock::dip(double outputTime) const {
  constexpr double kHalfWidth = kIdleBeat / 2;
  double darkness = 0;
  for (double centre : dips_) {
    const double distance = std::abs(outputTime - centre);
    if (distance < kHalfWidth) {
      darkness = std::max(darkness, (1 + std::cos(std::numbers::pi * distance / kHalfWidth)) / 2);
    }
  }
  return darkness;
}

}  // namespace brimble
