#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// A release's version as a feed or a build names it: numbers separated by dots ("1.4.0",
/// "v1.10"), and optionally a pre-release suffix after a hyphen ("1.4.0-rc.2"). Numbers compare
/// as numbers (1.10 is after 1.9), missing ones count as 0 (1.4 is 1.4.0), and a pre-release
/// comes before its release, its dot-separated parts compared as numbers when both are numbers
/// and as text otherwise (rc.2 before rc.10, alpha before beta). Build metadata after "+" is
/// ignored.
class ReleaseVersion {
 public:
  /// Version 0.
  ReleaseVersion() = default;

  /// No value for text that is no version: empty, no leading number, a part that is no number,
  /// a number of more than 9 digits.
  static std::optional<ReleaseVersion> parse(std::string_view text);

  const std::string& text() const noexcept { return text_; }
  bool isPreRelease() const noexcept { return !preRelease_.empty(); }

  std::strong_ordering operator<=>(const ReleaseVersion& other) const;
  bool operator==(const ReleaseVersion& other) const { return (*this <=> other) == 0; }

 private:
  std::string text_ = "0";
  std::vector<long> numbers_{0};
  std::vector<std::string> preRelease_;
};

}  // namespace brimble
