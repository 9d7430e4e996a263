#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// Where an animation writer's bytes go. One thread at a time.
class ByteSink {
 public:
  virtual ~ByteSink() = default;

  /// Appends `data` at the end.
  virtual void write(std::span<const std::uint8_t> data) = 0;
  /// Overwrites bytes already written, starting at `offset`; the end does not move. Throws
  /// MuxError::unexpectedLayout when the range reaches past what was written.
  virtual void patch(std::size_t offset, std::span<const std::uint8_t> data) = 0;
  /// Bytes written so far: the end position.
  virtual std::size_t offset() const = 0;
  /// Completes the destination; writing afterwards fails. Does nothing where nothing needs it.
  virtual void close() {}
};

/// Writes to a file. The destructor closes the file but leaves it in place: a writer that failed
/// half-way is cleaned up by whoever called `discard()`.
class FileByteSink final : public ByteSink {
 public:
  /// Creates (or truncates) the file at `url`. Throws
  /// MuxError::unexpectedLayout("could not create <path>") when it cannot.
  explicit FileByteSink(std::filesystem::path url);

  void write(std::span<const std::uint8_t> data) override;
  void patch(std::size_t offset, std::span<const std::uint8_t> data) override;
  std::size_t offset() const override { return offset_; }
  /// Closes the file; a second close does nothing. Throws std::system_error if close fails.
  void close() override;
  /// Closes and deletes the file, ignoring failures.
  void discard() noexcept;

  const std::filesystem::path& url() const noexcept { return url_; }

 private:
  std::filesystem::path url_;
  UniqueFd handle_;
  std::size_t offset_ = 0;
};

/// Collects the bytes in memory.
class MemoryByteSink final : public ByteSink {
 public:
  void write(std::span<const std::uint8_t> data) override;
  void patch(std::size_t offset, std::span<const std::uint8_t> data) override;
  std::size_t offset() const override { return data.size(); }

  std::vector<std::uint8_t> data;
};

}  // namespace brimble
