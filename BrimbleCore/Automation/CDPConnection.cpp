#include "BrimbleCore/Automation/CDPConnection.h"

#include <cctype>
#include <charconv>
#include <string_view>

#include "BrimbleCore/Automation/CDPError.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {
namespace {

std::optional<unsigned> hexQuad(std::string_view text, std::size_t at) {
  unsigned value = 0;
  if (at + 4 > text.size() ||
      std::from_chars(text.data() + at, text.data() + at + 4, value, 16).ptr !=
          text.data() + at + 4) {
    return std::nullopt;
  }
  return value;
}

/// `text` with every "\uXXXX" escape of a lone UTF-16 surrogate replaced by "\ufffd". Chromium
/// escapes the half of a surrogate pair that a page's string operations cut apart (an emoji at
/// the end of a shortened text) that way, and a JSON parser refuses it: no well-formed text
/// holds half a character.
std::string withLoneSurrogatesReplaced(std::string_view text) {
  const auto surrogateIn = [&](std::size_t at, unsigned first, unsigned last) {
    const auto unit = text.compare(at, 2, "\\u") == 0 ? hexQuad(text, at + 2) : std::nullopt;
    return unit && *unit >= first && *unit <= last;
  };
  std::string repaired;
  repaired.reserve(text.size());
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t escape = text.find('\\', at);
    if (escape == std::string_view::npos) {
      break;
    }
    repaired.append(text, at, escape - at);
    if (surrogateIn(escape, 0xD800, 0xDBFF) && surrogateIn(escape + 6, 0xDC00, 0xDFFF)) {
      repaired.append(text, escape, 12);
      at = escape + 12;
    } else if (surrogateIn(escape, 0xD800, 0xDFFF)) {
      repaired += "\\ufffd";
      at = escape + 6;
    } else {
      // Any other escape, "\\" included, is copied whole so its second character is not read
      // as the start of another.
      repaired.append(text, escape, 2);
      at = escape + 2;
    }
  }
  repaired.append(text.substr(std::min(at, text.size())));
  return repaired;
}

/// The id of a message that does not parse, read from its start, where Chromium puts it:
/// `{"id":12,...`. No value when it does not start that way.
std::optional<std::int64_t> leadingId(std::string_view text) {
  const auto skipBlanks = [&] {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
      text.remove_prefix(1);
    }
  };
  const auto expect = [&](std::string_view token) {
    skipBlanks();
    if (text.substr(0, token.size()) != token) {
      return false;
    }
    text.remove_prefix(token.size());
    return true;
  };
  if (!expect("{") || !expect("\"id\"") || !expect(":")) {
    return std::nullopt;
  }
  skipBlanks();
  std::int64_t id = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), id).ec != std::errc()) {
    return std::nullopt;
  }
  return id;
}

}  // namespace

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
    std::scoped_lock lock(pendingMutex_);
    if (closed_) {
      throw CDPError::connectionClosed();
    }
    id = nextId_++;
    pending_[id] = pending;
  }
  try {
    transport_->send(nlohmann::json{{"id", id}, {"method", method}, {"params", params}}.dump());
  } catch (...) {
    std::scoped_lock lock(pendingMutex_);
    pending_.erase(id);
    throw;
  }
  std::unique_lock lock(pendingMutex_);
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

std::size_t CDPConnection::pendingCount() const {
  std::scoped_lock lock(pendingMutex_);
  return pending_.size();
}

void CDPConnection::receive(std::optional<std::string> message) {
  std::scoped_lock lock(pendingMutex_);
  if (!message) {
    // The socket closed: every call still waiting fails.
    closed_ = true;
    for (auto& [id, pending] : pending_) {
      pending->done = true;
    }
    answered_.notify_all();
    return;
  }
  nlohmann::json parsed = nlohmann::json::parse(*message, nullptr, false);
  if (parsed.is_discarded()) {
    parsed = nlohmann::json::parse(withLoneSurrogatesReplaced(*message), nullptr, false);
  }
  const auto id = parsed.is_object() ? parsed.find("id") : parsed.end();
  if (parsed.is_object() && id == parsed.end() && parsed.contains("method")) {
    return;  // an event
  }
  std::optional<std::int64_t> answerTo;
  if (id != parsed.end() && id->is_number_integer()) {
    answerTo = id->get<std::int64_t>();
  } else {
    logLine("BrimbleCore: Malformed CDP message");
    // A caller whose answer this was would otherwise wait out its whole time-out.
    answerTo = parsed.is_discarded() ? leadingId(*message) : std::nullopt;
  }
  const auto waiting = answerTo ? pending_.find(*answerTo) : pending_.end();
  if (waiting == pending_.end()) {
    return;  // no caller: an answer nobody waits for any more (timed out), or unreadable
  }
  Pending& pending = *waiting->second;
  const auto error = parsed.is_object() ? parsed.find("error") : parsed.end();
  const auto result = parsed.is_object() ? parsed.find("result") : parsed.end();
  if (error != parsed.end()) {
    const auto text = error->is_object() ? error->find("message") : error->end();
    pending.error =
        text != error->end() && text->is_string() ? text->get<std::string>() : error->dump();
  } else if (result != parsed.end() && result->is_object()) {
    pending.result = *result;
  } else {
    pending.malformed = true;
  }
  pending.done = true;
  answered_.notify_all();
}

}  // namespace brimble
