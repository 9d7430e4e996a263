#include "BrimbleCore/Platform/ATSPI/ATSPIElementDriver.h"

#include <algorithm>
#include <array>
#include <set>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Automation/ElementQuery.h"
#include "BrimbleCore/Platform/ATSPI/ATSPITree.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble::atspi {
namespace {

// The actions that mean "press" across toolkits, in order of preference; otherwise the first.
constexpr std::array<std::string_view, 5> kPressActions = {"click", "press", "activate", "toggle",
                                                           "jump"};

// Roles a user acts on or reads, which discovery lists.
const std::set<std::string, std::less<>> kListedRoles = {"push button",
                                                         "toggle button",
                                                         "check box",
                                                         "radio button",
                                                         "entry",
                                                         "password text",
                                                         "text",
                                                         "link",
                                                         "menu item",
                                                         "check menu item",
                                                         "radio menu item",
                                                         "combo box",
                                                         "spin button",
                                                         "slider",
                                                         "page tab",
                                                         "list item",
                                                         "table cell",
                                                         "tree item",
                                                         "label",
                                                         "heading",
                                                         "menu",
                                                         "icon"};

bool onScreen(const ElementFacts& facts) {
  return facts.showing && !facts.rect.empty();
}

// Of `elements` (on screen, in the tree's order), those a target means: the ones it matches
// exactly where there are any, else all it matches. As positions in `elements`.
std::vector<std::size_t> meantBy(const ElementQuery& query,
                                 const std::vector<ElementFacts>& elements) {
  std::vector<std::size_t> matching;
  std::vector<std::size_t> exact;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const ElementFacts& facts = elements[i];
    if (query.matches(facts.role, facts.name, facts.text)) {
      matching.push_back(i);
      if (query.matchesExactly(facts.name, facts.text)) {
        exact.push_back(i);
      }
    }
  }
  return exact.empty() ? matching : exact;
}

// Whether a target as written would be read as ending in "[N]".
bool endsInIndex(const std::string& target) {
  try {
    return ElementQuery::parse(target).index.has_value();
  } catch (const DemoDriverError&) {
    return true;  // "[0]": it must be kept from being read as an index too
  }
}

}  // namespace

GObjectPtr<AtspiAccessible> ATSPIElementDriver::element(const std::string& target) {
  const ElementQuery query = ElementQuery::parse(target);
  if (query.kind == ElementQuery::Kind::css) {
    throw DemoDriverError::invalidTarget("css: selectors require Chrome (Phase 2)");
  }
  // Every match is looked at, not the first: a target that names several elements picks the
  // one a person would use, and says so. Where an element is costs a round trip, so only the
  // elements whose role and text match are asked.
  std::vector<GObjectPtr<AtspiAccessible>> candidates;
  std::vector<ElementFacts> facts;
  walk(application_.get(), [&](AtspiAccessible* candidate) {
    const ElementFacts identity = identityOf(candidate);
    // A one-line field reports the role "text" and is listed as an entry.
    if (!query.matches(identity.role, identity.name, identity.text) &&
        !(identity.role == "text" && query.matches("entry", identity.name, identity.text))) {
      return true;
    }
    ElementFacts placed = factsOf(candidate);
    if (onScreen(placed)) {
      candidates.emplace_back(static_cast<AtspiAccessible*>(g_object_ref(candidate)));
      facts.push_back(std::move(placed));
    }
    return true;
  });
  const std::vector<std::size_t> meant = meantBy(query, facts);
  if (meant.empty()) {
    throw DemoDriverError::elementNotFound(target);
  }
  if (query.index) {
    if (static_cast<std::size_t>(*query.index) > meant.size()) {
      throw DemoDriverError::elementNotFound(
          target + " (" + std::to_string(meant.size()) +
          (meant.size() == 1 ? " element matches)" : " elements match)"));
    }
    return std::move(candidates[meant[*query.index - 1]]);
  }
  // A greyed-out control is never what a demo means to use when another one matches.
  const auto enabled =
      std::find_if(meant.begin(), meant.end(), [&](std::size_t i) { return facts[i].enabled; });
  const std::size_t chosen = enabled != meant.end() ? enabled - meant.begin() : 0;
  if (meant.size() > 1 && warned_.insert(target).second) {
    logLine(ElementQuery::ambiguityWarning(
        target, static_cast<int>(meant.size()), static_cast<int>(chosen) + 1,
        enabled != meant.end() ? "the first that is enabled" : "none is enabled"));
  }
  return std::move(candidates[meant[chosen]]);
}

