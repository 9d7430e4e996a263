#pragma once

#include <string>
#include <string_view>

namespace brimble {

/// A target string that names an element: "text:" + its visible text, "css:" + a CSS selector
/// (pages only), or "role:" + a role name, optionally "/" + its title ("role:push button/OK").
/// Role names are the accessibility service's ("push button", "entry"); the common AX names
/// stand for them ("AXButton" is "push button").
struct ElementQuery {
  enum class Kind { text, css, role };

  Kind kind = Kind::text;
  /// text: the text; css: the selector; role: the role name, lower-cased and un-aliased.
  std::string value;
  /// role: the title after "/"; empty when any title will do.
  std::string title;

  /// Parses `target`. A target without a known prefix is visible text. Throws
  /// DemoDriverError::invalidTarget: "text: requires a value", "css: requires a value",
  /// "role: requires a non-empty AX role name".
  static ElementQuery parse(std::string_view target);

  /// The role a name stands for: "AXButton" and "push button" are "push button"; unknown names
  /// lower-cased.
  static std::string canonicalRole(std::string_view role);

  /// Whether an element with this role, name and text matches: text contained in the name or
  /// the text (ignoring case and mnemonic underscores), role and title equal (ignoring case).
  bool matches(std::string_view role, std::string_view name, std::string_view text) const;
};

}  // namespace brimble
