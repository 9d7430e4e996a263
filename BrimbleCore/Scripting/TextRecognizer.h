#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// Why text could not be read off a picture; `what()` says it in one line.
class TextRecognitionError : public std::runtime_error {
 public:
  enum class Code { notInstalled, failed };
  /// "reading text off a window needs tesseract, which is not installed (Debian: ...)".
  static TextRecognitionError notInstalled();
  static TextRecognitionError failed(const std::string& why);
  Code code() const noexcept { return code_; }

 private:
  TextRecognitionError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}
  Code code_;
};

/// Reads the text in pictures of windows with the `tesseract` program: optical character
/// recognition, for windows whose text Brimble cannot ask for. Stateless; any thread.
namespace TextRecognizer {

/// The lines tesseract reads in `image`, top to bottom, without blank ones or trailing blanks.
/// The picture is enlarged twice first: screen text is smaller than the print tesseract is
/// made for. No value when `stop` answered true first (it is asked a few times a second, and
/// tesseract is ended then). Throws TextRecognitionError.
std::optional<std::vector<std::string>> readLines(const Image& image,
                                                  const std::function<bool()>& stop);

}  // namespace TextRecognizer
}  // namespace brimble
