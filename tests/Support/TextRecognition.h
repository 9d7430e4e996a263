#pragma once

#include <string>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble::testing {

/// Whether `tesseract` is installed to read text off frames.
bool textRecognitionAvailable();

/// The text tesseract reads in `image` (scaled up first: it reads small screen text poorly),
/// its whitespace runs folded to single spaces; empty when nothing is read.
std::string recognizedText(const Image& image);

}  // namespace brimble::testing
