#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimble {

/// A target string that names an element: "text:" + its visible text, "css:" + a CSS selector
/// (pages only), or "role:" + a role name, optionally "/" + its title ("role:push button/OK").
/// Role names are the accessibility service's ("push button", "entry"); the common AX names
/// stand for them ("AXButton" is "push button"). A "text:" or "role:" target may end in "[N]"
/// to pick the Nth of the elements it matches, counted from 1 in the application's order
/// ("role:check box/Bold[2]"): where several match, that is how one is named.
struct ElementQuery {
  enum class Kind { text, css, role };

  Kind kind = Kind::text;
  /// text: the text; css: the selector; role: the role name, lower-cased and un-aliased.
  std::string value;
  /// role: the title after "/"; empty when any title will do.
  std::string title;
  /// Which of the matching elements, counted from 1; no value when the target has no "[N]".
  std::optional<int> index;

  /// Parses `target`. A target without a known prefix is visible text. Throws
  /// DemoDriverError::invalidTarget: "text: requires a value", "css: requires a value",
  /// "role: requires a non-empty AX role name", "[0] ...: elements are counted from 1".
  static ElementQuery parse(std::string_view target);

  /// The role a name stands for: "AXButton" and "push button" are "push button"; unknown names
  /// lower-cased.
  static std::string canonicalRole(std::string_view role);

  /// Whether an element with this role, name and text matches: text contained in the name or
  /// the text (ignoring case and mnemonic underscores), role and title equal (ignoring case).
  bool matches(std::string_view role, std::string_view name, std::string_view text) const;
  /// Whether a matching element matches exactly: its whole name or text is the text (ignoring
  /// case, mnemonic underscores and surrounding blanks). Roles always do. An exact match is
  /// preferred to one that merely contains the text ("OK" to "Look").
  bool matchesExactly(std::string_view name, std::string_view text) const;

  /// `target` (which has no "[N]") naming the `index`th of its matches: `target` + "[N]".
  static std::string withIndex(std::string_view target, int index);
  /// The warning for a target without "[N]" that matches `count` elements, naming the one
  /// picked (`picked`, from 1) and why: "Warning: 'text:OK' matches 3 elements; using the 2nd
  /// (the first that is enabled): text:OK[2]".
  static std::string ambiguityWarning(std::string_view target, int count, int picked,
                                      std::string_view why);
  /// The same, naming the one picked by `pickedTarget` (a page's unique CSS selector).
  static std::string ambiguityWarning(std::string_view target, int count, int picked,
                                      std::string_view why, std::string_view pickedTarget);
};

}  // namespace brimble
