#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Failures of the drivers that act inside applications (the browser, accessibility): what a
/// script line or an assistant's tool call reports.
class DemoDriverError : public std::runtime_error {
 public:
  enum class Code { actionFailed, elementNotFound, permissionDenied, invalidTarget, unsupported };

  static DemoDriverError actionFailed(const std::string& detail) {
    return {Code::actionFailed, "Action failed: " + detail};
  }
  static DemoDriverError elementNotFound(const std::string& detail) {
    return {Code::elementNotFound, "Element not found: " + detail};
  }
  static DemoDriverError permissionDenied(const std::string& detail) {
    return {Code::permissionDenied, "Permission denied: " + detail};
  }
  static DemoDriverError invalidTarget(const std::string& detail) {
    return {Code::invalidTarget, "Invalid target: " + detail};
  }
  static DemoDriverError unsupported(const std::string& detail) {
    return {Code::unsupported, "Unsupported: " + detail};
  }

  Code code() const noexcept { return code_; }

 private:
  DemoDriverError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
