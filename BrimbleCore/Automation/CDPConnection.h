#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/CDPTransport.h"

namespace brimble {

/// DevTools protocol commands over a transport: each `send` gets the next id, waits for the
/// answer with that id and returns its `result`. Answers arrive on the transport's thread and
/// complete the waiting caller; events are ignored. Thread-safe: several callers may wait at once.
class CDPConnection {
 public:
  /// Takes the transport and starts receiving.
  explicit CDPConnection(std::unique_ptr<CDPTransport> transport);
  CDPConnection(const CDPConnection&) = delete;
  CDPConnection& operator=(const CDPConnection&) = delete;
  ~CDPConnection();

  /// Sends `method` with `params` and returns the answer's `result` (an empty object when it has
  /// none). Throws CDPError: commandFailed (the answer's error message), connectionClosed (the
  /// socket closed before the answer, or the command could not be sent), malformedMessage (an
  /// answer that is not JSON, or not an object with a result or an error), timedOut. Half of a
  /// UTF-16 surrogate pair in the answer (a page's script can cut one apart) arrives as U+FFFD.
  nlohmann::json send(const std::string& method,
                      const nlohmann::json& params = nlohmann::json::object(),
                      std::chrono::milliseconds timeout = std::chrono::seconds(30));

  /// How many calls are waiting for their answer.
  std::size_t pendingCount() const;

 private:
  struct Pending {
    std::optional<nlohmann::json> result;
    std::optional<std::string> error;  // the answer's error message
    bool malformed = false;
    bool done = false;
  };

  void receive(std::optional<std::string> message);

  std::unique_ptr<CDPTransport> transport_;
  mutable std::mutex pendingMutex_;  // guards the calls waiting for answers, and the fields below
  std::condition_variable answered_;
  std::int64_t nextId_ = 1;
  std::map<std::int64_t, std::shared_ptr<Pending>> pending_;
  bool closed_ = false;
};

}  // namespace brimble
