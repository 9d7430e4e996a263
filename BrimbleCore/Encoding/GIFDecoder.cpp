#include "BrimbleCore/Encoding/GIFDecoder.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string>

#include <gif_lib.h>

#include "BrimbleCore/Encoding/ImageCodec.h"

namespace brimble {
namespace {

struct GifDecoderCloser {
  void operator()(GifFileType* gif) const noexcept { DGifCloseFile(gif, nullptr); }
};
using GifDecoderPtr = std::unique_ptr<GifFileType, GifDecoderCloser>;

struct MemoryReader {
  std::span<const std::uint8_t> bytes;
  std::size_t position = 0;
};

int readFromMemory(GifFileType* gif, GifByteType* out, int length) {
  auto* reader = static_cast<MemoryReader*>(gif->UserData);
  const std::size_t n = std::min(static_cast<std::size_t>(std::max(length, 0)),
                                 reader->bytes.size() - reader->position);
  if (n > 0) {
    std::memcpy(out, reader->bytes.data() + reader->position, n);
  }
  reader->position += n;
  return static_cast<int>(n);
}

/// The repetitions of a NETSCAPE2.0 sub-block as a number of plays (0 forever).
int playsOf(const GifByteType* block) {
  const int repetitions = block[2] | (block[3] << 8);
  return repetitions == 0 ? 0 : repetitions + 1;
}

bool isNetscapeBlock(int code, const GifByteType* block) {
  return code == APPLICATION_EXT_FUNC_CODE && block != nullptr && block[0] == 11 &&
         std::memcmp(block + 1, "NETSCAPE2.0", 11) == 0;
}

/// What the file holds, found before any pixel is decoded.
struct GIFOutline {
  /// The part of the logical screen that the file's images cover, from (0, 0) to their furthest
  /// right and bottom edges: a damaged or hostile header can claim a 65535x65535 screen that no
  /// image fills.
  ImageSize canvas;
  int frameCount = 0;
  int loopCount = 1;
};

/// Reads the image descriptors and extensions only, skipping the compressed pixels; stops at the
/// first damage, which decoding reports when it gets there.
GIFOutline outlineOf(std::span<const std::uint8_t> bytes) {
  GIFOutline outline;
  MemoryReader reader{bytes, 0};
  int error = 0;
  const GifDecoderPtr gif(DGifOpen(&reader, readFromMemory, &error));
  if (!gif) {
    return outline;
  }
  int right = 0;
  int bottom = 0;
  GifRecordType type = UNDEFINED_RECORD_TYPE;
  while (DGifGetRecordType(gif.get(), &type) == GIF_OK && type != TERMINATE_RECORD_TYPE) {
    GifByteType* block = nullptr;
    if (type == IMAGE_DESC_RECORD_TYPE) {
      int codeSize = 0;
      if (DGifGetImageDesc(gif.get()) != GIF_OK ||
          DGifGetCode(gif.get(), &codeSize, &block) != GIF_OK) {
        break;
      }
      const GifImageDesc& desc = gif->Image;
      right = std::max(right, std::min(desc.Left + desc.Width, gif->SWidth));
      bottom = std::max(bottom, std::min(desc.Top + desc.Height, gif->SHeight));
      ++outline.frameCount;
      while (block != nullptr && DGifGetCodeNext(gif.get(), &block) == GIF_OK) {
      }
    } else if (type == EXTENSION_RECORD_TYPE) {
      int code = 0;
      if (DGifGetExtension(gif.get(), &code, &block) != GIF_OK) {
        break;
      }
      const bool netscape = isNetscapeBlock(code, block);
      while (block != nullptr && DGifGetExtensionNext(gif.get(), &block) == GIF_OK) {
        if (netscape && block != nullptr && block[0] >= 3 && block[1] == 1) {
          outline.loopCount = playsOf(block);
        }
      }
    } else {
      break;
    }
    if (block != nullptr) {
      break;  // a sub-block chain ended in damage
    }
  }
  outline.canvas = {right, bottom};
  return outline;
}

}  // namespace

struct GIFDecoder::State {
  std::filesystem::path name;
  std::vector<std::uint8_t> bytes;
  MemoryReader reader;  // giflib reads `bytes` through it; must outlive `gif`
  GifDecoderPtr gif;
  int loopCount = 1;
  int frameCount = 0;
  int framesRead = 0;
  ImageSize canvasSize;
  PixelBuffer canvas;
  std::vector<GifPixelType> line;  // one row of the image being decoded
  // What the next frame's control extension said.
  int delayCentiseconds = 0;
  int transparentIndex = NO_TRANSPARENT_COLOR;
  int disposal = DISPOSAL_UNSPECIFIED;
  bool finished = false;

