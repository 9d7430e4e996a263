#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brimble::testing {

/// Reads the CLIPBOARD selection of `displayName` as a pasting application does: asks its owner
/// to convert it to `target` and collects the reply, large replies (INCR) included. No value
/// when nobody owns the clipboard, the owner refuses the type, or it does not answer within
/// five seconds.
std::optional<std::vector<std::uint8_t>> readClipboard(const std::string& displayName,
                                                       const std::string& target);

/// The types the clipboard's owner offers (its TARGETS).
std::vector<std::string> clipboardTargets(const std::string& displayName);

}  // namespace brimble::testing
