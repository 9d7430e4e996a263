#pragma once

#include <string>
#include <string_view>

namespace brimble::cli {

/// Text for a man(7) page: backslashes as \e, hyphens as \-, characters beyond ASCII as \[uXXXX]
/// (so the page needs no input encoding), a line that starts with . or ' guarded by \&, so
/// that no help text reads as a request, and a place to break the line after each slash, so a
/// long address fits a narrow terminal. Line breaks are kept.
std::string roffText(std::string_view text);

/// `text` in bold, \fB...\fR, escaped as roffText does.
std::string roffBold(std::string_view text);

/// `text` in italics, \fI...\fR, escaped as roffText does.
std::string roffItalic(std::string_view text);

/// A macro argument in double quotes, escaped; a double quote inside becomes \(dq.
std::string roffQuoted(std::string_view text);

}  // namespace brimble::cli
