#include "BrimbleCore/Platform/ATSPI/ATSPITree.h"

#include <vector>

namespace brimble::atspi {
namespace {

// Deep enough for any toolkit's nesting of boxes, and a bound on trees that refer to themselves.
constexpr int kMaxDepth = 40;
constexpr int kMaxElements = 20'000;
// Text longer than this is no label; reading it whole would slow every walk.
constexpr int kMaxTextCharacters = 200;

bool walkFrom(AtspiAccessible* element, int depth, int& seen,
              const std::function<bool(AtspiAccessible*)>& visit) {
  if (depth > kMaxDepth) {
    return true;
  }
  CallError error;
  const int count = atspi_accessible_get_child_count(element, error.out());
  for (int i = 0; !error && i < count; ++i) {
    CallError childError;
    const GObjectPtr<AtspiAccessible> child(
        atspi_accessible_get_child_at_index(element, i, childError.out()));
    if (!child || childError) {
      continue;
    }
    if (++seen > kMaxElements || !visit(child.get()) ||
        !walkFrom(child.get(), depth + 1, seen, visit)) {
      return false;
    }
  }
  return true;
}

}  // namespace

ElementFacts identityOf(AtspiAccessible* element) {
  ElementFacts facts;
  {
    CallError error;
    facts.role = takeString(atspi_accessible_get_role_name(element, error.out()));
  }
  {
    CallError error;
    facts.name = takeString(atspi_accessible_get_name(element, error.out()));
  }
  if (facts.name.empty()) {
    const GObjectPtr<AtspiText> text(atspi_accessible_get_text_iface(element));
    CallError error;
    const int length = text ? atspi_text_get_character_count(text.get(), error.out()) : 0;
    if (!error && length > 0 && length <= kMaxTextCharacters) {
      facts.text = takeString(atspi_text_get_text(text.get(), 0, length, error.out()));
    }
  }
  return facts;
}

ElementFacts factsOf(AtspiAccessible* element) {
  ElementFacts facts = identityOf(element);
  {
    const GObjectPtr<AtspiStateSet> states(atspi_accessible_get_state_set(element));
    facts.showing = states && atspi_state_set_contains(states.get(), ATSPI_STATE_SHOWING);
    facts.enabled = states && (atspi_state_set_contains(states.get(), ATSPI_STATE_ENABLED) ||
                               atspi_state_set_contains(states.get(), ATSPI_STATE_SENSITIVE));
    // GTK and Qt report their one-line fields as "text"; they are what AT-SPI calls an entry
    // (and AXTextField means), which is how they are listed and found.
    if (facts.role == "text" && states &&
        atspi_state_set_contains(states.get(), ATSPI_STATE_EDITABLE) &&
        !atspi_state_set_contains(states.get(), ATSPI_STATE_MULTI_LINE)) {
      facts.role = "entry";
    }
  }
  if (const GObjectPtr<AtspiComponent> component(atspi_accessible_get_component_iface(element));
      component) {
    CallError error;
    AtspiRect* extents = component ? atspi_component_get_extents(
                                         component.get(), ATSPI_COORD_TYPE_SCREEN, error.out())
                                   : nullptr;
    if (extents != nullptr) {
      if (!error && extents->width > 0 && extents->height > 0) {
        facts.rect = {extents->x, extents->y, extents->width, extents->height};
      }
      g_free(extents);
    }
  }
  return facts;
}

GObjectPtr<AtspiAccessible> applicationOf(int pid) {
  const GObjectPtr<AtspiAccessible> desktop(atspi_get_desktop(0));
  if (!desktop) {
    return nullptr;
  }
  CallError error;
  const int count = atspi_accessible_get_child_count(desktop.get(), error.out());
  for (int i = 0; !error && i < count; ++i) {
    CallError childError;
    GObjectPtr<AtspiAccessible> application(
        atspi_accessible_get_child_at_index(desktop.get(), i, childError.out()));
    if (!application || childError) {
      continue;
    }
    CallError pidError;
    const auto owner = atspi_accessible_get_process_id(application.get(), pidError.out());
    if (!pidError && static_cast<int>(owner) == pid) {
      return application;
    }
  }
  return nullptr;
}

void forEachWindow(
    const std::function<bool(AtspiAccessible* application, AtspiAccessible* window)>& visit) {
  const GObjectPtr<AtspiAccessible> desktop(atspi_get_desktop(0));
  if (!desktop) {
    return;
  }
  CallError error;
  const int count = atspi_accessible_get_child_count(desktop.get(), error.out());
  for (int i = 0; !error && i < count; ++i) {
    CallError applicationError;
    const GObjectPtr<AtspiAccessible> application(
        atspi_accessible_get_child_at_index(desktop.get(), i, applicationError.out()));
    if (!application || applicationError) {
      continue;
    }
    CallError windowsError;
    const int windows = atspi_accessible_get_child_count(application.get(), windowsError.out());
    for (int j = 0; !windowsError && j < windows; ++j) {
      CallError windowError;
      const GObjectPtr<AtspiAccessible> window(
          atspi_accessible_get_child_at_index(application.get(), j, windowError.out()));
      if (window && !windowError && !visit(application.get(), window.get())) {
        return;
      }
    }
  }
}

bool hasState(AtspiAccessible* element, AtspiStateType state) {
  const GObjectPtr<AtspiStateSet> states(atspi_accessible_get_state_set(element));
  return states && atspi_state_set_contains(states.get(), state);
}

void walk(AtspiAccessible* root, const std::function<bool(AtspiAccessible*)>& visit) {
  int seen = 0;
  walkFrom(root, 0, seen, visit);
}

}  // namespace brimble::atspi
