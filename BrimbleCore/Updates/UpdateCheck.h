#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "BrimbleCore/Updates/FeedFetcher.h"
#include "BrimbleCore/Updates/ReleaseFeed.h"

namespace brimble {

/// How this build compares with the newest release of the feed.
enum class UpdateStatus {
  upToDate,
  /// The feed has a newer release.
  updateAvailable,
  /// This build is newer than anything in the feed (a development build).
  newerThanFeed,
};

/// "up-to-date", "update-available", "newer-than-feed".
std::string_view rawValue(UpdateStatus status) noexcept;

struct UpdateCheckResult {
  UpdateStatus status = UpdateStatus::upToDate;
  std::string current;
  Release newest;
  std::string feed;
};

/// The feed to read: `given` (--feed), else $BRIMBLE_UPDATE_FEED, else `builtIn`.
std::string updateFeedAddress(const std::optional<std::string>& given, std::string_view builtIn);

/// Fetches the feed at `feed` and compares its newest release with `currentVersion`. Only reads:
/// nothing is downloaded or installed. Throws UpdateError when the feed cannot be fetched or
/// read, or when `currentVersion` is no version.
UpdateCheckResult checkForUpdate(const std::string& feed, std::string_view currentVersion,
                                 const FeedLimits& limits = {});

/// What a person is told: "Brimble 1.4.0 is available (you have 1.3.2), released 2026-11-20:",
/// the notes, and where to get it (the package manager when `package` installed this build,
/// else the feed's download address). One line when there is nothing new.
std::string describeUpdate(const UpdateCheckResult& result,
                           const std::optional<std::string>& package);

}  // namespace brimble
