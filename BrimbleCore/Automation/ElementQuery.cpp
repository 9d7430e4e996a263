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

}  // namespace

ElementQuery ElementQuery::parse(std::string_view target) {
  ElementQuery query;
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
      return sameRole && (title.empty() || withoutMnemonics(name) == withoutMnemonics(title));
    }
    case Kind::css:
      return false;
  }
  return false;
}

}  // namespace brimble
