#include "BrimbleCore/Encoding/GIFDecoder.h"

#include <algorithm>
#include <cstring>
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
  std::vector<std::uint8_t> bytes;
  std::size_t position = 0;
};

int readFromMemory(GifFileType* gif, GifByteType* out, int length) {
  auto* reader = static_cast<MemoryReader*>(gif->UserData);
  const std::size_t n = std::min(static_cast<std::size_t>(std::max(length, 0)),
                                 reader->bytes.size() - reader->position);
  std::memcpy(out, reader->bytes.data() + reader->position, n);
  reader->position += n;
  return static_cast<int>(n);
}

}  // namespace

struct GIFDecoder::State {
  std::filesystem::path name;
  std::unique_ptr<MemoryReader> reader;  // giflib reads through it; must outlive `gif`
  GifDecoderPtr gif;
  int loopCount = 1;
  PixelBuffer canvas;
  // What the next frame's control extension said.
  int delayCentiseconds = 0;
  int transparentIndex = NO_TRANSPARENT_COLOR;
  int disposal = DISPOSAL_UNSPECIFIED;
  bool finished = false;

  [[noreturn]] void fail(int error) const {
    throw ImageCodecError::unreadableFile(name, GifErrorString(error));
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
  const bool netscape = code == APPLICATION_EXT_FUNC_CODE && block != nullptr && block[0] == 11 &&
                        std::memcmp(block + 1, "NETSCAPE2.0", 11) == 0;
  while (block != nullptr) {
    if (DGifGetExtensionNext(gif.get(), &block) != GIF_OK) {
      fail();
    }
    if (netscape && block != nullptr && block[0] >= 3 && block[1] == 1) {
      const int repetitions = block[2] | (block[3] << 8);
      loopCount = repetitions == 0 ? 0 : repetitions + 1;
    }
  }
}

ProcessedFrame GIFDecoder::State::readImage() {
  if (DGifGetImageDesc(gif.get()) != GIF_OK) {
    fail();
  }
  const GifImageDesc& desc = gif->Image;
  const ColorMapObject* map = desc.ColorMap != nullptr ? desc.ColorMap : gif->SColorMap;
  const int screenWidth = gif->SWidth;
  const int screenHeight = gif->SHeight;
  if (canvas.empty()) {
    // Allocated only once an image is really there: a damaged header can claim a huge screen.
    canvas.assign(
        static_cast<std::size_t>(screenWidth) * static_cast<std::size_t>(screenHeight) * 4, 0);
  }
  std::vector<GifPixelType> indices(static_cast<std::size_t>(std::max(desc.Width, 0)) *
                                    static_cast<std::size_t>(std::max(desc.Height, 0)));
  if (desc.Interlace) {
    static constexpr int kOffsets[] = {0, 4, 2, 1};
    static constexpr int kSteps[] = {8, 8, 4, 2};
    for (int pass = 0; pass < 4; ++pass) {
      for (int y = kOffsets[pass]; y < desc.Height; y += kSteps[pass]) {
        if (DGifGetLine(gif.get(), &indices[static_cast<std::size_t>(y) * desc.Width],
                        desc.Width) != GIF_OK) {
          fail();
        }
      }
    }
  } else {
    for (int y = 0; y < desc.Height; ++y) {
      if (DGifGetLine(gif.get(), &indices[static_cast<std::size_t>(y) * desc.Width], desc.Width) !=
          GIF_OK) {
        fail();
      }
    }
  }

  const PixelBuffer before = disposal == DISPOSE_PREVIOUS ? canvas : PixelBuffer();
  const int left = std::max(desc.Left, 0);
  const int top = std::max(desc.Top, 0);
  const int right = std::min(desc.Left + desc.Width, screenWidth);
  const int bottom = std::min(desc.Top + desc.Height, screenHeight);
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const int index =
          indices[static_cast<std::size_t>(y - desc.Top) * desc.Width + (x - desc.Left)];
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
  state_->reader = std::make_unique<MemoryReader>(MemoryReader{std::move(bytes), 0});
  int error = 0;
  state_->gif.reset(DGifOpen(state_->reader.get(), readFromMemory, &error));
  if (!state_->gif) {
    state_->fail(error);
  }
  const auto width = static_cast<std::size_t>(std::max(state_->gif->SWidth, 0));
  const auto height = static_cast<std::size_t>(std::max(state_->gif->SHeight, 0));
  if (width == 0 || height == 0) {
    throw ImageCodecError::unreadableFile(state_->name, "the GIF has no pixels");
  }
}

GIFDecoder::GIFDecoder(GIFDecoder&&) noexcept = default;
GIFDecoder& GIFDecoder::operator=(GIFDecoder&&) noexcept = default;
GIFDecoder::~GIFDecoder() = default;

ImageSize GIFDecoder::size() const noexcept {
  return {state_->gif->SWidth, state_->gif->SHeight};
}

int GIFDecoder::loopCount() const noexcept {
  return state_->loopCount;
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
