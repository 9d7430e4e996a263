#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimble {

/// The value of `text` when all of it is one decimal floating-point number: an optional sign,
/// digits with an optional fraction or a fraction alone, and an optional exponent ("3", "-0.25",
/// ".5", "1e3", "+2"). No value for anything else, including "inf", "nan", hexadecimal and
/// magnitudes a double cannot hold.
std::optional<double> parseScriptNumber(std::string_view text);

/// A whole number without a fractional part ("3", not "3.0"); any other value as the shortest
/// plain decimal that reads back exactly ("0.25", "0.0000001").
std::string formatScriptNumber(double value);

}  // namespace brimble
