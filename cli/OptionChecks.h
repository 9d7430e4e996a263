#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace brimble::cli {

// Checks for option values. Each refuses a value with a message that says what is expected and
// what was given; the parser reports it as "<option>: <message>" (see UsageErrors.h). Numbers are
// read as text first, so "nan", "inf", "1e999" and "3s" are refused rather than converted.

/// A whole number from `min` to `max`: "must be a whole number from 1 to 120 (got '0')".
CLI::Validator wholeNumberIn(long long min, long long max);

/// A finite number from `min` to `max`: "must be a number from 0.01 to 100 (got 'nan')".
CLI::Validator numberIn(double min, double max);

/// A number of seconds above 0 and at most `max`: "must be a number of seconds above 0 (got
/// '0')".
CLI::Validator secondsUpTo(double max);

/// An X window id, decimal or 0x-hexadecimal, as `brimble windows` and xwininfo print them.
CLI::Validator windowID();

/// One of `names` (what they are is `kind`, "host" for example): "unknown host 'curser' (use a,
/// b or c); did you mean 'cursor'?". The shell completions offer the same names.
CLI::Validator oneOf(std::string kind, std::vector<std::string> names);

}  // namespace brimble::cli
