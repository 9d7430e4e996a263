#pragma once

#include <optional>
#include <string_view>

#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// Finds where a line of command output shows on a recorded frame, for `spotlight stdout
/// $v[N]`: Tesseract (Debian's tesseract-ocr, run as a program) reads the frame's text lines
/// with their boxes, and the line that reads most like the output wins; of equally good
/// matches, the lowest on screen, where a terminal prints last. Any thread.
namespace StdoutLocator {

/// The box of the line of `frame` that shows `text`, in frame pixels; no value when no line
/// reads like it or Tesseract cannot run (the reason is logged).
std::optional<ScreenRect> locate(const Image& frame, std::string_view text);

/// How alike two texts read to OCR, 0...1: letters and digits compared without regard to case,
/// spaces and punctuation, by their longest common subsequence.
double similarity(std::string_view a, std::string_view b);

}  // namespace StdoutLocator
}  // namespace brimble
