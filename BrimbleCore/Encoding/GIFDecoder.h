#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "BrimbleCore/Encoding/Frame.h"
#include "BrimbleCore/Encoding/FrameStream.h"

namespace brimble {

/// Reads an animated GIF frame by frame as a viewer shows it: each frame composited over the
/// canvas with transparency, then disposed of as the file says (kept, cleared, or restored to
/// what was there before). Holds the compressed file and one canvas, not every frame.
/// One thread at a time.
class GIFDecoder final : public FrameStream {
 public:
  /// The most pixels a canvas may have (33,554,432, e.g. 8192x4096 or 7680x4320): one canvas
  /// and each frame take 4 bytes a pixel.
  static constexpr std::int64_t kMaximumCanvasPixels = std::int64_t{1} << 25;

  /// Throws ImageCodecError::unreadableFile when the file cannot be read or is not a GIF, and
  /// when its canvas would exceed kMaximumCanvasPixels.
  explicit GIFDecoder(const std::filesystem::path& file);
  /// Decodes GIF bytes held in memory; `name` is used in error messages.
  GIFDecoder(std::vector<std::uint8_t> bytes, std::filesystem::path name);
  GIFDecoder(GIFDecoder&&) noexcept;
  GIFDecoder& operator=(GIFDecoder&&) noexcept;
  ~GIFDecoder() override;

  /// The canvas: the logical screen, cut to where the file's images reach (0x0 for none).
  ImageSize size() const noexcept;
  /// Plays from the NETSCAPE2.0 block: 0 forever, 1 when there is none.
  int loopCount() const noexcept;
  /// The images the file holds, counted without decoding them (up to the first damage).
  int frameCount() const noexcept;

  /// The next frame (bgra8, transparent where nothing was drawn yet) with its delay in seconds;
  /// no value after the last. Throws ImageCodecError::unreadableFile for a damaged file.
  std::optional<ProcessedFrame> next() override;
  /// Frames read of frameCount().
  StreamPosition position() const override;

  /// Every frame at once, for files known to be small.
  std::vector<ProcessedFrame> readAll();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace brimble
