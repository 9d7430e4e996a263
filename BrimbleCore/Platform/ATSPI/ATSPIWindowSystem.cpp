#include "BrimbleCore/Platform/ATSPI/ATSPIWindowSystem.h"

#include <fstream>
#include <functional>
#include <string>
#include <utility>

#include "BrimbleCore/Automation/WindowManagerError.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIHandles.h"
#include "BrimbleCore/Platform/ATSPI/ATSPITree.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble::atspi {
namespace {

// Deep enough for a title bar's button inside its boxes.
constexpr int kTitleBarDepth = 3;

std::string processName(int pid) {
  std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

/// Frames and dialogs; a GTK "window" counts when its window type says it is one (its menus and
/// tooltips are windows too).
bool isApplicationWindow(AtspiAccessible* window) {
  CallError error;
  const std::string role = takeString(atspi_accessible_get_role_name(window, error.out()));
  if (role == "frame" || role == "dialog" || role == "alert" || role == "file chooser") {
    return true;
  }
  if (role != "window") {
    return false;
  }
  CallError attributesError;
  GHashTable* attributes = atspi_accessible_get_attributes(window, attributesError.out());
  if (attributes == nullptr) {
    return false;
  }
  const auto* type = static_cast<const char*>(g_hash_table_lookup(attributes, "window-type"));
  const bool normal =
      type != nullptr && (std::string(type) == "normal" || std::string(type) == "dialog");
  g_hash_table_unref(attributes);
  return normal;
}

/// FNV-1a over the application's bus name and the window's object path: stable while the window
/// lives, the same in every process that asks, and never 0. Both are known without a call to the
/// application, so a busy application cannot make the same window answer to another id.
std::uint32_t windowID(AtspiAccessible* window) {
  std::uint32_t hash = 2166136261U;
  const auto mix = [&](std::string_view bytes) {
    for (const char byte : bytes) {
      hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
    }
  };
  const AtspiObject& object = window->parent;
  mix(object.app != nullptr && object.app->bus_name != nullptr ? object.app->bus_name : "");
  mix(":");
  mix(object.path != nullptr ? object.path : "");
  return hash != 0 ? hash : 1;
}

/// The close button of a title bar the application draws itself: a "Close" push button in a
/// panel directly under the window (GTK's title bar and header bar).
GObjectPtr<AtspiAccessible> closeButtonOf(AtspiAccessible* window) {
  GObjectPtr<AtspiAccessible> button;
  CallError error;
  const int count = atspi_accessible_get_child_count(window, error.out());
  for (int i = 0; !error && i < count && !button; ++i) {
    CallError childError;
    const GObjectPtr<AtspiAccessible> child(
        atspi_accessible_get_child_at_index(window, i, childError.out()));
    if (!child || childError || factsOf(child.get()).role != "panel") {
      continue;
    }
    int depth = 0;
    std::function<void(AtspiAccessible*)> search = [&](AtspiAccessible* parent) {
      if (++depth > kTitleBarDepth) {
        --depth;
        return;
      }
      CallError countError;
      const int children = atspi_accessible_get_child_count(parent, countError.out());
      for (int j = 0; !countError && j < children && !button; ++j) {
        CallError grandchildError;
        GObjectPtr<AtspiAccessible> candidate(
            atspi_accessible_get_child_at_index(parent, j, grandchildError.out()));
        if (!candidate || grandchildError) {
          continue;
        }
        const ElementFacts facts = factsOf(candidate.get());
        if (facts.role == "push button" && facts.name == "Close") {
          button = std::move(candidate);
        } else {
          search(candidate.get());
        }
      }
      --depth;
    };
    search(child.get());
  }
  return button;
}

bool pressAction(AtspiAccessible* element) {
  const GObjectPtr<AtspiAction> action(atspi_accessible_get_action_iface(element));
  CallError error;
  return action && atspi_action_get_n_actions(action.get(), error.out()) > 0 && !error &&
         atspi_action_do_action(action.get(), 0, error.out()) && !error;
}

bool grabFocus(AtspiAccessible* element) {
  const GObjectPtr<AtspiComponent> component(atspi_accessible_get_component_iface(element));
  CallError error;
  return component && atspi_component_grab_focus(component.get(), error.out()) && !error;
}

void requireBus() {
  std::string reason;
  if (!ATSPIAccessibility().available(reason)) {
    throw WindowManagerError::windowListUnavailable(reason);
  }
}

}  // namespace

void ATSPIWindowSystem::Release::operator()(_AtspiAccessible* element) const noexcept {
  g_object_unref(element);
}

WindowInfo ATSPIWindowSystem::describe(AtspiAccessible* application,
                                       AtspiAccessible* window) const {
  WindowInfo info;
  {
    CallError error;
    info.pid = static_cast<int>(atspi_accessible_get_process_id(application, error.out()));
    if (error) {
      info.pid = 0;
    }
  }
  info.id = windowID(window);
  {
    CallError error;
    info.appName = takeString(atspi_accessible_get_name(application, error.out()));
  }
  if (info.appName.empty() && info.pid > 0) {
    info.appName = processName(info.pid);
  }
  const ElementFacts facts = factsOf(window);
  info.title = facts.name;
  info.frame = facts.rect;
  info.positionKnown = options_.toolkitsKnowPositions ||
                       (!facts.rect.empty() && (facts.rect.x != 0 || facts.rect.y != 0));
  if (!info.positionKnown) {
    info.frame.x = 0;
    info.frame.y = 0;
  }
  info.contentFrame = info.frame;
  return info;
}

std::vector<WindowInfo> ATSPIWindowSystem::windows() {
  requireBus();
  std::vector<WindowInfo> windows;
  forEachWindow([&](AtspiAccessible* application, AtspiAccessible* window) {
    if (!hasState(window, ATSPI_STATE_SHOWING) || !isApplicationWindow(window)) {
      return true;
    }
    WindowInfo info = describe(application, window);
    if (hasState(window, ATSPI_STATE_ACTIVE)) {
      windows.insert(windows.begin(), std::move(info));
    } else {
      windows.push_back(std::move(info));
    }
    return true;
  });
  return windows;
}

std::optional<std::uint32_t> ATSPIWindowSystem::activeWindow() {
  std::string reason;
  if (!ATSPIAccessibility().available(reason)) {
    return std::nullopt;
  }
  std::optional<std::uint32_t> active;
  forEachWindow([&](AtspiAccessible* /*application*/, AtspiAccessible* window) {
    if (!hasState(window, ATSPI_STATE_ACTIVE) || !isApplicationWindow(window)) {
      return true;
    }
    active = windowID(window);
    return false;
  });
  return active;
}

ATSPIWindowSystem::ElementPtr ATSPIWindowSystem::window(std::uint32_t id, WindowInfo* info) {
  requireBus();
  ElementPtr found;
  forEachWindow([&](AtspiAccessible* application, AtspiAccessible* candidate) {
    if (windowID(candidate) != id || !isApplicationWindow(candidate)) {
      return true;
    }
    found.reset(static_cast<AtspiAccessible*>(g_object_ref(candidate)));
    if (info != nullptr) {
      *info = describe(application, candidate);
    }
    return false;
  });
  return found;
}

bool ATSPIWindowSystem::activate(std::uint32_t id) {
  const ElementPtr found = window(id);
  if (!found) {
    return false;
  }
  if (grabFocus(found.get())) {
    return true;
  }
  // GTK focuses no window through the window itself, but presents the window of a widget that
  // takes the focus: the one that had it last, else the first that can.
  GObjectPtr<AtspiAccessible> widget;
  walk(found.get(), [&](AtspiAccessible* element) {
    if (hasState(element, ATSPI_STATE_FOCUSED)) {
      widget.reset(static_cast<AtspiAccessible*>(g_object_ref(element)));
      return false;
    }
    if (!widget && hasState(element, ATSPI_STATE_FOCUSABLE) &&
        hasState(element, ATSPI_STATE_SHOWING)) {
      widget.reset(static_cast<AtspiAccessible*>(g_object_ref(element)));
    }
    return true;
  });
  if (!widget || !grabFocus(widget.get())) {
    // Asked, as far as the bus allows; the caller sees whether the window became active.
    logLine("BrimbleCore: ATSPIWindowSystem: Window " + std::to_string(id) +
            " takes the focus neither itself nor through one of its elements");
  }
  return true;
}

bool ATSPIWindowSystem::moveResize(std::uint32_t id, const ScreenRect&) {
  if (!window(id)) {
    return false;
  }
  throw WindowManagerError::requestRefused(
      "move or resize windows",
      "on Wayland only the compositor moves and sizes windows, and it takes no requests to do so "
      "from other programs");
}

bool ATSPIWindowSystem::close(std::uint32_t id) {
  WindowInfo info;
  const ElementPtr found = window(id, &info);
  if (!found) {
    return false;
  }
  const GObjectPtr<AtspiAccessible> button = closeButtonOf(found.get());
  if (!button || !pressAction(button.get())) {
    throw WindowManagerError::requestRefused(
        "close the window '" + info.title + "' of " + info.appName,
        "it shows no close button on the accessibility bus, and on Wayland only the compositor "
        "closes windows");
  }
  return true;
}

}  // namespace brimble::atspi
