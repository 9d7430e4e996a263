#pragma once

#include <filesystem>
#include <optional>

#include "BrimbleCore/Encoding/OutputFormat.h"

namespace brimble {

/// Where a finished clip goes: the clipboard, a file the user picks, the desktop's handler for
/// it, the preview window. Implemented over Qt in the application. Main thread only.
class ClipDelivery {
 public:
  virtual ~ClipDelivery() = default;

  /// Offers `file` on the clipboard, as its image data and as a file; throws when it cannot be
  /// read.
  virtual void copyToClipboard(const std::filesystem::path& file, OutputFormat format) = 0;
  /// Asks where to save, starting at `suggested`; no value when the user cancels.
  virtual std::optional<std::filesystem::path> chooseSaveLocation(
      const std::filesystem::path& suggested, OutputFormat format) = 0;
  /// Hands `file` to the desktop's default handler.
  virtual void share(const std::filesystem::path& file) = 0;
  virtual void openPreview(const std::filesystem::path& file) = 0;
};

}  // namespace brimble
