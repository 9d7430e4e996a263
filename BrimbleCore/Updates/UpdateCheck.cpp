#include "BrimbleCore/Updates/UpdateCheck.h"

#include <cstdlib>

#include <fmt/format.h>

#include "BrimbleCore/Updates/UpdateError.h"

namespace brimble {

std::string_view rawValue(UpdateStatus status) noexcept {
  switch (status) {
    case UpdateStatus::upToDate:
      return "up-to-date";
    case UpdateStatus::updateAvailable:
      return "update-available";
    case UpdateStatus::newerThanFeed:
      return "newer-than-feed";
  }
  return "up-to-date";
}

std::string updateFeedAddress(const std::optional<std::string>& given, std::string_view builtIn) {
  if (given && !given->empty()) {
    return *given;
  }
  if (const char* fromEnvironment = std::getenv("BRIMBLE_UPDATE_FEED");
      fromEnvironment != nullptr && *fromEnvironment != '\0') {
    return fromEnvironment;
  }
  return std::string(builtIn);
}

UpdateCheckResult checkForUpdate(const std::string& feed, std::string_view currentVersion,
                                 const FeedLimits& limits) {
  const auto current = ReleaseVersion::parse(currentVersion);
  if (!current) {
    throw UpdateError::unreadableFeed(
        feed, fmt::format("this build's version \"{}\" is no version number", currentVersion));
  }
  UpdateCheckResult result{UpdateStatus::upToDate, std::string(currentVersion),
                           newestRelease(fetchFeed(feed, limits), feed), feed};
  if (result.newest.version > *current) {
    result.status = UpdateStatus::updateAvailable;
  } else if (result.newest.version < *current) {
    result.status = UpdateStatus::newerThanFeed;
  }
  return result;
}

std::string describeUpdate(const UpdateCheckResult& result,
                           const std::optional<std::string>& package) {
  const std::string& newest = result.newest.version.text();
  switch (result.status) {
    case UpdateStatus::upToDate:
      return fmt::format("Brimble {} is the newest release.", result.current);
    case UpdateStatus::newerThanFeed:
      return fmt::format("Brimble {} is newer than the newest release, {}.", result.current,
                         newest);
    case UpdateStatus::updateAvailable:
      break;
  }
  std::string text = fmt::format("Brimble {} is available (you have {})", newest, result.current);
  text += result.newest.date.empty() ? ":" : fmt::format(", released {}:", result.newest.date);
  if (!result.newest.notes.empty()) {
    text += "\n" + result.newest.notes;
    if (text.back() != '\n') {
      text += "\n";
    }
  } else {
    text += "\n";
  }
  if (package) {
    text += fmt::format(
        "This copy was installed from the {} package: update it with your package manager "
        "(sudo apt update && sudo apt install --only-upgrade {}).",
        *package, *package);
  } else if (!result.newest.download.empty()) {
    text += "Get it from " + result.newest.download;
  } else {
    text += "The feed " + result.feed + " says nothing of where to get it.";
  }
  return text;
}

}  // namespace brimble
