#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "BrimbleCore/Capture/CursorImage.h"
#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Platform/Wayland/PipeWireHandles.h"
#include "BrimbleCore/Support/UniqueFd.h"

struct pw_buffer;
struct spa_buffer;
struct spa_pod;

namespace brimble::wayland {

/// The video of one PipeWire node that a screen-cast session shares (a monitor), received over
/// a connection of its own. The compositor sends a picture only when the screen changes; the
/// stream keeps the newest one (holding its buffer back from the producer until a newer one
/// comes, so that nothing is copied until someone asks) and, when the session's cursor mode is
/// metadata, where the pointer is and what it looks like.
///
/// It takes raw video in BGRx or BGRA (RGBx and RGBA are swizzled), at any size and rate, in
/// plain memory (MemPtr or MemFd), with the header, video-crop and cursor metadata. A buffer
/// with an empty chunk carries only a pointer update.
///
/// PipeWire calls back on the stream's own thread (a pw_thread_loop). Every public function is
/// thread-safe: what the callbacks write, they write under the locks below.
class PipeWireStream {
 public:
  /// A copy of part of the newest picture.
  struct Frame {
    /// Opaque bgra8 (alpha 255).
    Image image;
    /// Counts the pictures received; a larger one is a newer picture.
    std::uint64_t sequence = 0;
    /// The whole picture's size in pixels (after the video crop), which the part was taken from.
    ImageSize pictureSize;
    /// Where the part lies in the picture, in its pixels.
    ScreenRect pixelArea;
  };

  /// The pointer as the cursor metadata last described it.
  struct Pointer {
    /// The hot spot, in pixels of the picture (after the video crop).
    int x = 0;
    int y = 0;
    /// bgra8, premultiplied, in the picture's pixels; an empty image while the pointer is hidden.
    CursorImage cursor;
    /// Changes whenever the picture of the pointer does (starts at 1).
    std::uint64_t serial = 0;
  };

  /// Connects over `remote` (a connection to the PipeWire daemon, as the desktop portal's
  /// OpenPipeWireRemote gives it) to node `nodeID`. `knownCursor` is the pointer's picture as an
  /// earlier connection to the node last saw it: the compositor sends the picture only when it
  /// changes, not to each new consumer. Throws ScreenCaptureError::displayUnreachable when
  /// PipeWire refuses the connection or the stream.
  PipeWireStream(UniqueFd remote, std::uint32_t nodeID, CursorImage knownCursor = {});
  PipeWireStream(const PipeWireStream&) = delete;
  PipeWireStream& operator=(const PipeWireStream&) = delete;
  ~PipeWireStream();

  std::uint32_t nodeID() const noexcept { return nodeID_; }

  /// Waits up to `timeout` for the first picture. True once there is one; false when none came
  /// in time or the stream ended first.
  bool waitForPicture(std::chrono::milliseconds timeout);

  /// The part of the newest picture that shows `area`, given in the coordinates of a stream
  /// `logicalSize` large (the compositor's logical pixels, from the stream's top-left corner),
  /// scaled onto the picture's pixels when their size differs, and cut to the picture. No value
  /// when no picture newer than `after` (a sequence returned before, or 0) has come, or the part
  /// is empty.
  std::optional<Frame> frameAfter(std::uint64_t after, const ScreenRect& area,
                                  ImageSize logicalSize);

  /// The newest picture's size in pixels (after the video crop); no value before the first. A
  /// window's stream changes size with the window.
  std::optional<ImageSize> pictureSize() const;

  /// The pointer as the last cursor metadata told; no value before any, or while the pointer is
  /// not on this stream.
  std::optional<Pointer> pointer() const;

  /// The pointer's picture as last seen, whether the pointer is on this stream or not; empty
  /// when none came.
  CursorImage cursor() const;

  /// Why the stream ended (the node went away, PipeWire did, or the stream failed); no value
  /// while it runs.
  std::optional<std::string> endReason() const;

 private:
  struct Callbacks;

  /// The buffer of the newest picture, held back from the producer, with what it was made of.
  struct HeldPicture {
    pw_buffer* buffer = nullptr;
    const std::uint8_t* pixels = nullptr;  // the crop's top-left pixel
    std::size_t bytesPerRow = 0;
    std::uint32_t format = 0;  // enum spa_video_format
    ImageSize size;            // after the crop
  };

  // Called on PipeWire's thread, with its loop locked.
  void onStateChanged(int state, const char* error);
  void onParamChanged(std::uint32_t id, const spa_pod* param);
  void onProcess();
  void onRemoveBuffer(pw_buffer* buffer);
  void onCoreError(std::uint32_t id, int result, const char* message);
  void onGlobalRemoved(std::uint32_t id);
  /// The picture `buffer` carries; no value for a pointer-only update or a damaged buffer.
  std::optional<HeldPicture> pictureIn(pw_buffer* buffer) const;
  void readCursor(const spa_buffer& buffer);
  void end(const std::string& reason);

  const std::uint32_t nodeID_;

  // Destroyed in the reverse order: the listeners first, then what they listen to, the loop last.
  PipeWireThreadLoopPtr loop_;
  PipeWireContextPtr context_;
  PipeWireCorePtr core_;
  PipeWireRegistryPtr registry_;
  PipeWireStreamPtr stream_;
  PipeWireListener coreListener_;
  PipeWireListener registryListener_;
  PipeWireListener streamListener_;

  // Written by PipeWire's thread only: the format agreed last.
  std::uint32_t format_ = 0;
  ImageSize formatSize_;
  bool connected_ = false;

  mutable std::mutex pictureMutex_;  // guards the fields below
  std::condition_variable pictureChanged_;
  std::optional<HeldPicture> picture_;
  std::uint64_t sequence_ = 0;
  std::optional<std::string> endReason_;

  mutable std::mutex pointerMutex_;  // guards the fields below
  std::optional<Pointer> pointer_;
  bool pointerOnStream_ = false;
};

}  // namespace brimble::wayland
