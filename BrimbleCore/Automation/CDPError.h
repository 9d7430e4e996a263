#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Failures of launching the browser and of the DevTools protocol connection.
class CDPError : public std::runtime_error {
 public:
  enum class Code {
    browserNotInstalled,
    noDebuggablePage,
    malformedTargetList,
    noPageTarget,
    commandFailed,
    connectionClosed,
    malformedMessage,
    timedOut,
  };

  static CDPError browserNotInstalled() {
    return {Code::browserNotInstalled, "Google Chrome or Chromium is not installed"};
  }
  static CDPError noDebuggablePage(int port) {
    return {Code::noDebuggablePage,
            "Chrome did not expose a debuggable page on port " + std::to_string(port)};
  }
  static CDPError malformedTargetList() {
    return {Code::malformedTargetList, "Malformed /json/list response"};
  }
  static CDPError noPageTarget() { return {Code::noPageTarget, "no debuggable page target"}; }
  /// The browser answered a command with an error; `message` is its text.
  static CDPError commandFailed(const std::string& message) {
    return {Code::commandFailed, "CDP error: " + message};
  }
  static CDPError connectionClosed() { return {Code::connectionClosed, "CDP connection closed"}; }
  static CDPError malformedMessage() { return {Code::malformedMessage, "Malformed CDP message"}; }
  static CDPError timedOut(const std::string& method) {
    return {Code::timedOut, "CDP command " + method + " got no answer in time"};
  }

  Code code() const noexcept { return code_; }

 private:
  CDPError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
