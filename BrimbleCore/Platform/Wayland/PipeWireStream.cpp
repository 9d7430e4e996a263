#include "BrimbleCore/Platform/Wayland/PipeWireStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/raw.h>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Platform/Wayland/PipeWireParams.h"

namespace brimble::wayland {
namespace {

bool swapsRedAndBlue(std::uint32_t format) {
  return format == SPA_VIDEO_FORMAT_RGBx || format == SPA_VIDEO_FORMAT_RGBA;
}

bool isTakenFormat(std::uint32_t format) {
  return format == SPA_VIDEO_FORMAT_BGRx || format == SPA_VIDEO_FORMAT_BGRA ||
         swapsRedAndBlue(format);
}

/// `width` x `height` pixels from rows `bytesPerRow` apart, tightly packed as bgra8 with alpha
/// 255: a compositor's x formats leave the fourth byte undefined, and what is on screen is opaque
/// whatever a window's alpha says.
PixelBuffer opaqueCopy(const std::uint8_t* pixels, std::size_t bytesPerRow, int width, int height,
                       bool swapRedAndBlue) {
  const auto rowBytes = std::size_t{4} * static_cast<std::size_t>(width);
  PixelBuffer copy(rowBytes * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* source = pixels + static_cast<std::size_t>(y) * bytesPerRow;
    std::uint8_t* target = copy.data() + static_cast<std::size_t>(y) * rowBytes;
    if (swapRedAndBlue) {
      for (std::size_t x = 0; x < rowBytes; x += 4) {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, source + x, 4);
        pixel = ((pixel & 0xffu) << 16) | (pixel & 0xff00u) | ((pixel >> 16) & 0xffu) | 0xff000000u;
        std::memcpy(target + x, &pixel, 4);
      }
    } else {
      for (std::size_t x = 0; x < rowBytes; x += 4) {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, source + x, 4);
        pixel |= 0xff000000u;
        std::memcpy(target + x, &pixel, 4);
      }
    }
  }
  return copy;
}

/// Where the blue, green, red and alpha bytes of a cursor bitmap's pixel are; no value for a
/// format that is not 32-bit RGB with alpha.
std::optional<std::array<int, 4>> cursorByteOrder(std::uint32_t format) {
  switch (format) {
    case SPA_VIDEO_FORMAT_BGRA:
      return std::array<int, 4>{0, 1, 2, 3};
    case SPA_VIDEO_FORMAT_RGBA:
      return std::array<int, 4>{2, 1, 0, 3};
    case SPA_VIDEO_FORMAT_ARGB:
      return std::array<int, 4>{3, 2, 1, 0};
    case SPA_VIDEO_FORMAT_ABGR:
      return std::array<int, 4>{1, 2, 3, 0};
    default:
      return std::nullopt;
  }
}

/// The cursor bitmap as premultiplied bgra8; no value when its format or size is not usable.
std::optional<Image> cursorPicture(const spa_meta_bitmap& bitmap, std::size_t available) {
  const auto order = cursorByteOrder(bitmap.format);
  const auto width = static_cast<std::size_t>(bitmap.size.width);
  const auto height = static_cast<std::size_t>(bitmap.size.height);
  const std::size_t stride =
      bitmap.stride > 0 ? static_cast<std::size_t>(bitmap.stride) : width * 4;
  if (!order || width == 0 || height == 0 || width > BRIMBLE_PIPEWIRE_MAX_CURSOR ||
      height > BRIMBLE_PIPEWIRE_MAX_CURSOR || stride < width * 4 ||
      bitmap.offset + stride * (height - 1) + width * 4 > available) {
    return std::nullopt;
  }
  const auto* source = reinterpret_cast<const std::uint8_t*>(&bitmap) + bitmap.offset;
  // The metadata does not say whether colour is premultiplied; compositors differ. A colour
  // byte above its alpha can only be straight alpha, so one such pixel decides for the bitmap.
  bool straight = false;
  for (std::size_t y = 0; y < height && !straight; ++y) {
    const std::uint8_t* row = source + y * stride;
    for (std::size_t x = 0; x < width * 4; x += 4) {
      const std::uint8_t alpha = row[x + (*order)[3]];
      if (row[x + (*order)[0]] > alpha || row[x + (*order)[1]] > alpha ||
          row[x + (*order)[2]] > alpha) {
        straight = true;
        break;
      }
    }
  }
  PixelBuffer pixels(width * height * 4);
  for (std::size_t y = 0; y < height; ++y) {
    const std::uint8_t* row = source + y * stride;
    std::uint8_t* target = pixels.data() + y * width * 4;
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint8_t* pixel = row + 4 * x;
      const unsigned alpha = pixel[(*order)[3]];
      for (int channel = 0; channel < 3; ++channel) {
        const unsigned value = pixel[(*order)[channel]];
        target[4 * x + channel] =
            static_cast<std::uint8_t>(straight ? (value * alpha + 127) / 255 : value);
      }
      target[4 * x + 3] = static_cast<std::uint8_t>(alpha);
    }
  }
  return Image::bgra8(static_cast<int>(width), static_cast<int>(height), std::move(pixels));
}