  [[noreturn]] void fail(int error) const {
    // giflib has no text for some of its failures (a descriptor cut short gives error 0).
    const char* text = GifErrorString(error);
    throw ImageCodecError::unreadableFile(
        name, text != nullptr ? text : "damaged GIF (giflib error " + std::to_string(error) + ")");
  }
  [[noreturn]] void fail() const { fail(gif->Error); }

  void readExtension();
  ProcessedFrame readImage();
};

void GIFDecoder::State::readExtension() {
  int code = 0;
  GifByteType* block = nullptr;
  if (DGifGetExtension(gif.get(), &code, &block) != GIF_OK) {
    fail();
  }
  if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr && block[0] >= 4) {
    GraphicsControlBlock control;
    DGifExtensionToGCB(block[0], block + 1, &control);
    delayCentiseconds = control.DelayTime;
    transparentIndex = control.TransparentColor;
    disposal = control.DisposalMode;
  }
  const bool netscape = isNetscapeBlock(code, block);
  while (block != nullptr) {
    if (DGifGetExtensionNext(gif.get(), &block) != GIF_OK) {
      fail();
    }
    if (netscape && block != nullptr && block[0] >= 3 && block[1] == 1) {
      loopCount = playsOf(block);
    }
  }
}

ProcessedFrame GIFDecoder::State::readImage() {
  if (DGifGetImageDesc(gif.get()) != GIF_OK) {
    fail();
  }
  const GifImageDesc& desc = gif->Image;
  const ColorMapObject* map = desc.ColorMap != nullptr ? desc.ColorMap : gif->SColorMap;
  const int screenWidth = canvasSize.width;
  const int screenHeight = canvasSize.height;
  if (canvas.empty()) {
    canvas.assign(
        static_cast<std::size_t>(screenWidth) * static_cast<std::size_t>(screenHeight) * 4, 0);
  }
  const PixelBuffer before = disposal == DISPOSE_PREVIOUS ? canvas : PixelBuffer();
  const int left = std::max(desc.Left, 0);
  const int top = std::max(desc.Top, 0);
  // An image placed wholly outside the canvas covers none of it.
  const int right = std::max(std::min(desc.Left + desc.Width, screenWidth), left);
  const int bottom = std::max(std::min(desc.Top + desc.Height, screenHeight), top);
  // Row by row straight onto the canvas: an image may claim far more rows than it holds.
  line.resize(static_cast<std::size_t>(std::max(desc.Width, 0)));
  const auto drawLine = [&](int y) {
    if (DGifGetLine(gif.get(), line.data(), desc.Width) != GIF_OK) {
      fail();
    }
    if (y < top || y >= bottom) {
      return;
    }
    for (int x = left; x < right; ++x) {
      const int index = line[static_cast<std::size_t>(x - desc.Left)];
      if (index == transparentIndex || map == nullptr || index >= map->ColorCount) {
        continue;
      }
      const GifColorType color = map->Colors[index];
      std::uint8_t* pixel = &canvas[(static_cast<std::size_t>(y) * screenWidth + x) * 4];
      pixel[0] = color.Blue;
      pixel[1] = color.Green;
      pixel[2] = color.Red;
      pixel[3] = 0xFF;
    }
  };
  if (desc.Interlace) {
    static constexpr int kOffsets[] = {0, 4, 2, 1};
    static constexpr int kSteps[] = {8, 8, 4, 2};
    for (int pass = 0; pass < 4; ++pass) {
      for (int y = kOffsets[pass]; y < desc.Height; y += kSteps[pass]) {
        drawLine(desc.Top + y);
      }
    }
  } else {
    for (int y = 0; y < desc.Height; ++y) {
      drawLine(desc.Top + y);
    }
  }
  ProcessedFrame frame{Image::bgra8(screenWidth, screenHeight, canvas), delayCentiseconds / 100.0,
                       std::nullopt};
  if (disposal == DISPOSE_BACKGROUND) {
    // Viewers clear to transparent rather than to the background colour.
    for (int y = top; y < bottom; ++y) {
      std::memset(&canvas[(static_cast<std::size_t>(y) * screenWidth + left) * 4], 0,
                  static_cast<std::size_t>(right - left) * 4);
    }
  } else if (disposal == DISPOSE_PREVIOUS) {
    canvas = before;
  }
  delayCentiseconds = 0;
  transparentIndex = NO_TRANSPARENT_COLOR;
  disposal = DISPOSAL_UNSPECIFIED;
  return frame;
}

