#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace brimble {

class CompressedFrameStoreError : public std::runtime_error {
 public:
  enum class Code { indexOutOfRange, writerUnavailable };

  static CompressedFrameStoreError indexOutOfRange(long index, std::size_t count);
  static CompressedFrameStoreError writerUnavailable(const std::filesystem::path& file);

  Code code() const noexcept { return code_; }

 private:
  CompressedFrameStoreError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// A read-only, indexed sequence of compressed (JPEG) frames. Implementations are thread-safe.
class CompressedFrameStore {
 public:
  virtual ~CompressedFrameStore() = default;

  virtual int count() const = 0;
  /// The bytes of frame `index` (0-based). Throws CompressedFrameStoreError::indexOutOfRange
  /// outside 0..<count, and the platform's error when reading fails.
  virtual std::vector<std::uint8_t> data(int index) const = 0;
};

/// An append-only sink of compressed frames that is finalised into a CompressedFrameStore.
/// Implementations are thread-safe: a recorder appends while a coordinator reads `count`.
class FrameWriting {
 public:
  virtual ~FrameWriting() = default;

  /// Frames appended so far.
  virtual int count() const = 0;
  virtual void append(std::span<const std::uint8_t> data) = 0;
  /// Closes the writer and hands over a store of everything appended.
  virtual std::unique_ptr<CompressedFrameStore> finalize() = 0;
  /// Closes the writer and deletes what it holds.
  virtual void discard() noexcept = 0;
};

/// Frames held in memory, for short and synthetic sequences. An immutable value.
struct InMemoryFrameStore final : CompressedFrameStore {
  std::vector<std::vector<std::uint8_t>> frames;

  InMemoryFrameStore() = default;
  explicit InMemoryFrameStore(std::vector<std::vector<std::uint8_t>> blobs)
      : frames(std::move(blobs)) {}

  int count() const override { return static_cast<int>(frames.size()); }
  std::vector<std::uint8_t> data(int index) const override;
};

}  // namespace brimble
