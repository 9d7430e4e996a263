#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <variant>
#include <vector>

namespace brimble {

/// Computes `produce(0)`, `produce(1)`, … on worker threads, at most `window` items ahead of the
/// consumer, and hands the results out in order. Memory stays bounded by the window however long
/// the sequence. The consumer (one thread) calls `next`; `produce` must be safe to call from
/// several threads at once.
template <typename T>
class OrderedPrefetcher {
 public:
  OrderedPrefetcher(std::size_t count, std::function<T(std::size_t)> produce, unsigned threads,
                    std::size_t window)
      : count_(count), produce_(std::move(produce)), window_(std::max<std::size_t>(window, 1)) {
    for (unsigned t = 0; t < std::max(threads, 1u); ++t) {
      workers_.emplace_back([this] { work(); });
    }
  }
  OrderedPrefetcher(const OrderedPrefetcher&) = delete;
  OrderedPrefetcher& operator=(const OrderedPrefetcher&) = delete;

  /// Stops the workers after the items they are computing; waits for them.
  ~OrderedPrefetcher() {
    {
      std::scoped_lock lock(resultsMutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    workers_.clear();  // joins
  }

  /// The next result, in order; no value after the last. Rethrows what `produce` threw for it.
  std::optional<T> next() {
    std::unique_lock lock(resultsMutex_);
    if (nextToHand_ == count_) {
      return std::nullopt;
    }
    changed_.wait(lock, [this] { return ready_.count(nextToHand_) != 0; });
    auto node = ready_.extract(nextToHand_);
    ++nextToHand_;
    lock.unlock();
    changed_.notify_all();
    if (auto* error = std::get_if<std::exception_ptr>(&node.mapped())) {
      std::rethrow_exception(*error);
    }
    return std::move(std::get<T>(node.mapped()));
  }

 private:
  void work() {
    while (true) {
      std::size_t index = 0;
      {
        std::unique_lock lock(resultsMutex_);
        changed_.wait(lock, [this] {
          return stopping_ || (nextToStart_ < count_ && nextToStart_ < nextToHand_ + window_);
        });
        if (stopping_) {
          return;
        }
        index = nextToStart_++;
      }
      std::variant<T, std::exception_ptr> result{std::in_place_index<1>};
      try {
        result.template emplace<T>(produce_(index));
      } catch (...) {
        result = std::current_exception();
      }
      {
        std::scoped_lock lock(resultsMutex_);
        ready_.emplace(index, std::move(result));
      }
      changed_.notify_all();
    }
  }

  const std::size_t count_;
  const std::function<T(std::size_t)> produce_;
  const std::size_t window_;
  std::mutex resultsMutex_;  // guards the results and the positions below
  std::condition_variable changed_;
  std::map<std::size_t, std::variant<T, std::exception_ptr>> ready_;
  std::size_t nextToStart_ = 0;
  std::size_t nextToHand_ = 0;
  bool stopping_ = false;
  std::vector<std::jthread> workers_;  // last: joined before the fields above go away
};

}  // namespace brimble
