#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/MCP/JSONValue.h"
#include "BrimbleCore/MCP/MCPToolError.h"

namespace brimble::mcp {

/// One property of an input schema: its name and its JSON Schema.
using SchemaProperty = std::pair<std::string, JSONValue>;

/// {"type": type, "description": description}.
JSONValue property(std::string_view type, std::string_view description);
/// {"type": "object", "properties": {...}} with "required" when `required` is not empty.
JSONValue objectSchema(std::initializer_list<SchemaProperty> properties,
                       std::initializer_list<std::string_view> required = {});

/// The arguments of one call, read the way the tools expect: a missing or null member is no
/// value. A member of the wrong type fails the call ("'x' must be a number (got a string)"):
/// taken as absent it would run the tool on its defaults, clicking wherever the pointer is.
class Arguments {
 public:
  explicit Arguments(const JSONValue& arguments) : arguments_(arguments) {}

  std::optional<std::string> string(std::string_view key) const;
  std::optional<double> number(std::string_view key) const;
  /// A number truncated towards zero; fails for one beyond the int range.
  std::optional<int> integer(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const;
  const JSONValue& operator[](std::string_view key) const { return arguments_[key]; }
  bool has(std::string_view key) const { return !arguments_[key].isNull(); }

 private:
  /// Fails unless `key` is absent, null or of `kind`.
  void requireKind(std::string_view key, JSONValue::Kind kind) const;

  const JSONValue& arguments_;
};

/// Throws MCPToolError(message).
[[noreturn]] void fail(const std::string& message);

/// The recording a call names in "session_id"; fails with "'session_id' is required" without one.
std::string sessionID(const Arguments& arguments);

/// {"window_id", "title", "app", "frame": {"x", "y", "w", "h"}}.
JSONValue targetJSON(const WindowInfo& window);

/// A number as the texts print it: 30, not 30.0; 1.5 as it is.
std::string numberText(double value);

/// Megabytes with two decimals, as "size_mb" reports them: a number rounded to 0.01.
double megabytes(std::uintmax_t bytes);

/// The current time as ISO 8601 in UTC, "2026-11-25T14:03:07Z".
std::string isoDateNow();

}  // namespace brimble::mcp

namespace brimble {
class Image;
}

namespace brimble::mcp {

/// Standard base64 with padding.
std::string base64(std::span<const std::uint8_t> bytes);

/// An `image` content item: `image` as PNG, scaled down to at most 1280 pixels wide, so the
/// assistant can see it.
JSONValue imageContent(const Image& image);

}  // namespace brimble::mcp
