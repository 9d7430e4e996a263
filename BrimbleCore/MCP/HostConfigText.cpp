#include "BrimbleCore/MCP/HostConfigText.h"

#include <algorithm>
#include <vector>

#include "BrimbleCore/MCP/JSONValue.h"

namespace brimble {
namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// `text` with comments and trailing commas replaced by spaces (newlines kept), so a strict
/// parser reads it and every position still points at the same byte of the original.
std::string blankedOut(const std::string& text, bool& hadComments,
                       std::vector<std::size_t>& trailingCommas) {
  std::string strict = text;
  const std::size_t size = text.size();
  std::size_t lastComma = std::string::npos;  // a comma with only blanks after it so far
  for (std::size_t at = 0; at < size; ++at) {
    const char c = text[at];
    if (c == '"') {
      lastComma = std::string::npos;
      for (++at; at < size && text[at] != '"'; ++at) {
        at += text[at] == '\\' ? 1 : 0;
      }
    } else if (c == '/' && at + 1 < size && (text[at + 1] == '/' || text[at + 1] == '*')) {
      hadComments = true;
      const bool line = text[at + 1] == '/';
      const std::size_t end = line ? text.find('\n', at) : text.find("*/", at + 2);
      const std::size_t stop = end == std::string::npos ? size : end + (line ? 0 : 2);
      for (std::size_t blank = at; blank < stop; ++blank) {
        strict[blank] = strict[blank] == '\n' ? '\n' : ' ';
      }
      at = stop - 1;
    } else if (c == ',') {
      lastComma = at;
    } else if ((c == '}' || c == ']') && lastComma != std::string::npos) {
      strict[lastComma] = ' ';
      trailingCommas.push_back(lastComma);
      lastComma = std::string::npos;
    } else if (!isSpace(c)) {
      lastComma = std::string::npos;
    }
  }
  return strict;
}

}  // namespace

HostConfigText::HostConfigText(std::string text) : text_(std::move(text)) {
  if (text_.find_first_not_of(" \t\r\n") == std::string::npos) {
    // Nothing to lose: a new file, laid out as the installer writes them.
    text_ = "{\n}\n";
  }
  parse();
  // The file's own indentation (its first indented line decides), so that an edit looks like
  // the rest of the file.
  const auto newline = text_.find('\n');
  if (newline == std::string::npos || newline + 1 == text_.size()) {
    indent_ = -1;
    return;
  }
  for (auto at = newline; at != std::string::npos; at = text_.find('\n', at + 1)) {
    const char first = at + 1 < text_.size() ? text_[at + 1] : '\n';
    if (first == '\t' || first == ' ') {
      const auto end = text_.find_first_not_of(first, at + 1);
      const auto width = (end == std::string::npos ? text_.size() : end) - (at + 1);
      indentChar_ = first;
      indent_ = static_cast<int>(std::min<std::size_t>(width, 8));
      return;
    }
  }
}

void HostConfigText::parse() {
  hasComments_ = false;
  trailingCommas_.clear();
  strict_ = blankedOut(text_, hasComments_, trailingCommas_);
  try {
    value_ = Document::parse(strict_);
  } catch (const Document::exception& error) {
    throw HostConfigError("is not valid JSON (" + describeJSONParseError(error.what()) + ")");
  }
  if (!value_.is_object()) {
    throw HostConfigError("does not hold a JSON object");
  }
}

std::size_t HostConfigText::skipSpace(std::size_t at) const {
  while (at < strict_.size() && isSpace(strict_[at])) {
    ++at;
  }
  return at;
}

std::size_t HostConfigText::valueEnd(std::size_t at) const {
  // The strict text is valid JSON: brackets balance once strings are stepped over.
  const char first = strict_[at];
  if (first == '"') {
    for (++at; strict_[at] != '"'; ++at) {
      at += strict_[at] == '\\' ? 1 : 0;
    }
    return at + 1;
  }
  if (first == '{' || first == '[') {
    for (int depth = 0;; ++at) {
      const char c = strict_[at];
      if (c == '"') {
        at = valueEnd(at) - 1;
      } else if (c == '{' || c == '[') {
        ++depth;
      } else if ((c == '}' || c == ']') && --depth == 0) {
        return at + 1;
      }
    }
  }
  while (at < strict_.size() && strict_[at] != ',' && strict_[at] != '}' && strict_[at] != ']' &&
         !isSpace(strict_[at])) {
    ++at;
  }
  return at;
}

std::size_t HostConfigText::commaAfter(std::size_t end) const {
  const std::size_t next = skipSpace(end);
  if (strict_[next] == ',') {
    return next;
  }
  for (const std::size_t comma : trailingCommas_) {
    if (comma >= end && comma < next) {
      return comma;
    }
  }
  return std::string::npos;
}

HostConfigText::ObjectSpan HostConfigText::objectAt(std::size_t open) const {
  ObjectSpan object{.open = open, .close = 0, .members = {}};
  std::size_t at = skipSpace(open + 1);
  while (strict_[at] != '}') {
    Member member;
    member.keyStart = at;
    const std::size_t keyEnd = valueEnd(at);
    member.valueStart = skipSpace(skipSpace(keyEnd) + 1);  // past the ':'
    member.valueEnd = valueEnd(member.valueStart);
    object.members.push_back(member);
    at = skipSpace(member.valueEnd);
    if (strict_[at] == ',') {
      at = skipSpace(at + 1);
    }
  }
  object.close = at;
  return object;
}

