#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "BrimbleCore/Encoding/Frame.h"

namespace brimble {

/// How far a stream has read through what it comes from: frames taken of all there are.
struct StreamPosition {
  int read = 0;
  int total = 0;
};

/// A clip handed out one frame at a time, so that only the frames being worked on are decoded at
/// any moment however long the clip is. One thread at a time.
class FrameStream {
 public:
  /// The most bytes of decoded pixels a step that must see several frames together (pauses,
  /// shared palettes) holds at once: 512 MiB, some 60 frames of 1920x1080.
  static constexpr std::size_t kHeldFrameBytes = std::size_t{512} << 20;

  virtual ~FrameStream() = default;

  /// The next frame; no value after the last. Throws what reading or editing the clip throws.
  virtual std::optional<ProcessedFrame> next() = 0;
  /// How far through its source the stream has read.
  virtual StreamPosition position() const = 0;
};

/// Opens a clip from its first frame. Called again when a file has to be written anew from the
/// start (an APNG that turns out to need alpha).
using FrameStreamSource = std::function<std::unique_ptr<FrameStream>()>;

/// Frames already in memory as a stream; `frames` must outlive it.
class SpanFrameStream final : public FrameStream {
 public:
  explicit SpanFrameStream(std::span<const ProcessedFrame> frames) : frames_(frames) {}

  std::optional<ProcessedFrame> next() override {
    if (read_ == frames_.size()) {
      return std::nullopt;
    }
    return frames_[read_++];
  }
  StreamPosition position() const override {
    return {static_cast<int>(read_), static_cast<int>(frames_.size())};
  }

 private:
  std::span<const ProcessedFrame> frames_;
  std::size_t read_ = 0;
};

}  // namespace brimble