std::optional<ScreenRect> ATSPIElementDriver::find(const std::string& target) {
  try {
    return factsOf(element(target).get()).rect;
  } catch (const DemoDriverError& error) {
    if (error.code() == DemoDriverError::Code::elementNotFound) {
      return std::nullopt;
    }
    throw;
  }
}

void ATSPIElementDriver::press(const std::string& target) {
  const GObjectPtr<AtspiAccessible> found = element(target);
  const GObjectPtr<AtspiAction> action(atspi_accessible_get_action_iface(found.get()));
  CallError error;
  const int count = action ? atspi_action_get_n_actions(action.get(), error.out()) : 0;
  if (count <= 0) {
    throw DemoDriverError::actionFailed("AXPress failed (" + target + " has no action)");
  }
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) {
    CallError nameError;
    names.push_back(
        lowercased(takeString(atspi_action_get_action_name(action.get(), i, nameError.out()))));
  }
  int chosen = 0;
  for (auto wanted = kPressActions.rbegin(); wanted != kPressActions.rend(); ++wanted) {
    const auto named = std::find(names.begin(), names.end(), *wanted);
    chosen = named != names.end() ? static_cast<int>(named - names.begin()) : chosen;
  }
  CallError pressError;
  if (!atspi_action_do_action(action.get(), chosen, pressError.out()) || pressError) {
    throw DemoDriverError::actionFailed("AXPress failed (" + pressError.message() + ")");
  }
}

void ATSPIElementDriver::setValue(const std::string& target, const std::string& text) {
  const GObjectPtr<AtspiAccessible> found = element(target);
  const GObjectPtr<AtspiEditableText> editable(
      atspi_accessible_get_editable_text_iface(found.get()));
  if (!editable) {
    throw DemoDriverError::unsupported("Element does not support direct value-setting");
  }
  CallError error;
  if (!atspi_editable_text_set_text_contents(editable.get(), text.c_str(), error.out()) || error) {
    throw DemoDriverError::actionFailed("AXSetValue failed (" + error.message() + ")");
  }
}

void ATSPIElementDriver::focus(const std::string& target) {
  const GObjectPtr<AtspiAccessible> found = element(target);
  const GObjectPtr<AtspiComponent> component(atspi_accessible_get_component_iface(found.get()));
  CallError error;
  if (!component || !atspi_component_grab_focus(component.get(), error.out()) || error) {
    throw DemoDriverError::actionFailed("AXFocus failed (" + error.message() + ")");
  }
}

std::vector<DiscoveredElement> ATSPIElementDriver::listElements(int limit) {
  // The whole tree is read, listed or not: a selector is unique among everything on screen.
  std::vector<ElementFacts> shown;
  walk(application_.get(), [&](AtspiAccessible* candidate) {
    if (ElementFacts facts = factsOf(candidate); onScreen(facts)) {
      shown.push_back(std::move(facts));
    }
    return true;
  });
  std::vector<DiscoveredElement> elements;
  for (std::size_t i = 0; i < shown.size() && static_cast<int>(elements.size()) < limit; ++i) {
    const ElementFacts& facts = shown[i];
    if (!kListedRoles.contains(facts.role)) {
      continue;
    }
    const bool named = !trimmed(facts.name).empty();
    const bool hasText = !trimmed(facts.text).empty();
    if (!named && !hasText && (facts.role == "label" || facts.role == "heading")) {
      continue;
    }
    std::string selector = named     ? "role:" + facts.role + "/" + facts.name
                           : hasText ? "text:" + facts.text
                                     : "role:" + facts.role;
    // A name that itself ends in "[N]" gets an index of its own, so the name stays whole.
    const bool looksIndexed = endsInIndex(selector);
    ElementQuery query = ElementQuery::parse(looksIndexed ? selector + "[1]" : selector);
    query.index.reset();
    const std::vector<std::size_t> meant = meantBy(query, shown);
    const auto position = std::find(meant.begin(), meant.end(), i);
    if (position != meant.end() && (meant.size() > 1 || looksIndexed)) {
      selector = ElementQuery::withIndex(selector, static_cast<int>(position - meant.begin()) + 1);
    }
    elements.push_back(
        {facts.role, named ? facts.name : facts.text, std::move(selector), facts.rect});
  }
  return elements;
}

}  // namespace brimble::atspi
