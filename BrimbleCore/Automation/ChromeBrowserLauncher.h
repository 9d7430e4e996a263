#pragma once

#include <string>
#include <vector>

#include "BrimbleCore/Automation/BrowserSession.h"

namespace brimble {

/// Browser sessions in Chrome or Chromium, driven over the DevTools protocol: each launch is a
/// browser of its own with a fresh profile, deleted when the session ends.
class ChromeBrowserLauncher final : public BrowserLauncher {
 public:
  /// `environment` ("NAME=value") is added to ours for every browser: the display it opens on.
  explicit ChromeBrowserLauncher(std::vector<std::string> environment = {})
      : environment_(std::move(environment)) {}

  std::unique_ptr<BrowserSession> launch(const std::string& url) override;

 private:
  const std::vector<std::string> environment_;
};

}  // namespace brimble
