#pragma once

#include <exception>
#include <string>

namespace brimble::testing {

/// The description of the `Error` that `body` throws, or "(no error)" when it returns. Any other
/// exception passes through and fails the test.
template <typename Error = std::exception, typename Body>
std::string errorText(Body&& body) {
  try {
    body();
  } catch (const Error& error) {
    return error.what();
  }
  return "(no error)";
}

}  // namespace brimble::testing
