#pragma once

#include <string>
#include <string_view>

#include "BrimbleCore/Updates/ReleaseVersion.h"

namespace brimble {

/// One release as the feed announces it.
struct Release {
  ReleaseVersion version;
  /// As the feed gives them; empty when it gives none.
  std::string date;
  std::string notes;
  std::string download;
};

/// The newest release in a feed's body. A feed is a JSON object {"version": "1.4.0", "date":
/// "2026-11-20", "notes": "...", "download": "https://..."}, or a list of such objects (the one
/// with the greatest version is taken, whatever the order). Only "version" is required; other
/// fields that are not text are left empty, and list entries without a readable version are
/// skipped. Throws UpdateError::unreadableFeed (naming `url`) when no release can be read.
Release newestRelease(std::string_view body, const std::string& url);

}  // namespace brimble