/// The metadata of `type` in `buffer` when it holds at least `size` bytes.
template <typename T>
T* metaOf(const spa_buffer& buffer, std::uint32_t type, std::size_t size = sizeof(T)) {
  for (std::uint32_t i = 0; i < buffer.n_metas; ++i) {
    const spa_meta& meta = buffer.metas[i];
    if (meta.type == type && meta.size >= size) {
      return static_cast<T*>(meta.data);
    }
  }
  return nullptr;
}

}  // namespace

/// PipeWire's callbacks, forwarded to the stream they were registered for.
struct PipeWireStream::Callbacks {
  static PipeWireStream& self(void* data) { return *static_cast<PipeWireStream*>(data); }

  static pw_stream_events streamEvents() {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = [](void* data, pw_stream_state, pw_stream_state state,
                              const char* error) { self(data).onStateChanged(state, error); };
    events.param_changed = [](void* data, std::uint32_t id, const spa_pod* param) {
      self(data).onParamChanged(id, param);
    };
    events.remove_buffer = [](void* data, pw_buffer* buffer) { self(data).onRemoveBuffer(buffer); };
    events.process = [](void* data) { self(data).onProcess(); };
    return events;
  }

  static pw_core_events coreEvents() {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.error = [](void* data, std::uint32_t id, int, int result, const char* message) {
      self(data).onCoreError(id, result, message);
    };
    return events;
  }

  static pw_registry_events registryEvents() {
    pw_registry_events events{};
    events.version = PW_VERSION_REGISTRY_EVENTS;
    events.global_remove = [](void* data, std::uint32_t id) { self(data).onGlobalRemoved(id); };
    return events;
  }

  // PipeWire keeps pointers to the tables for as long as the listeners live.
  static const pw_stream_events kStreamEvents;
  static const pw_core_events kCoreEvents;
  static const pw_registry_events kRegistryEvents;
};

const pw_stream_events PipeWireStream::Callbacks::kStreamEvents = streamEvents();
const pw_core_events PipeWireStream::Callbacks::kCoreEvents = coreEvents();
const pw_registry_events PipeWireStream::Callbacks::kRegistryEvents = registryEvents();

namespace {

/// Holds PipeWire's loop lock for a scope: objects on the loop are touched only under it.
class LoopLock {
 public:
  explicit LoopLock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
  LoopLock(const LoopLock&) = delete;
  LoopLock& operator=(const LoopLock&) = delete;
  ~LoopLock() { pw_thread_loop_unlock(loop_); }

 private:
  pw_thread_loop* loop_;
};

}  // namespace

