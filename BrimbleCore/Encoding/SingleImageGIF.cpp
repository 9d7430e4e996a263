#include "BrimbleCore/Encoding/SingleImageGIF.h"

#include <memory>

#include <gif_lib.h>

#include "BrimbleCore/Encoding/MuxError.h"

namespace brimble {
namespace {

struct GifEncoderCloser {
  void operator()(GifFileType* gif) const noexcept { EGifCloseFile(gif, nullptr); }
};
using GifEncoderPtr = std::unique_ptr<GifFileType, GifEncoderCloser>;

struct ColorMapDeleter {
  void operator()(ColorMapObject* map) const noexcept { GifFreeMapObject(map); }
};
using ColorMapPtr = std::unique_ptr<ColorMapObject, ColorMapDeleter>;

int appendToVector(GifFileType* gif, const GifByteType* bytes, int length) {
  auto* out = static_cast<std::vector<std::uint8_t>*>(gif->UserData);
  out->insert(out->end(), bytes, bytes + length);
  return length;
}

}  // namespace

std::vector<std::uint8_t> encodeSingleImageGIF(const IndexedFrame& frame, int canvasWidth,
                                               int canvasHeight) {
  if (frame.palette.empty() || frame.palette.size() > 256 ||
      frame.indices.size() != static_cast<std::size_t>(frame.width) * frame.height) {
    throw MuxError::encoderFailed();
  }
  // giflib only accepts colour maps of 2, 4, ... 256 entries.
  int tableSize = 2;
  while (tableSize < static_cast<int>(frame.palette.size())) {
    tableSize *= 2;
  }
  ColorMapPtr colorMap(GifMakeMapObject(tableSize, nullptr));
  if (!colorMap) {
    throw MuxError::encoderFailed();
  }
  for (std::size_t i = 0; i < frame.palette.size(); ++i) {
    colorMap->Colors[i] = {frame.palette[i].r, frame.palette[i].g, frame.palette[i].b};
  }

  std::vector<std::uint8_t> bytes;
  bytes.reserve(frame.indices.size() / 2 + 1024);
  int error = 0;
  GifEncoderPtr gif(EGifOpen(&bytes, appendToVector, &error));
  if (!gif) {
    throw MuxError::encoderFailed();
  }
  EGifSetGifVersion(gif.get(), true);
  if (EGifPutScreenDesc(gif.get(), canvasWidth, canvasHeight, 8, 0, colorMap.get()) != GIF_OK) {
    throw MuxError::encoderFailed();
  }
  if (frame.transparentIndex) {
    const GifByteType control[4] = {0x01, 0, 0, *frame.transparentIndex};
    if (EGifPutExtension(gif.get(), GRAPHICS_EXT_FUNC_CODE, 4, control) != GIF_OK) {
      throw MuxError::encoderFailed();
    }
  }
  if (EGifPutImageDesc(gif.get(), frame.left, frame.top, frame.width, frame.height, false,
                       nullptr) != GIF_OK) {
    throw MuxError::encoderFailed();
  }
  // giflib's API takes non-const pixel rows but only reads them.
  auto* row = const_cast<GifPixelType*>(frame.indices.data());
  for (int y = 0; y < frame.height; ++y, row += frame.width) {
    if (EGifPutLine(gif.get(), row, frame.width) != GIF_OK) {
      throw MuxError::encoderFailed();
    }
  }
  if (EGifCloseFile(gif.release(), &error) != GIF_OK) {
    throw MuxError::encoderFailed();
  }
  return bytes;
}

}  // namespace brimble
