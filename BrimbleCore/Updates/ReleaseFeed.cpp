#include "BrimbleCore/Updates/ReleaseFeed.h"

#include <optional>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Updates/UpdateError.h"

namespace brimble {

namespace {

std::string textField(const nlohmann::json& entry, const char* key) {
  const auto found = entry.find(key);
  return found != entry.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::optional<Release> releaseIn(const nlohmann::json& entry) {
  if (!entry.is_object()) {
    return std::nullopt;
  }
  auto version = ReleaseVersion::parse(textField(entry, "version"));
  if (!version) {
    return std::nullopt;
  }
  return Release{*version, textField(entry, "date"), textField(entry, "notes"),
                 textField(entry, "download")};
}

}  // namespace

Release newestRelease(std::string_view body, const std::string& url) {
  nlohmann::json document;
  try {
    document = nlohmann::json::parse(body);
  } catch (const nlohmann::json::exception&) {
    throw UpdateError::unreadableFeed(url, "it is not JSON");
  }
  if (document.is_object()) {
    if (auto release = releaseIn(document)) {
      return *release;
    }
    throw UpdateError::unreadableFeed(url, document.contains("version")
                                               ? "its \"version\" is not a version number"
                                               : "it names no \"version\"");
  }
  if (!document.is_array()) {
    throw UpdateError::unreadableFeed(url, "it is neither a release nor a list of releases");
  }
  std::optional<Release> newest;
  for (const nlohmann::json& entry : document) {
    auto release = releaseIn(entry);
    if (release && (!newest || release->version > newest->version)) {
      newest = std::move(release);
    }
  }
  if (!newest) {
    throw UpdateError::unreadableFeed(url, "none of its releases has a version number");
  }
  return *newest;
}

}  // namespace brimble
