#include "BrimbleCore/Platform/ATSPI/ATSPIElementDriver.h"

#include <algorithm>
#include <array>
#include <set>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Automation/ElementQuery.h"
#include "BrimbleCore/Platform/ATSPI/ATSPITree.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble::atspi {
namespace {

// The actions that mean "press" across toolkits, in order of preference; otherwise the first.
constexpr std::array<std::string_view, 5> kPressActions = {"click", "press", "activate", "toggle",
                                                           "jump"};

// Roles a user acts on or reads, which discovery lists.
const std::set<std::string, std::less<>> kListedRoles = {
    "push button", "toggle button", "check box",  "radio button", "entry",    "password text",
    "text",        "link",          "menu item",  "check menu item", "radio menu item",
    "combo box",   "spin button",   "slider",     "page tab",     "list item", "table cell",
    "tree item",   "label",         "heading",    "menu",         "icon"};

bool sameText(std::string_view a, std::string_view b) {
  return lowercased(a) == lowercased(b);
}

}  // namespace

GObjectPtr<AtspiAccessible> ATSPIElementDriver::element(const std::string& target) {
  const ElementQuery query = ElementQuery::parse(target);
  if (query.kind == ElementQuery::Kind::css) {
    throw DemoDriverError::invalidTarget("css: selectors require Chrome (Phase 2)");
  }
  // An element whose whole name is the text beats one that merely contains it ("OK" and
  // "Look").
  GObjectPtr<AtspiAccessible> best;
  bool bestExact = false;
  walk(application_.get(), [&](AtspiAccessible* candidate) {
    const ElementFacts facts = factsOf(candidate);
    if (!facts.showing || facts.rect.empty() || !query.matches(facts.role, facts.name, facts.text)) {
      return true;
    }
    const bool exact = query.kind != ElementQuery::Kind::text ||
                       sameText(facts.name, query.value) || sameText(facts.text, query.value);
    if (!best || (exact && !bestExact)) {
      best.reset(static_cast<AtspiAccessible*>(g_object_ref(candidate)));
      bestExact = exact;
    }
    return !bestExact;
  });
  if (!best) {
    throw DemoDriverError::elementNotFound(target);
  }
  return best;
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
  std::vector<DiscoveredElement> elements;
  walk(application_.get(), [&](AtspiAccessible* candidate) {
    if (static_cast<int>(elements.size()) >= limit) {
      return false;
    }
    ElementFacts facts = factsOf(candidate);
    if (!facts.showing || facts.rect.empty() || !kListedRoles.contains(facts.role)) {
      return true;
    }
    const std::string& shown = facts.name.empty() ? facts.text : facts.name;
    if (shown.empty() && (facts.role == "label" || facts.role == "heading")) {
      return true;
    }
    std::string selector = "role:" + facts.role;
    if (!facts.name.empty()) {
      selector += "/" + facts.name;
    } else if (!facts.text.empty()) {
      selector = "text:" + facts.text;
    }
    elements.push_back({facts.role, shown, std::move(selector), facts.rect});
    return true;
  });
  return elements;
}

}  // namespace brimble::atspi
