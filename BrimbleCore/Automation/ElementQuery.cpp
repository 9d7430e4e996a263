#include "BrimbleCore/Automation/ElementQuery.h"

#include <array>
#include <utility>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

// The AX role names scripts written for other desktops use, and the AT-SPI roles they mean.
constexpr std::array<std::pair<std::string_view, std::string_view>, 12> kRoleAliases = {{
    {"axbutton", "push button"},
    {"axtextfield", "entry"},
    {"axtextarea", "text"},
    {"axstatictext", "label"},
    {"axcheckbox", "check box"},
    {"axradiobutton", "radio button"},
    {"axlink", "link"},
    {"axmenuitem", "menu item"},
    {"axmenu", "menu"},
    {"axpopupbutton", "combo box"},
    {"axwindow", "frame"},
    {"axsheet", "dialog"},
}};

// Labels mark their access key with an underscore ("_OK"); people write them without.
std::string withoutMnemonics(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (const char c : text) {
    if (c != '_') {
      plain += c;
    }
  }
  return lowercased(plain);
}

std::string normalized(std::string_view text) {
  return withoutMnemonics(trimmed(text));
}

// "[N]" at the end of a text or role target: which of its matches. Anything else in brackets
// is part of the text.
std::optional<int> takeIndex(std::string_view& target) {
  if (!target.ends_with(']')) {
    return std::nullopt;
  }
  const std::size_t open = target.rfind('[');
  if (open == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view digits = target.substr(open + 1, target.size() - open - 2);
  if (digits.empty() || digits.size() > 6 ||
      digits.find_first_not_of("0123456789") != std::string_view::npos) {
    return std::nullopt;
  }
  const int index = std::stoi(std::string(digits));
  if (index < 1) {
    throw DemoDriverError::invalidTarget(std::string(target) +
                                         ": elements are counted from 1, as [1]");
  }
  target = target.substr(0, open);
  return index;
}

std::string ordinal(int n) {
  const int lastTwo = n % 100;
  const char* suffix = "th";
  if (lastTwo < 11 || lastTwo > 13) {
    suffix = n % 10 == 1 ? "st" : n % 10 == 2 ? "nd" : n % 10 == 3 ? "rd" : "th";
  }
  return std::to_string(n) + suffix;
}

}  // namespace

ElementQuery ElementQuery::parse(std::string_view target) {
  ElementQuery query;
  if (!target.starts_with("css:")) {
    query.index = takeIndex(target);
  }
  const auto rest = [&](std::string_view prefix) { return target.substr(prefix.size()); };
  if (target.starts_with("text:")) {
    query.value = std::string(trimmed(rest("text:")));
    if (query.value.empty()) {
      throw DemoDriverError::invalidTarget("text: requires a value");
    }
  } else if (target.starts_with("css:")) {
    query.kind = Kind::css;
    query.value = std::string(trimmed(rest("css:")));
    if (query.value.empty()) {
      throw DemoDriverError::invalidTarget("css: requires a value");
    }
  } else if (target.starts_with("role:")) {
    query.kind = Kind::role;
    const std::string_view roleAndTitle = rest("role:");
    const std::size_t slash = roleAndTitle.find('/');
    query.value = canonicalRole(trimmed(roleAndTitle.substr(0, slash)));
    if (slash != std::string_view::npos) {
      query.title = std::string(trimmed(roleAndTitle.substr(slash + 1)));
    }
    if (query.value.empty()) {
      throw DemoDriverError::invalidTarget("role: requires a non-empty AX role name");
    }
  } else {
    query.value = std::string(trimmed(target));
    if (query.value.empty()) {
      throw DemoDriverError::invalidTarget("text: requires a value");
    }
  }
  return query;
}

bool ElementQuery::matchesExactly(std::string_view name, std::string_view text) const {
  if (kind != Kind::text) {
    return true;
  }
  const std::string wanted = normalized(value);
  return normalized(name) == wanted || normalized(text) == wanted;
}

std::string ElementQuery::withIndex(std::string_view target, int index) {
  return std::string(target) + "[" + std::to_string(index) + "]";
}

std::string ElementQuery::ambiguityWarning(std::string_view target, int count, int picked,
                                           std::string_view why) {
  return ambiguityWarning(target, count, picked, why, withIndex(target, picked));
}

std::string ElementQuery::ambiguityWarning(std::string_view target, int count, int picked,
                                           std::string_view why, std::string_view pickedTarget) {
  return "Warning: '" + std::string(target) + "' matches " + std::to_string(count) +
         " elements; using the " + ordinal(picked) + " (" + std::string(why) +
         "): " + std::string(pickedTarget);
}

std::string ElementQuery::canonicalRole(std::string_view role) {
  const std::string lower = lowercased(role);
  for (const auto& [alias, name] : kRoleAliases) {
    if (lower == alias) {
      return std::string(name);
    }
  }
  return lower;
}

bool ElementQuery::matches(std::string_view role, std::string_view name,
                           std::string_view text) const {
  switch (kind) {
    case Kind::text: {
      const std::string wanted = withoutMnemonics(value);
      return withoutMnemonics(name).find(wanted) != std::string::npos ||
             withoutMnemonics(text).find(wanted) != std::string::npos;
    }
    case Kind::role: {
      // Toolkits call their one-line fields "text"; scripts written against them keep working.
      const std::string actual = lowercased(role);
      const bool sameRole = actual == value || (value == "text" && actual == "entry");
      return sameRole && (title.empty() || normalized(name) == normalized(title));
    }
    case Kind::css:
      return false;
  }
  return false;
}

}  // namespace brimble
