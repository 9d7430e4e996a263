#include "BrimbleCore/Automation/CDPConnection.h"

#include "BrimbleCore/Automation/CDPError.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

CDPConnection::CDPConnection(std::unique_ptr<CDPTransport> transport)
    : transport_(std::move(transport)) {
  transport_->start([this](std::optional<std::string> message) { receive(std::move(message)); });
}

CDPConnection::~CDPConnection() {
  transport_->close();
  transport_.reset();  // waits for the transport's thread, the only caller of receive()
}

nlohmann::json CDPConnection::send(const std::string& method, const nlohmann::json& params,
                                   std::chrono::milliseconds timeout) {
  auto pending = std::make_shared<Pending>();
  std::int64_t id = 0;
  {
    std::scoped_lock lock(mutex_);
    if (closed_) {
      throw CDPError::connectionClosed();
    }
    id = nextId_++;
    pending_[id] = pending;
  }
  transport_->send(nlohmann::json{{"id", id}, {"method", method}, {"params", params}}.dump());
  std::unique_lock lock(mutex_);
  const bool done = answered_.wait_for(lock, timeout, [&] { return pending->done; });
  pending_.erase(id);
  if (!done) {
    throw CDPError::timedOut(method);
  }
  if (pending->error) {
    throw CDPError::commandFailed(*pending->error);
  }
  if (pending->malformed) {
    throw CDPError::malformedMessage();
  }
  if (!pending->result) {
    throw CDPError::connectionClosed();
  }
  return std::move(*pending->result);
}

void CDPConnection::receive(std::optional<std::string> message) {
  std::scoped_lock lock(mutex_);
  if (!message) {
    // The socket closed: every call still waiting fails.
    closed_ = true;
    for (auto& [id, pending] : pending_) {
      pending->done = true;
    }
    answered_.notify_all();
    return;
  }
  const nlohmann::json parsed = nlohmann::json::parse(*message, nullptr, false);
  const auto id = parsed.is_object() ? parsed.find("id") : parsed.end();
  if (parsed.is_object() && id == parsed.end() && parsed.contains("method")) {
    return;  // an event
  }
  if (id == parsed.end() || !id->is_number_integer()) {
    // Neither an answer nor an event: no caller to give it to.
    logLine("BrimbleCore: Malformed CDP message");
    return;
  }
  const auto waiting = pending_.find(id->get<std::int64_t>());
  if (waiting == pending_.end()) {
    return;  // an answer nobody waits for any more (timed out)
  }
  Pending& pending = *waiting->second;
  if (const auto error = parsed.find("error"); error != parsed.end()) {
    const auto text = error->is_object() ? error->find("message") : error->end();
    pending.error =
        text != error->end() && text->is_string() ? text->get<std::string>() : error->dump();
  } else if (const auto result = parsed.find("result");
             result != parsed.end() && result->is_object()) {
    pending.result = *result;
  } else {
    pending.malformed = true;
  }
  pending.done = true;
  answered_.notify_all();
}

}  // namespace brimble
