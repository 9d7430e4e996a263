#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "BrimbleCore/MCP/JSONValue.h"
#include "BrimbleCore/MCP/MCPError.h"
#include "BrimbleCore/MCP/MCPRequest.h"
#include "BrimbleCore/MCP/MCPResponse.h"

namespace brimble {

/// Newline-delimited JSON-RPC over an input and an output stream: one request per input line,
/// one response per output line. Diagnostics go through the core log as "[Brimble MCP] " lines,
/// never to the output. One thread reads; any thread may send (each line is written whole). The
/// streams must outlive the transport.
class MCPTransport {
 public:
  /// Longer lines are answered with a parse error and skipped, so that a runaway client cannot
  /// exhaust memory.
  static constexpr std::size_t kMaxLineBytes = std::size_t{64} << 20;

  struct EndOfInput {
    friend bool operator==(EndOfInput, EndOfInput) { return true; }
  };
  /// A request, the error a bad line earns (to be answered without an id), or the end.
  using Incoming = std::variant<MCPRequest, MCPError, EndOfInput>;

  MCPTransport(std::istream& input, std::ostream& output) : input_(input), output_(output) {}
  MCPTransport(const MCPTransport&) = delete;
  MCPTransport& operator=(const MCPTransport&) = delete;

  /// Reads up to the next line that is not blank. Leading and trailing whitespace (ASCII and
  /// Unicode) is trimmed. A line that is not UTF-8 gives -32700 "Invalid UTF-8 input"; one that
  /// does not decode as a request gives -32700 "JSON parse error: " + the decoder's description.
  Incoming readNextRequest();

  /// Writes the response as one compact, key-sorted line and flushes it. When the response
  /// cannot be encoded, logs "Failed to encode response: " + why and writes nothing. When the
  /// write fails (the host closed its end), logs "Failed to write response: the output is
  /// closed" once; from then on `isOutputClosed` is true.
  void sendResponse(const MCPResponse& response);
  void sendResult(std::optional<RequestID> id, JSONValue result);
  void sendError(std::optional<RequestID> id, MCPError error);
  /// A notification from the server ("notifications/progress"): one line, like a response.
  void sendNotification(std::string_view method, const JSONValue& params);

  /// One diagnostic line, "[Brimble MCP] " + message, through the core log (standard error).
  void log(std::string_view message);

  /// Whether a response could not be written: nobody reads the answers any more.
  bool isOutputClosed() const noexcept { return outputClosed_.load(); }

 private:
  /// The next line without its terminator; no value at end of input. `tooLong` tells that bytes
  /// past kMaxLineBytes were dropped.
  std::optional<std::string> readLine(bool& tooLong);
  void writeLine(const std::string& line);

  std::istream& input_;
  std::mutex writeMutex_;  // guards writes to the output, which notifications make from any thread
  std::ostream& output_;
  std::atomic<bool> outputClosed_ = false;
};

/// `text` without leading and trailing white space and line breaks: the ASCII ones and the
/// Unicode space separators, U+0085, U+2028 and U+2029. `text` must be valid UTF-8.
std::string_view trimWhitespace(std::string_view text) noexcept;

}  // namespace brimble
