#include "BrimbleCore/MCP/MCPToolSupport.h"

#include <chrono>
#include <cmath>
#include <limits>

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace brimble::mcp {

JSONValue property(std::string_view type, std::string_view description) {
  return JSONValue::Object{{"type", type}, {"description", description}};
}

JSONValue objectSchema(std::initializer_list<SchemaProperty> properties,
                       std::initializer_list<std::string_view> required) {
  JSONValue::Object members;
  for (const auto& [name, schema] : properties) {
    members.emplace(name, schema);
  }
  JSONValue::Object schema{{"type", "object"}, {"properties", std::move(members)}};
  if (required.size() > 0) {
    JSONValue::Array names;
    for (std::string_view name : required) {
      names.emplace_back(name);
    }
    schema.emplace("required", std::move(names));
  }
  return schema;
}

namespace {

std::string_view kindName(JSONValue::Kind kind) {
  switch (kind) {
    case JSONValue::Kind::string:
      return "a string";
    case JSONValue::Kind::number:
      return "a number";
    case JSONValue::Kind::boolean:
      return "a boolean";
    case JSONValue::Kind::array:
      return "an array";
    case JSONValue::Kind::object:
      return "an object";
    case JSONValue::Kind::null:
      break;
  }
  return "null";
}

}  // namespace

void Arguments::requireKind(std::string_view key, JSONValue::Kind kind) const {
  const JSONValue::Kind given = arguments_[key].kind();
  if (given != JSONValue::Kind::null && given != kind) {
    fail("'" + std::string(key) + "' must be " + std::string(kindName(kind)) + " (got " +
         std::string(kindName(given)) + ")");
  }
}

std::optional<std::string> Arguments::string(std::string_view key) const {
  requireKind(key, JSONValue::Kind::string);
  const std::string* text = arguments_[key].stringValue();
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

std::optional<double> Arguments::number(std::string_view key) const {
  requireKind(key, JSONValue::Kind::number);
  return arguments_[key].numberValue();
}

std::optional<int> Arguments::integer(std::string_view key) const {
  const auto value = number(key);
  if (!value) {
    return std::nullopt;
  }
  if (!std::isfinite(*value) || *value < std::numeric_limits<int>::min() ||
      *value > std::numeric_limits<int>::max()) {
    fail("'" + std::string(key) + "' is out of range (got " + numberText(*value) + ")");
  }
  return static_cast<int>(*value);
}

std::optional<bool> Arguments::boolean(std::string_view key) const {
  requireKind(key, JSONValue::Kind::boolean);
  return arguments_[key].boolValue();
}

void fail(const std::string& message) {
  throw MCPToolError(message);
}

std::string sessionID(const Arguments& arguments) {
  const auto id = arguments.string("session_id");
  if (!id || id->empty()) {
    fail("'session_id' is required");
  }
  return *id;
}

JSONValue targetJSON(const WindowInfo& window) {
  return JSONValue::Object{
      {"window_id", window.id},
      {"title", window.title},
      {"app", window.appName},
      // A Wayland desktop does not say where a window is: null, not a made-up 0,0.
      {"frame",
       JSONValue::Object{
           {"x", window.positionKnown ? JSONValue(window.frame.x) : JSONValue(nullptr)},
           {"y", window.positionKnown ? JSONValue(window.frame.y) : JSONValue(nullptr)},
           {"w", window.frame.width},
           {"h", window.frame.height}}},
  };
}

std::string numberText(double value) {
  if (std::isfinite(value) && value == std::trunc(value) && std::fabs(value) < 1e15) {
    return fmt::format("{}", static_cast<long long>(value));
  }
  return fmt::format("{}", value);
}

double megabytes(std::uintmax_t bytes) {
  return std::round(static_cast<double>(bytes) / (1024.0 * 1024.0) * 100.0) / 100.0;
}

std::string isoDateNow() {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", now);
}

}  // namespace brimble::mcp

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"

namespace brimble::mcp {

std::string base64(std::span<const std::uint8_t> bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    text += kAlphabet[(group >> 18) & 63];
    text += kAlphabet[(group >> 12) & 63];
    text += kAlphabet[(group >> 6) & 63];
    text += kAlphabet[group & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    const std::uint32_t group = (bytes[i] << 16) | (rest == 2 ? bytes[i + 1] << 8 : 0);
    text += kAlphabet[(group >> 18) & 63];
    text += kAlphabet[(group >> 12) & 63];
    text += rest == 2 ? kAlphabet[(group >> 6) & 63] : '=';
    text += '=';
  }
  return text;
}

JSONValue imageContent(const Image& image) {
  // Wider images cost the assistant's context without showing it more.
  constexpr int kMaxWidth = 1280;
  const Image shown = ImageScaler::scaleToMaxWidth(image.toBGRA8(), kMaxWidth);
  return JSONValue::Object{
      {"type", "image"}, {"data", base64(encodePNG(shown))}, {"mimeType", "image/png"}};
}

}  // namespace brimble::mcp