PipeWireStream::PipeWireStream(UniqueFd remote, std::uint32_t nodeID, CursorImage knownCursor)
    : nodeID_(nodeID) {
  if (!knownCursor.image.empty()) {
    pointer_ = Pointer{.cursor = std::move(knownCursor), .serial = 1};
  }
  initPipeWire();
  const auto unreachable = [](const std::string& why) {
    return ScreenCaptureError::displayUnreachable("PipeWire (" + why + ")");
  };
  loop_.reset(pw_thread_loop_new("brimble-screencast", nullptr));
  if (!loop_) {
    throw unreachable("no loop thread");
  }
  context_.reset(pw_context_new(pw_thread_loop_get_loop(loop_.get()), nullptr, 0));
  if (!context_) {
    throw unreachable("no context");
  }
  if (pw_thread_loop_start(loop_.get()) < 0) {
    throw unreachable("the loop thread did not start");
  }
  try {
    const LoopLock lock(loop_.get());
    // PipeWire owns the descriptor from here on, and closes it with the connection.
    core_.reset(pw_context_connect_fd(context_.get(), remote.release(), nullptr, 0));
    if (!core_) {
      throw unreachable(std::string("the connection was refused: ") + std::strerror(errno));
    }
    pw_core_add_listener(core_.get(), coreListener_.get(), &Callbacks::kCoreEvents, this);
    // The node's removal is the surest sign that the compositor stopped sharing it.
    registry_.reset(pw_core_get_registry(core_.get(), PW_VERSION_REGISTRY, 0));
    if (registry_) {
      pw_registry_add_listener(registry_.get(), registryListener_.get(),
                               &Callbacks::kRegistryEvents, this);
    }
    stream_.reset(
        pw_stream_new(core_.get(), "Brimble screen capture",
                      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                        "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr)));
    if (!stream_) {
      throw unreachable("no stream");
    }
    pw_stream_add_listener(stream_.get(), streamListener_.get(), &Callbacks::kStreamEvents, this);
    std::array<std::uint8_t, 1024> buffer{};
    const spa_pod* formats = brimble_pipewire_video_formats(buffer.data(), buffer.size());
    // Never linked to another node when this one goes: a recording of the wrong screen is worse
    // than a recording that ends.
    const int result = pw_stream_connect(
        stream_.get(), PW_DIRECTION_INPUT, nodeID_,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                     PW_STREAM_FLAG_DONT_RECONNECT),
        &formats, 1);
    if (result < 0) {
      throw unreachable(std::string("the stream did not connect: ") + std::strerror(-result));
    }
  } catch (...) {
    pw_thread_loop_stop(loop_.get());
    throw;
  }
}

PipeWireStream::~PipeWireStream() {
  {
    // The held buffer goes back and the stream leaves while the loop still runs, so that the
    // producer hears of both: a buffer kept by a consumer that vanished is lost to it for good.
    const LoopLock lock(loop_.get());
    pw_buffer* held = nullptr;
    {
      std::scoped_lock pictureLock(pictureMutex_);
      if (picture_) {
        held = picture_->buffer;
        picture_.reset();
      }
    }
    // Without the picture's lock: disconnecting removes the buffers, which takes it.
    if (held != nullptr && stream_) {
      pw_stream_queue_buffer(stream_.get(), held);
    }
    if (stream_) {
      pw_stream_disconnect(stream_.get());
    }
  }
  // No callback may run while the members go.
  pw_thread_loop_stop(loop_.get());
}

void PipeWireStream::end(const std::string& reason) {
  {
    std::scoped_lock lock(pictureMutex_);
    if (!endReason_) {
      endReason_ = reason;
    }
  }
  pictureChanged_.notify_all();
}

void PipeWireStream::onStateChanged(int state, const char* error) {
  if (state == PW_STREAM_STATE_ERROR) {
    end(std::string("the stream failed: ") + (error != nullptr ? error : "unknown error"));
  } else if (state == PW_STREAM_STATE_UNCONNECTED) {
    if (connected_) {
      end("the stream was disconnected");
    }
  } else {
    connected_ = true;
  }
}

void PipeWireStream::onCoreError(std::uint32_t id, int result, const char* message) {
  // Errors about other objects are answers to requests; one about the core itself is fatal, and
  // EPIPE means PipeWire went away.
  if (id == PW_ID_CORE) {
    end(result == -EPIPE ? std::string("PipeWire went away")
                         : std::string("PipeWire failed: ") + (message != nullptr ? message : ""));
  }
}

void PipeWireStream::onGlobalRemoved(std::uint32_t id) {
  if (id == nodeID_) {
    end("the compositor stopped sharing the screen");
  }
}

void PipeWireStream::onParamChanged(std::uint32_t id, const spa_pod* param) {
  if (id != SPA_PARAM_Format || param == nullptr) {
    return;
  }
  brimble_pipewire_video_format format{};
  if (brimble_pipewire_parse_video_format(param, &format) < 0 || !isTakenFormat(format.format)) {
    pw_stream_set_error(stream_.get(), -EINVAL, "Brimble takes raw BGRx, BGRA, RGBx or RGBA video");
    return;
  }
  format_ = format.format;
  formatSize_ = {static_cast<int>(format.width), static_cast<int>(format.height)};
  std::array<std::uint8_t, 1024> buffer{};
  std::array<const spa_pod*, BRIMBLE_PIPEWIRE_BUFFER_PARAMS> params{};
  const std::uint32_t count =
      brimble_pipewire_buffer_params(buffer.data(), buffer.size(), params.data());
  pw_stream_update_params(stream_.get(), params.data(), count);
}

void PipeWireStream::onRemoveBuffer(pw_buffer* buffer) {
  // The buffers go when the format changes or the stream stops: the picture they held with them.
  std::scoped_lock lock(pictureMutex_);
  if (picture_ && picture_->buffer == buffer) {
    picture_.reset();
  }
}

std::optional<PipeWireStream::HeldPicture> PipeWireStream::pictureIn(pw_buffer* buffer) const {
  const spa_buffer& contents = *buffer->buffer;
  if (contents.n_datas < 1 || formatSize_.width <= 0 || formatSize_.height <= 0) {
    return std::nullopt;
  }
  const spa_data& data = contents.datas[0];
  const spa_chunk* chunk = data.chunk;
  if (data.data == nullptr || chunk == nullptr || chunk->size == 0 ||
      (chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) != 0) {
    return std::nullopt;
  }
  if (const auto* header = metaOf<spa_meta_header>(contents, SPA_META_Header);
      header != nullptr && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0) {
    return std::nullopt;
  }
  ScreenRect crop{0, 0, formatSize_.width, formatSize_.height};
  if (const auto* region = metaOf<spa_meta_region>(contents, SPA_META_VideoCrop);
      region != nullptr && region->region.size.width > 0 && region->region.size.height > 0) {
    crop = crop.intersection({region->region.position.x, region->region.position.y,
                              static_cast<int>(region->region.size.width),
                              static_cast<int>(region->region.size.height)});
    if (crop.empty()) {
      return std::nullopt;
    }
  }
  const std::size_t bytesPerRow =
      chunk->stride > 0 ? static_cast<std::size_t>(chunk->stride)
                        : std::size_t{4} * static_cast<std::size_t>(formatSize_.width);
  const std::size_t offset = data.maxsize > 0 ? chunk->offset % data.maxsize : 0;
  // The last byte read must lie within the buffer, whatever the producer claims.
  const std::size_t first = offset + static_cast<std::size_t>(crop.y) * bytesPerRow +
                            std::size_t{4} * static_cast<std::size_t>(crop.x);
  const std::size_t end = first + static_cast<std::size_t>(crop.height - 1) * bytesPerRow +
                          std::size_t{4} * static_cast<std::size_t>(crop.width);
  if (bytesPerRow < std::size_t{4} * static_cast<std::size_t>(formatSize_.width) ||
      end > data.maxsize) {
    return std::nullopt;
  }
  return HeldPicture{buffer, static_cast<const std::uint8_t*>(data.data) + first, bytesPerRow,
                     format_, ImageSize{crop.width, crop.height}};
}

void PipeWireStream::readCursor(const spa_buffer& buffer) {
  const spa_meta* meta = nullptr;
  for (std::uint32_t i = 0; i < buffer.n_metas; ++i) {
    if (buffer.metas[i].type == SPA_META_Cursor &&
        buffer.metas[i].size >= sizeof(spa_meta_cursor)) {
      meta = &buffer.metas[i];
    }
  }
  if (meta == nullptr) {
    return;
  }
  const auto& cursor = *static_cast<const spa_meta_cursor*>(meta->data);
  std::optional<Image> picture;
  bool hidden = false;
  if (cursor.id != 0 && cursor.bitmap_offset >= sizeof(spa_meta_cursor) &&
      cursor.bitmap_offset + sizeof(spa_meta_bitmap) <= meta->size) {
    const auto& bitmap = *reinterpret_cast<const spa_meta_bitmap*>(
        static_cast<const std::uint8_t*>(meta->data) + cursor.bitmap_offset);
    // Format 0 means the picture is unchanged; offset 0 that the pointer is invisible.
    if (bitmap.format != 0) {
      if (bitmap.offset == 0) {
        hidden = true;
      } else {
        picture = cursorPicture(bitmap, meta->size - cursor.bitmap_offset);
      }
    }
  }
  std::scoped_lock lock(pointerMutex_);
  // An id of 0: the pointer is not on this stream.
  pointerOnStream_ = cursor.id != 0;
  if (!pointerOnStream_) {
    return;
  }
  if (!pointer_) {
    pointer_ = Pointer{};
  }
  pointer_->x = cursor.position.x;
  pointer_->y = cursor.position.y;
  if (picture || hidden) {
    CursorImage next{hidden ? Image() : *picture, cursor.hotspot.x, cursor.hotspot.y};
    // Compositors send the picture again after a move; only a new one counts as a change.
    const CursorImage& current = pointer_->cursor;
    if (pointer_->serial == 0 || next.hotX != current.hotX || next.hotY != current.hotY ||
        !next.image.hasSamePixels(current.image)) {
      pointer_->cursor = std::move(next);
      ++pointer_->serial;
    }
  }
}

void PipeWireStream::onProcess() {
  // Everything queued since the last call: pointer updates from each, the picture from the newest
  // that has one; the others go straight back to the producer.
  pw_buffer* newest = nullptr;
  std::optional<HeldPicture> newestPicture;
  while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream_.get())) {
    readCursor(*buffer->buffer);
    if (auto picture = pictureIn(buffer)) {
      if (newest != nullptr) {
        pw_stream_queue_buffer(stream_.get(), newest);
      }
      newest = buffer;
      newestPicture = picture;
    } else {
      pw_stream_queue_buffer(stream_.get(), buffer);
    }
  }
  if (newest == nullptr) {
    return;
  }
  pw_buffer* previous = nullptr;
  {
    std::scoped_lock lock(pictureMutex_);
    if (picture_) {
      previous = picture_->buffer;
    }
    picture_ = newestPicture;
    ++sequence_;
  }
  pictureChanged_.notify_all();
  // Given back only now: until the swap, a copy may have been reading it.
  if (previous != nullptr) {
    pw_stream_queue_buffer(stream_.get(), previous);
  }
}

