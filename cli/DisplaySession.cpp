#include "cli/DisplaySession.h"

#include <cstdlib>

namespace brimble::cli {

DisplaySession::DisplaySession(bool headless) {
  const char* display = std::getenv("DISPLAY");
  if (headless || display == nullptr || *display == '\0') {
    embedded_ = x11::HeadlessDisplay::start();
  }
}

std::string DisplaySession::name() const {
  if (embedded_) {
    return embedded_->displayName();
  }
  const char* display = std::getenv("DISPLAY");
  return display != nullptr ? display : "";
}

}  // namespace brimble::cli
