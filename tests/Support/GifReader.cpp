#include "tests/Support/GifReader.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

#include <gif_lib.h>
#include <gtest/gtest.h>

namespace brimble::testing {
namespace {

struct Reader {
  std::span<const std::uint8_t> bytes;
  std::size_t position = 0;
};

int readFromSpan(GifFileType* gif, GifByteType* out, int length) {
  auto* reader = static_cast<Reader*>(gif->UserData);
  const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(length),
                                              reader->bytes.size() - reader->position);
  std::memcpy(out, reader->bytes.data() + reader->position, n);
  reader->position += n;
  return static_cast<int>(n);
}

struct GifDecoderCloser {
  void operator()(GifFileType* gif) const noexcept { DGifCloseFile(gif, nullptr); }
};

}  // namespace

std::optional<DecodedGIF> decodeGIF(std::span<const std::uint8_t> bytes) {
  Reader reader{bytes};
  int error = 0;
  std::unique_ptr<GifFileType, GifDecoderCloser> gif(DGifOpen(&reader, readFromSpan, &error));
  if (!gif) {
    ADD_FAILURE() << "DGifOpen: " << GifErrorString(error);
    return std::nullopt;
  }
  if (DGifSlurp(gif.get()) != GIF_OK) {
    ADD_FAILURE() << "DGifSlurp: " << GifErrorString(gif->Error);
    return std::nullopt;
  }
  DecodedGIF decoded;
  decoded.width = gif->SWidth;
  decoded.height = gif->SHeight;
  PixelBuffer canvas(static_cast<std::size_t>(gif->SWidth) * gif->SHeight * 4, 0);
  for (int f = 0; f < gif->ImageCount; ++f) {
    const SavedImage& image = gif->SavedImages[f];
    GraphicsControlBlock control{};
    control.TransparentColor = NO_TRANSPARENT_COLOR;
    DGifSavedExtensionToGCB(gif.get(), f, &control);
    for (int e = 0; e < image.ExtensionBlockCount; ++e) {
      const ExtensionBlock& block = image.ExtensionBlocks[e];
      if (block.Function == APPLICATION_EXT_FUNC_CODE && block.ByteCount == 11 &&
          std::memcmp(block.Bytes, "NETSCAPE2.0", 11) == 0 && e + 1 < image.ExtensionBlockCount) {
        const ExtensionBlock& data = image.ExtensionBlocks[e + 1];
        decoded.plays = (data.Bytes[1] | (data.Bytes[2] << 8));
        if (*decoded.plays != 0) {
          *decoded.plays += 1;
        }
      }
    }
    const ColorMapObject* map =
        image.ImageDesc.ColorMap ? image.ImageDesc.ColorMap : gif->SColorMap;
    const GifImageDesc& desc = image.ImageDesc;
    for (int y = 0; y < desc.Height; ++y) {
      for (int x = 0; x < desc.Width; ++x) {
        const int index = image.RasterBits[y * desc.Width + x];
        if (index == control.TransparentColor) {
          continue;
        }
        const int cx = desc.Left + x;
        const int cy = desc.Top + y;
        if (cx >= gif->SWidth || cy >= gif->SHeight) {
          continue;
        }
        std::uint8_t* p = &canvas[(static_cast<std::size_t>(cy) * gif->SWidth + cx) * 4];
        const GifColorType color = map->Colors[index];
        p[0] = color.Blue;
        p[1] = color.Green;
        p[2] = color.Red;
        p[3] = 0xFF;
      }
    }
    decoded.frames.push_back(Image::bgra8(gif->SWidth, gif->SHeight, canvas));
    decoded.delaysCentiseconds.push_back(control.DelayTime);
    decoded.localTables.push_back(image.ImageDesc.ColorMap != nullptr);
    if (control.DisposalMode == DISPOSE_BACKGROUND) {
      ADD_FAILURE() << "frame " << f << " asks for disposal to background";
    }
  }
  return decoded;
}

std::optional<DecodedGIF> decodeGIFFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                        std::istreambuf_iterator<char>());
  return decodeGIF(bytes);
}

}  // namespace brimble::testing
