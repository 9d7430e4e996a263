#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brimble {

/// An X resource id (a window, a RandR output) as users give it: decimal ("27262983") or
/// hexadecimal with "0x" ("0x1a00007"), the form xwininfo, xprop and `brimble windows` print. No
/// value for anything else, a leading zero included ("010" is not read as octal), or for a value
/// above 32 bits.
std::optional<std::uint32_t> parseXID(std::string_view text);

/// The one form brimble prints X ids in: "0x1a00007".
std::string formatXID(std::uint32_t id);

}  // namespace brimble