bool PipeWireStream::waitForPicture(std::chrono::milliseconds timeout) {
  std::unique_lock lock(pictureMutex_);
  pictureChanged_.wait_for(lock, timeout, [&] { return sequence_ > 0 || endReason_.has_value(); });
  return sequence_ > 0;
}

std::optional<PipeWireStream::Frame> PipeWireStream::frameAfter(std::uint64_t after,
                                                                const ScreenRect& area,
                                                                ImageSize logicalSize) {
  std::scoped_lock lock(pictureMutex_);
  if (!picture_ || sequence_ <= after || logicalSize.width <= 0 || logicalSize.height <= 0) {
    return std::nullopt;
  }
  const HeldPicture& picture = *picture_;
  // Logical coordinates onto the picture's pixels: the same where the compositor does not scale.
  const double scaleX = static_cast<double>(picture.size.width) / logicalSize.width;
  const double scaleY = static_cast<double>(picture.size.height) / logicalSize.height;
  const auto left = static_cast<int>(std::lround(area.x * scaleX));
  const auto top = static_cast<int>(std::lround(area.y * scaleY));
  const auto right = static_cast<int>(std::lround((area.x + area.width) * scaleX));
  const auto bottom = static_cast<int>(std::lround((area.y + area.height) * scaleY));
  const ScreenRect pixels = ScreenRect{left, top, right - left, bottom - top}.intersection(
      {0, 0, picture.size.width, picture.size.height});
  if (pixels.empty()) {
    return std::nullopt;
  }
  const std::uint8_t* origin = picture.pixels +
                               static_cast<std::size_t>(pixels.y) * picture.bytesPerRow +
                               std::size_t{4} * static_cast<std::size_t>(pixels.x);
  PixelBuffer copy = opaqueCopy(origin, picture.bytesPerRow, pixels.width, pixels.height,
                                swapsRedAndBlue(picture.format));
  return Frame{Image::bgra8(pixels.width, pixels.height, std::move(copy)), sequence_, picture.size,
               pixels};
}

std::optional<ImageSize> PipeWireStream::pictureSize() const {
  std::scoped_lock lock(pictureMutex_);
  if (!picture_) {
    return std::nullopt;
  }
  return picture_->size;
}

std::optional<PipeWireStream::Pointer> PipeWireStream::pointer() const {
  std::scoped_lock lock(pointerMutex_);
  if (!pointerOnStream_) {
    return std::nullopt;
  }
  return pointer_;
}

CursorImage PipeWireStream::cursor() const {
  std::scoped_lock lock(pointerMutex_);
  return pointer_ ? pointer_->cursor : CursorImage{};
}

std::optional<std::string> PipeWireStream::endReason() const {
  std::scoped_lock lock(pictureMutex_);
  return endReason_;
}

}  // namespace brimble::wayland
