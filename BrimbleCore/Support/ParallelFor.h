#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace brimble {

/// The number of worker threads for CPU-bound loops: one per core.
inline unsigned workerCount() noexcept {
  return std::max(1u, std::thread::hardware_concurrency());
}

/// Calls `body(i)` for every i in 0..<count, spread over all cores; returns when all are done.
/// Iterations must only touch their own slots. The first exception thrown by an iteration stops
/// the hand-out of further iterations and is rethrown here, on the calling thread.
template <typename Body>
void parallelFor(std::size_t count, Body&& body) {
  const std::size_t threads = std::min<std::size_t>(workerCount(), count);
  if (threads <= 1) {
    for (std::size_t i = 0; i < count; ++i) {
      body(i);
    }
    return;
  }
  std::atomic<std::size_t> next = 0;
  std::mutex errorMutex;  // guards firstError
  std::exception_ptr firstError;
  const auto work = [&] {
    for (std::size_t i = next++; i < count; i = next++) {
      try {
        body(i);
      } catch (...) {
        std::scoped_lock lock(errorMutex);
        if (!firstError) {
          firstError = std::current_exception();
        }
        next = count;
      }
    }
  };
  {
    std::vector<std::jthread> workers;
    for (std::size_t t = 1; t < threads; ++t) {
      workers.emplace_back(work);
    }
    work();
  }
  if (firstError) {
    std::rethrow_exception(firstError);
  }
}

}  // namespace brimble
