#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace brimble {

/// Why a JSON text could not be read into, or written from, a JSONValue or an MCP message. A plain
/// value.
class JSONCodingError : public std::runtime_error {
 public:
  enum class Code {
    invalidJSON,     // not JSON text at all
    nestingTooDeep,  // arrays and objects nested deeper than kMaxNestingDepth
    cannotDecode,    // JSON the value type has no case for
    typeMismatch,    // valid JSON of the wrong shape for an MCP record
    notEncodable,    // a value JSON cannot represent (NaN, infinity)
  };

  /// `detail` is the parser's own description, for example "syntax error while parsing value -
  /// invalid literal; last read: 'no'".
  static JSONCodingError invalidJSON(std::string_view detail);
  static JSONCodingError nestingTooDeep(int limit);
  /// "Cannot decode JSONValue".
  static JSONCodingError cannotDecode();
  /// `description` is the whole text, for example "RequestID must be string or integer".
  static JSONCodingError typeMismatch(std::string description);
  static JSONCodingError notEncodable(double number);

  Code code() const noexcept { return code_; }

 private:
  JSONCodingError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}
  Code code_;
};

/// nlohmann-json's parse error text (its `what()`) reworded for users: "syntax error while parsing
/// value - invalid literal; last read: 'no' at line 1, column 2".
std::string describeJSONParseError(std::string_view parserMessage);

/// One JSON document: string, number (a 64-bit float, so there is no integer case), bool, array,
/// object or null. The one JSON model of the MCP server, its schemas and its results. Built from
/// literals: `JSONValue::Object{{"type", "object"}, {"required", JSONValue::Array{"name"}}}`.
/// Object keys are kept sorted, which is the order every encoding writes them in. A plain value:
/// any thread may read it, one thread at a time may change it.
class JSONValue {
 public:
  /// The cases, in the order decoding tries them. `bool` is a keyword, hence `boolean`.
  enum class Kind { string, number, boolean, array, object, null };

  using Array = std::vector<JSONValue>;
  using Object = std::map<std::string, JSONValue, std::less<>>;

  /// Arrays and objects nested deeper than this are refused when decoding, so that reading,
  /// writing and destroying a value never run out of stack.
  static constexpr int kMaxNestingDepth = 512;

  JSONValue() noexcept : value_(nullptr) {}
  JSONValue(std::nullptr_t) noexcept : value_(nullptr) {}
  JSONValue(std::string text) : value_(std::move(text)) {}
  JSONValue(std::string_view text) : value_(std::string(text)) {}
  JSONValue(const char* text) : value_(std::string(text)) {}
  JSONValue(double number) noexcept : value_(number) {}
  template <std::integral T>
  requires(!std::same_as<T, bool>) JSONValue(T number)
  noexcept : value_(static_cast<double>(number)) {}
  // A template, so that pointers do not quietly become booleans.
  template <std::same_as<bool> T>
  JSONValue(T flag) noexcept : value_(flag) {}
  JSONValue(Array elements) : value_(std::move(elements)) {}
  JSONValue(Object members) : value_(std::move(members)) {}

  Kind kind() const noexcept { return static_cast<Kind>(value_.index()); }
  bool isNull() const noexcept { return kind() == Kind::null; }

  /// The payload when the value is of that case, else null / no value.
  const std::string* stringValue() const noexcept { return std::get_if<std::string>(&value_); }
  std::optional<double> numberValue() const noexcept;
  std::optional<bool> boolValue() const noexcept;
  const Array* arrayValue() const noexcept { return std::get_if<Array>(&value_); }
  const Object* objectValue() const noexcept { return std::get_if<Object>(&value_); }
  Array* arrayValue() noexcept { return std::get_if<Array>(&value_); }
  Object* objectValue() noexcept { return std::get_if<Object>(&value_); }

  /// The member `key` of an object; null when this is not an object or has no such member.
  const JSONValue& operator[](std::string_view key) const noexcept;

  /// Parses one JSON text. Throws JSONCodingError (invalidJSON, nestingTooDeep).
  static JSONValue decode(std::string_view text);

  enum class Style { compact, pretty };
  /// Writes the value with sorted keys; numbers that are whole write without a fraction (30,
  /// not 30.0); invalid UTF-8 inside strings is written as U+FFFD. `pretty` indents by two
  /// spaces. Throws JSONCodingError::notEncodable for NaN and infinities.
  std::string encode(Style style = Style::compact) const;

  friend bool operator==(const JSONValue& a, const JSONValue& b) { return a.value_ == b.value_; }

  /// Conversions to and from nlohmann-json's model, for the MCP records built on this type.
  /// `fromJSON` throws like `decode` for depth; `toJSON` throws notEncodable.
  static JSONValue fromJSON(const nlohmann::json& json);
  /// Parses JSON text into nlohmann-json's model with `decode`'s depth limit and errors.
  static nlohmann::json parseJSON(std::string_view text);
  nlohmann::json toJSON() const;

 private:
  std::variant<std::string, double, bool, Array, Object, std::nullptr_t> value_;
};

}  // namespace brimble
