// DiskFrameWriter and DiskFrameStore against raw pwrite/pread of the same bytes, so the store's
// own cost (locking, the index, the deleted-file check) shows as the difference.

#include <filesystem>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "BrimbleCore/Encoding/DiskFrameStore.h"
#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Support/FileIO.h"

namespace brimble {
namespace {

constexpr std::size_t kBlobSize = 200 * 1024;
constexpr int kFrames = 500;

std::vector<std::uint8_t> blob() {
  std::vector<std::uint8_t> bytes(kBlobSize);
  std::mt19937 random(42);
  for (auto& byte : bytes) {
    byte = static_cast<std::uint8_t>(random());
  }
  return bytes;
}

void BM_DiskFrameWriterAppend(benchmark::State& state) {
  const auto bytes = blob();
  for (auto _ : state) {
    state.PauseTiming();
    DiskFrameWriter writer;
    state.ResumeTiming();
    for (int i = 0; i < kFrames; ++i) {
      writer.append(bytes);
    }
    state.PauseTiming();
    writer.discard();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * kFrames * static_cast<std::int64_t>(kBlobSize));
}
BENCHMARK(BM_DiskFrameWriterAppend)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RawWrite(benchmark::State& state) {
  const auto bytes = blob();
  const auto path = temporaryDirectory() / ("brimble-bench-" + makeUUIDString());
  for (auto _ : state) {
    state.PauseTiming();
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    state.ResumeTiming();
    std::uint64_t offset = 0;
    for (int i = 0; i < kFrames; ++i) {
      writeAllAt(fd, bytes, offset, path);
      offset += bytes.size();
    }
    state.PauseTiming();
    ::close(fd);
    std::filesystem::remove(path);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * kFrames * static_cast<std::int64_t>(kBlobSize));
}
BENCHMARK(BM_RawWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DiskFrameStoreRead(benchmark::State& state) {
  const auto bytes = blob();
  DiskFrameWriter writer;
  for (int i = 0; i < kFrames; ++i) {
    writer.append(bytes);
  }
  const auto store = writer.finalize();
  for (auto _ : state) {
    for (int i = 0; i < kFrames; ++i) {
      benchmark::DoNotOptimize(store->data(i));
    }
  }
  state.SetBytesProcessed(state.iterations() * kFrames * static_cast<std::int64_t>(kBlobSize));
}
BENCHMARK(BM_DiskFrameStoreRead)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RawPread(benchmark::State& state) {
  const auto bytes = blob();
  const auto path = temporaryDirectory() / ("brimble-bench-" + makeUUIDString());
  const int out = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  for (int i = 0; i < kFrames; ++i) {
    writeAllAt(out, bytes, static_cast<std::uint64_t>(i) * kBlobSize, path);
  }
  ::close(out);
  const int in = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  for (auto _ : state) {
    for (int i = 0; i < kFrames; ++i) {
      // Allocate a fresh buffer per frame, as the store must to hand its bytes over.
      std::vector<std::uint8_t> frame(kBlobSize);
      readAt(in, frame, static_cast<std::uint64_t>(i) * kBlobSize, path);
      benchmark::DoNotOptimize(frame);
    }
  }
  ::close(in);
  std::filesystem::remove(path);
  state.SetBytesProcessed(state.iterations() * kFrames * static_cast<std::int64_t>(kBlobSize));
}
BENCHMARK(BM_RawPread)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace brimble
