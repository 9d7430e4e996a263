#include "BrimbleCore/MCP/MCPTransport.h"

#include <array>
#include <cstdint>
#include <istream>
#include <ostream>

#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

bool isASCIIWhitespace(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// The UTF-8 forms of the non-ASCII white space and line breaks: NEL, the space separators and
// U+2028, U+2029.
constexpr std::array<std::string_view, 19> kUnicodeWhitespace = {
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81",
    "\xE2\x80\x82", "\xE2\x80\x83", "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86",
    "\xE2\x80\x87", "\xE2\x80\x88", "\xE2\x80\x89", "\xE2\x80\x8A", "\xE2\x80\xA8",
    "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80",
};

std::size_t leadingWhitespace(std::string_view text) noexcept {
  if (!text.empty() && isASCIIWhitespace(text.front())) {
    return 1;
  }
  for (const std::string_view space : kUnicodeWhitespace) {
    if (text.starts_with(space)) {
      return space.size();
    }
  }
  return 0;
}

std::size_t trailingWhitespace(std::string_view text) noexcept {
  if (!text.empty() && isASCIIWhitespace(text.back())) {
    return 1;
  }
  for (const std::string_view space : kUnicodeWhitespace) {
    if (text.ends_with(space)) {
      return space.size();
    }
  }
  return 0;
}

}  // namespace

std::string_view trimWhitespace(std::string_view text) noexcept {
  while (const std::size_t length = leadingWhitespace(text)) {
    text.remove_prefix(length);
  }
  while (const std::size_t length = trailingWhitespace(text)) {
    text.remove_suffix(length);
  }
  return text;
}

std::optional<std::string> MCPTransport::readLine(bool& tooLong) {
  std::streambuf* buffer = input_.rdbuf();
  std::string line;
  tooLong = false;
  bool readAnything = false;
  while (true) {
    const int c = buffer->sbumpc();
    if (c == std::char_traits<char>::eof()) {
      if (!readAnything) {
        return std::nullopt;
      }
      break;
    }
    readAnything = true;
    if (c == '\n') {
      break;
    }
    if (line.size() < kMaxLineBytes) {
      line.push_back(static_cast<char>(c));
    } else {
      tooLong = true;
    }
  }
  return line;
}

MCPTransport::Incoming MCPTransport::readNextRequest() {
  while (true) {
    bool tooLong = false;
    const std::optional<std::string> line = readLine(tooLong);
    if (!line) {
      return EndOfInput{};
    }
    if (tooLong) {
      return MCPError::parseError("JSON parse error: line longer than " +
                                  std::to_string(kMaxLineBytes) + " bytes");
    }
    if (!isValidUTF8(*line)) {
      return MCPError::parseError("Invalid UTF-8 input");
    }
    const std::string_view text = trimWhitespace(*line);
    if (text.empty()) {
      continue;
    }
    try {
      return MCPRequest::decode(text);
    } catch (const JSONCodingError& error) {
      return MCPError::parseError(std::string("JSON parse error: ") + error.what());
    }
  }
}

void MCPTransport::sendResponse(const MCPResponse& response) {
  std::string line;
  try {
    line = response.encode();
  } catch (const JSONCodingError& error) {
    log(std::string("Failed to encode response: ") + error.what());
    return;
  }
  line += '\n';
  writeLine(line);
}

void MCPTransport::writeLine(const std::string& line) {
  std::scoped_lock guard(writeMutex_);
  output_.write(line.data(), static_cast<std::streamsize>(line.size()));
  output_.flush();
  if (!output_ && !outputClosed_) {
    outputClosed_ = true;
    log("Failed to write response: the output is closed");
  }
}

void MCPTransport::sendNotification(std::string_view method, const JSONValue& params) {
  std::string line;
  try {
    line = JSONValue(JSONValue::Object{{"jsonrpc", "2.0"}, {"method", method}, {"params", params}})
               .encode();
  } catch (const JSONCodingError& error) {
    log(std::string("Failed to encode notification: ") + error.what());
    return;
  }
  line += '\n';
  writeLine(line);
}

void MCPTransport::sendResult(std::optional<RequestID> id, JSONValue result) {
  sendResponse(MCPResponse::success(std::move(id), std::move(result)));
}

void MCPTransport::sendError(std::optional<RequestID> id, MCPError error) {
  sendResponse(MCPResponse::failure(std::move(id), std::move(error)));
}

void MCPTransport::log(std::string_view message) {
  std::string line = "[Brimble MCP] ";
  line += message;
  logLine(line);
}

}  // namespace brimble