HostConfigText::ObjectSpan HostConfigText::rootObject() const {
  // The first brace, after blanks or a byte-order mark.
  return objectAt(strict_.find('{'));
}

const HostConfigText::Member* HostConfigText::find(const ObjectSpan& object,
                                                   std::string_view key) const {
  const Member* found = nullptr;
  for (const Member& member : object.members) {
    const std::size_t keyEnd = valueEnd(member.keyStart);
    if (Document::parse(strict_.substr(member.keyStart, keyEnd - member.keyStart)) != key) {
      continue;
    }
    // Readers disagree on which of two equal keys counts, so neither is edited.
    if (found != nullptr) {
      throw HostConfigError("holds \"" + std::string(key) + "\" twice");
    }
    found = &member;
  }
  return found;
}

std::string HostConfigText::layoutValue(const Document& value, int depth) const {
  std::string dumped = value.dump(indent_, indentChar_);
  if (indent_ < 0) {
    return dumped;
  }
  const std::string prefix(static_cast<std::size_t>(indent_ * depth), indentChar_);
  std::string laidOut;
  for (const char c : dumped) {
    laidOut += c;
    if (c == '\n') {
      laidOut += prefix;
    }
  }
  return laidOut;
}

std::string HostConfigText::memberText(std::string_view key, const Document& value,
                                       int depth) const {
  return Document(std::string(key)).dump() + (indent_ < 0 ? ":" : ": ") + layoutValue(value, depth);
}

void HostConfigText::replace(std::size_t start, std::size_t end, const std::string& with) {
  text_.replace(start, end - start, with);
  parse();
}

void HostConfigText::insertMember(const ObjectSpan& object, int depth, std::string_view key,
                                  const Document& value) {
  const std::string line =
      indent_ < 0 ? std::string()
                  : "\n" + std::string(static_cast<std::size_t>(indent_ * depth), indentChar_);
  const std::string member = line + memberText(key, value, depth);
  if (!object.members.empty()) {
    std::size_t at = object.members.back().valueEnd;
    const std::size_t comma = commaAfter(at);
    if (comma == std::string::npos) {
      text_.insert(at++, ",");
    } else {
      at = comma + 1;
    }
    // A comment that ends the line is a note on the member before; the new one goes below it.
    const std::size_t lineEnd = text_.find('\n', at);
    if (indent_ >= 0 && lineEnd != std::string::npos) {
      const std::size_t rest = text_.find_first_not_of(" \t\r", at);
      if (rest == lineEnd || text_.compare(rest, 2, "//") == 0) {
        at = lineEnd;
      }
    }
    // A file that ends its members with a comma gets one after the new member too.
    replace(at, at, member + (comma == std::string::npos ? "" : ","));
    return;
  }
  const std::string closing =
      indent_ < 0
          ? std::string()
          : "\n" + std::string(static_cast<std::size_t>(indent_ * (depth - 1)), indentChar_);
  if (text_.find_first_not_of(" \t\r\n", object.open + 1) == object.close) {
    replace(object.open + 1, object.close, member + closing);
  } else {
    // Comments inside the empty object stay after the new member.
    replace(object.open + 1, object.open + 1, member);
  }
}

void HostConfigText::setMember(std::string_view object, std::string_view member,
                               const Document& entry) {
  const ObjectSpan root = rootObject();
  const Member* servers = find(root, object);
  if (servers == nullptr) {
    insertMember(root, 1, object, Document{{std::string(member), entry}});
    return;
  }
  if (strict_[servers->valueStart] != '{') {
    throw HostConfigError("has \"" + std::string(object) + "\" that is not an object");
  }
  const ObjectSpan inner = objectAt(servers->valueStart);
  if (const Member* existing = find(inner, member)) {
    replace(existing->valueStart, existing->valueEnd, layoutValue(entry, 2));
  } else {
    insertMember(inner, 2, member, entry);
  }
}

bool HostConfigText::removeMember(std::string_view object, std::string_view member) {
  const ObjectSpan root = rootObject();
  const Member* servers = find(root, object);
  if (servers == nullptr || strict_[servers->valueStart] != '{') {
    return false;
  }
  const ObjectSpan inner = objectAt(servers->valueStart);
  const Member* found = find(inner, member);
  if (found == nullptr) {
    return false;
  }
  // From the start of its line (when only blanks precede it) through its comma and the rest of
  // its line (when only blanks follow), so no empty line is left.
  std::size_t start = found->keyStart;
  const std::size_t lineStart = text_.find_last_not_of(" \t", start - 1) + 1;
  if (lineStart > 0 && text_[lineStart - 1] == '\n') {
    start = lineStart;
  }
  std::size_t end = found->valueEnd;
  const std::size_t comma = commaAfter(end);
  if (comma != std::string::npos) {
    end = comma + 1;
  }
  const std::size_t lineEnd = text_.find_first_not_of(" \t\r", end);
  if (start != found->keyStart && lineEnd != std::string::npos && text_[lineEnd] == '\n') {
    end = lineEnd + 1;
  }
  const bool last = found == &inner.members.back();
  std::size_t separator = std::string::npos;
  if (last && comma == std::string::npos && inner.members.size() > 1) {
    // The comma after the member before it would now end the object.
    separator = commaAfter((found - 1)->valueEnd);
  }
  text_.erase(start, end - start);
  if (separator != std::string::npos) {
    text_.erase(separator, 1);
  }
  parse();
  return true;
}

}  // namespace brimble
