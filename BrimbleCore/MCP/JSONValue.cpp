#include "BrimbleCore/MCP/JSONValue.h"

#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace brimble {
namespace {}  // namespace

// nlohmann-json's texts start with "[json.exception.parse_error.101] parse error at line 1,
// column 5: "; the position goes to the end, where it reads better after our own prefix.
std::string describeJSONParseError(std::string_view parserMessage) {
  std::string text(parserMessage);
  if (text.starts_with("[json.exception.")) {
    const auto close = text.find("] ");
    if (close != std::string::npos) {
      text.erase(0, close + 2);
    }
  }
  constexpr std::string_view kAt = "parse error at ";
  if (text.starts_with(kAt)) {
    const auto colon = text.find(": ", kAt.size());
    if (colon != std::string::npos) {
      const std::string position = text.substr(kAt.size(), colon - kAt.size());
      return text.substr(colon + 2) + " at " + position;
    }
  }
  if (text.starts_with("parse error: ")) {
    text.erase(0, 13);
  }
  return text;
}

namespace {

JSONValue convert(const nlohmann::json& json, int depth) {
  using Type = nlohmann::json::value_t;
  if (depth > JSONValue::kMaxNestingDepth) {
    throw JSONCodingError::nestingTooDeep(JSONValue::kMaxNestingDepth);
  }
  switch (json.type()) {
    case Type::null:
      return nullptr;
    case Type::boolean:
      return json.get<bool>();
    case Type::number_integer:
      return static_cast<double>(json.get<std::int64_t>());
    case Type::number_unsigned:
      return static_cast<double>(json.get<std::uint64_t>());
    case Type::number_float:
      return json.get<double>();
    case Type::string:
      return json.get_ref<const std::string&>();
    case Type::array: {
      JSONValue::Array elements;
      elements.reserve(json.size());
      for (const auto& element : json) {
        elements.push_back(convert(element, depth + 1));
      }
      return elements;
    }
    case Type::object: {
      JSONValue::Object members;
      for (const auto& [key, member] : json.items()) {
        members.insert_or_assign(key, convert(member, depth + 1));
      }
      return members;
    }
    case Type::binary:
    case Type::discarded:
      break;
  }
  throw JSONCodingError::cannotDecode();
}

}  // namespace

JSONCodingError JSONCodingError::invalidJSON(std::string_view detail) {
  return {Code::invalidJSON, std::string(detail)};
}

JSONCodingError JSONCodingError::nestingTooDeep(int limit) {
  return {Code::nestingTooDeep,
          "arrays and objects nested deeper than " + std::to_string(limit) + " levels"};
}

JSONCodingError JSONCodingError::cannotDecode() {
  return {Code::cannotDecode, "Cannot decode JSONValue"};
}

JSONCodingError JSONCodingError::typeMismatch(std::string description) {
  return {Code::typeMismatch, description};
}

JSONCodingError JSONCodingError::notEncodable(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", number);
  return {Code::notEncodable, std::string("JSON has no number ") + text};
}

std::optional<double> JSONValue::numberValue() const noexcept {
  if (const double* number = std::get_if<double>(&value_)) {
    return *number;
  }
  return std::nullopt;
}

std::optional<bool> JSONValue::boolValue() const noexcept {
  if (const bool* flag = std::get_if<bool>(&value_)) {
    return *flag;
  }
  return std::nullopt;
}

const JSONValue& JSONValue::operator[](std::string_view key) const noexcept {
  static const JSONValue kNull;
  if (const Object* members = objectValue()) {
    if (const auto found = members->find(key); found != members->end()) {
      return found->second;
    }
  }
  return kNull;
}

nlohmann::json JSONValue::parseJSON(std::string_view text) {
  // The parser itself is iterative; the limit protects the recursive steps after it.
  using Event = nlohmann::json::parse_event_t;
  const nlohmann::json::parser_callback_t limitDepth = [](int depth, Event event, nlohmann::json&) {
    if ((event == Event::object_start || event == Event::array_start) &&
        depth >= JSONValue::kMaxNestingDepth) {
      throw JSONCodingError::nestingTooDeep(JSONValue::kMaxNestingDepth);
    }
    return true;
  };
  try {
    return nlohmann::json::parse(text, limitDepth);
  } catch (const nlohmann::json::exception& error) {
    throw JSONCodingError::invalidJSON(describeJSONParseError(error.what()));
  }
}

JSONValue JSONValue::decode(std::string_view text) {
  return fromJSON(parseJSON(text));
}

JSONValue JSONValue::fromJSON(const nlohmann::json& json) {
  return convert(json, 0);
}

nlohmann::json JSONValue::toJSON() const {
  switch (kind()) {
    case Kind::string:
      return std::get<std::string>(value_);
    case Kind::number: {
      const double number = std::get<double>(value_);
      if (!std::isfinite(number)) {
        throw JSONCodingError::notEncodable(number);
      }
      // Whole numbers go out as integers, so 30 is written "30" rather than "30.0".
      constexpr double kTwoTo63 = 9223372036854775808.0;
      if (std::trunc(number) == number && number > -kTwoTo63 && number < kTwoTo63) {
        return static_cast<std::int64_t>(number);
      }
      return number;
    }
    case Kind::boolean:
      return std::get<bool>(value_);
    case Kind::array: {
      nlohmann::json elements = nlohmann::json::array();
      for (const JSONValue& element : std::get<Array>(value_)) {
        elements.push_back(element.toJSON());
      }
      return elements;
    }
    case Kind::object: {
      nlohmann::json members = nlohmann::json::object();
      for (const auto& [key, member] : std::get<Object>(value_)) {
        members[key] = member.toJSON();
      }
      return members;
    }
    case Kind::null:
      break;
  }
  return nullptr;
}

std::string JSONValue::encode(Style style) const {
  // nlohmann::json keeps object members in a std::map, so the keys come out sorted.
  return toJSON().dump(style == Style::pretty ? 2 : -1, ' ', false,
                       nlohmann::json::error_handler_t::replace);
}

}  // namespace brimble