GIFDecoder::GIFDecoder(const std::filesystem::path& file) : GIFDecoder(readFileBytes(file), file) {}

GIFDecoder::GIFDecoder(std::vector<std::uint8_t> bytes, std::filesystem::path name)
    : state_(std::make_unique<State>()) {
  state_->name = std::move(name);
  state_->bytes = std::move(bytes);
  state_->reader = MemoryReader{state_->bytes, 0};
  int error = 0;
  state_->gif.reset(DGifOpen(&state_->reader, readFromMemory, &error));
  if (!state_->gif) {
    state_->fail(error);
  }
  if (state_->gif->SWidth <= 0 || state_->gif->SHeight <= 0) {
    throw ImageCodecError::unreadableFile(state_->name, "the GIF has no pixels");
  }
  const GIFOutline outline = outlineOf(state_->bytes);
  state_->canvasSize = outline.canvas;
  state_->frameCount = outline.frameCount;
  state_->loopCount = outline.loopCount;
  const auto pixels = static_cast<std::int64_t>(state_->canvasSize.width) *
                      static_cast<std::int64_t>(state_->canvasSize.height);
  if (pixels > kMaximumCanvasPixels) {
    throw ImageCodecError::unreadableFile(
        state_->name, "its images cover " + std::to_string(state_->canvasSize.width) + "x" +
                          std::to_string(state_->canvasSize.height) + " pixels, more than the " +
                          std::to_string(kMaximumCanvasPixels) + " a GIF may cover here");
  }
}

GIFDecoder::GIFDecoder(GIFDecoder&&) noexcept = default;
GIFDecoder& GIFDecoder::operator=(GIFDecoder&&) noexcept = default;
GIFDecoder::~GIFDecoder() = default;

ImageSize GIFDecoder::size() const noexcept {
  return state_->canvasSize;
}

int GIFDecoder::loopCount() const noexcept {
  return state_->loopCount;
}

int GIFDecoder::frameCount() const noexcept {
  return state_->frameCount;
}

StreamPosition GIFDecoder::position() const {
  return {state_->framesRead, std::max(state_->frameCount, state_->framesRead)};
}

std::optional<ProcessedFrame> GIFDecoder::next() {
  while (!state_->finished) {
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(state_->gif.get(), &type) != GIF_OK) {
      state_->fail();
    }
    switch (type) {
      case EXTENSION_RECORD_TYPE:
        state_->readExtension();
        break;
      case IMAGE_DESC_RECORD_TYPE:
        ++state_->framesRead;
        return state_->readImage();
      case TERMINATE_RECORD_TYPE:
        state_->finished = true;
        break;
      default:
        state_->fail(D_GIF_ERR_WRONG_RECORD);
    }
  }
  return std::nullopt;
}

std::vector<ProcessedFrame> GIFDecoder::readAll() {
  std::vector<ProcessedFrame> frames;
  while (auto frame = next()) {
    frames.push_back(std::move(*frame));
  }
  return frames;
}

}  // namespace brimble
