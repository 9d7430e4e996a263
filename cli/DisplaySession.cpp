#include "cli/DisplaySession.h"

namespace brimble::cli {

DisplaySession::DisplaySession(bool headless) {
  const auto user = platform::userDisplay();
  if (headless || !user) {
    embedded_ = platform::startEmbeddedDisplay();
    name_ = embedded_->name();
  } else {
    name_ = *user;
  }
}

DisplaySession DisplaySession::lasting() {
  const auto user = platform::userDisplay();
  if (!user) {
    throw std::runtime_error(
        "$DISPLAY is not set, and a display started for this one command would vanish with it. "
        "Start a display that stays with `eval \"$(brimble display start)\"` (and stop it later "
        "with `brimble display stop`), or run inside an X11 session.");
  }
  DisplaySession session;
  session.name_ = *user;
  return session;
}

std::unique_ptr<AppLauncher> DisplaySession::appLauncher() const {
  std::vector<std::string> entries = environment();
  const std::vector<std::string> accessible = platform::accessibilityEnvironment();
  entries.insert(entries.end(), accessible.begin(), accessible.end());
  return std::make_unique<DetachedAppLauncher>(std::move(entries),
                                               platform::accessibilityArguments());
}

std::vector<std::string> DisplaySession::environment() const {
  return embedded_ ? embedded_->environment() : std::vector<std::string>{};
}

}  // namespace brimble::cli
