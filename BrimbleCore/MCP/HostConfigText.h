#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace brimble {

/// Why a host's file cannot be edited; the message ends the sentence "FILE ...". A plain value.
class HostConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A host's configuration file as text: a JSON object, with the comments and trailing commas
/// that hosts such as VS Code allow. Users keep notes and their own layout there, so an edit
/// replaces, inserts or removes the bytes of one member and leaves every other byte as it was.
///
/// A value type; not thread-safe.
class HostConfigText {
 public:
  // Hosts' files keep their key order through an edit.
  using Document = nlohmann::ordered_json;

  /// Throws HostConfigError when the text is not a JSON object. Blank text is an empty object.
  explicit HostConfigText(std::string text);

  const std::string& text() const noexcept { return text_; }
  /// The parsed object, comments left out.
  const Document& value() const noexcept { return value_; }
  /// Whether the text holds a comment, which is the user's even when no member is left.
  bool hasComments() const noexcept { return hasComments_; }

  /// Sets the member `member` of the root's object member `object` to `entry`, creating `object`
  /// when missing. Throws HostConfigError when `object` is not an object, or either name is
  /// there twice.
  void setMember(std::string_view object, std::string_view member, const Document& entry);
  /// Removes that member; false when there is none.
  bool removeMember(std::string_view object, std::string_view member);

 private:
  struct Member {
    std::size_t keyStart = 0;
    std::size_t valueStart = 0;
    std::size_t valueEnd = 0;
  };
  struct ObjectSpan {
    std::size_t open = 0;   // the '{'
    std::size_t close = 0;  // the '}'
    std::vector<Member> members;
  };

  void parse();
  ObjectSpan rootObject() const;
  ObjectSpan objectAt(std::size_t open) const;
  std::size_t valueEnd(std::size_t start) const;
  std::size_t skipSpace(std::size_t at) const;
  /// The comma that follows a value ending at `end`, trailing or not; npos when none.
  std::size_t commaAfter(std::size_t end) const;
  const Member* find(const ObjectSpan& object, std::string_view key) const;
  std::string layoutValue(const Document& value, int depth) const;
  std::string memberText(std::string_view key, const Document& value, int depth) const;
  void insertMember(const ObjectSpan& object, int depth, std::string_view key,
                    const Document& value);
  void replace(std::size_t start, std::size_t end, const std::string& with);

  std::string text_;
  // The text with comments and trailing commas blanked out, byte for byte the same length, so
  // positions (and a parser's line and column) are the same in both.
  std::string strict_;
  std::vector<std::size_t> trailingCommas_;
  Document value_;
  bool hasComments_ = false;
  int indent_ = 2;  // -1: the file is on one line
  char indentChar_ = ' ';
};

}  // namespace brimble
