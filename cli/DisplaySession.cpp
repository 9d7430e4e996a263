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

std::vector<std::string> DisplaySession::environment() const {
  return embedded_ ? embedded_->environment() : std::vector<std::string>{};
}

}  // namespace brimble::cli
