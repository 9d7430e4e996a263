#include "BrimbleCore/Updates/ReleaseVersion.h"

#include <algorithm>
#include <cstddef>

namespace brimble {

namespace {

bool allDigits(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
    if (end == std::string_view::npos) {
      return parts;
    }
    start = end + 1;
  }
}

// Numeric identifiers come before textual ones, as in semantic versioning.
std::strong_ordering compareIdentifier(const std::string& left, const std::string& right) {
  const bool leftNumber = allDigits(left);
  const bool rightNumber = allDigits(right);
  if (leftNumber && rightNumber) {
    if (left.size() != right.size()) {
      return left.size() <=> right.size();  // no leading zeros after parsing: longer is larger
    }
    return left.compare(right) <=> 0;
  }
  if (leftNumber != rightNumber) {
    return leftNumber ? std::strong_ordering::less : std::strong_ordering::greater;
  }
  return left.compare(right) <=> 0;
}

}  // namespace

std::optional<ReleaseVersion> ReleaseVersion::parse(std::string_view text) {
  ReleaseVersion version;
  version.text_ = std::string(text);
  version.numbers_.clear();
  if (!text.empty() && (text.front() == 'v' || text.front() == 'V')) {
    text.remove_prefix(1);
  }
  text = text.substr(0, text.find('+'));
  const std::size_t hyphen = text.find('-');
  const std::string_view release = text.substr(0, hyphen);
  for (const std::string_view part : split(release, '.')) {
    if (!allDigits(part) || part.size() > 9) {
      return std::nullopt;
    }
    version.numbers_.push_back(std::stol(std::string(part)));
  }
  if (hyphen != std::string_view::npos) {
    for (const std::string_view part : split(text.substr(hyphen + 1), '.')) {
      if (part.empty()) {
        return std::nullopt;
      }
      std::string identifier(part);
      if (allDigits(identifier)) {
        identifier.erase(0, std::min(identifier.find_first_not_of('0'), identifier.size() - 1));
      }
      version.preRelease_.push_back(std::move(identifier));
    }
  }
  // 1.4 and 1.4.0 are one version.
  while (version.numbers_.size() > 1 && version.numbers_.back() == 0) {
    version.numbers_.pop_back();
  }
  return version;
}

std::strong_ordering ReleaseVersion::operator<=>(const ReleaseVersion& other) const {
  const std::size_t count = std::max(numbers_.size(), other.numbers_.size());
  for (std::size_t index = 0; index < count; ++index) {
    const long left = index < numbers_.size() ? numbers_[index] : 0;
    const long right = index < other.numbers_.size() ? other.numbers_[index] : 0;
    if (left != right) {
      return left <=> right;
    }
  }
  if (preRelease_.empty() || other.preRelease_.empty()) {
    // The release itself comes after any of its pre-releases.
    return preRelease_.empty() <=> other.preRelease_.empty();
  }
  const std::size_t parts = std::min(preRelease_.size(), other.preRelease_.size());
  for (std::size_t index = 0; index < parts; ++index) {
    if (const auto order = compareIdentifier(preRelease_[index], other.preRelease_[index]);
        order != 0) {
      return order;
    }
  }
  return preRelease_.size() <=> other.preRelease_.size();
}

}  // namespace brimble
