#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <thread>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIElementDriver.h"
#include "BrimbleCore/Platform/ATSPI/ATSPITree.h"

namespace brimble::atspi {
namespace {

constexpr auto kAppearTimeout = std::chrono::seconds(3);
constexpr auto kAppearPoll = std::chrono::milliseconds(100);
constexpr guint kEscapeKeysym = 0xff1b;  // XK_Escape

// libatspi aborts the process when it is used without a bus, and it connects once per process,
// through the session bus the process first names (libdbus reads its address once): the outcome
// is kept, and a process that has moved to another session is told so instead of waiting on a
// bus that is gone.
struct Connection {
  std::string sessionBus;
  bool connected = false;
  std::string reason;
};

Connection connection() {
  static std::mutex mutex;
  static std::optional<Connection> first;
  std::scoped_lock lock(mutex);
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  const std::string bus = address != nullptr ? address : "";
  if (!first) {
    first = Connection{bus, false, {}};
    if (bus.empty()) {
      first->reason = "there is no session bus ($DBUS_SESSION_BUS_ADDRESS is not set)";
    } else {
      const int status = atspi_init();
      first->connected = status == 0 || status == 1;
      if (!first->connected) {
        first->reason = "the accessibility bus does not answer (is at-spi2-core installed?)";
      }
    }
  }
  if (first->sessionBus != bus) {
    return {bus, false, "this process drives the accessibility bus of another session"};
  }
  return *first;
}

void requireConnection() {
  const Connection bus = connection();
  if (!bus.connected) {
    throw DemoDriverError::permissionDenied("Accessibility permission is required to drive apps: " +
                                            bus.reason);
  }
}

// The application's topmost dialog or alert: the active one, else the last one shown.
GObjectPtr<AtspiAccessible> topmostDialog(int pid) {
  const GObjectPtr<AtspiAccessible> application = applicationOf(pid);
  if (!application) {
    return nullptr;
  }
  GObjectPtr<AtspiAccessible> dialog;
  CallError error;
  const int count = atspi_accessible_get_child_count(application.get(), error.out());
  for (int i = 0; !error && i < count; ++i) {
    CallError childError;
    GObjectPtr<AtspiAccessible> window(
        atspi_accessible_get_child_at_index(application.get(), i, childError.out()));
    if (!window || childError) {
      continue;
    }
    const ElementFacts facts = factsOf(window.get());
    if (!facts.showing ||
        (facts.role != "dialog" && facts.role != "alert" && facts.role != "file chooser")) {
      continue;
    }
    const GObjectPtr<AtspiStateSet> states(atspi_accessible_get_state_set(window.get()));
    const bool active = states && atspi_state_set_contains(states.get(), ATSPI_STATE_ACTIVE);
    dialog = std::move(window);
    if (active) {
      break;
    }
  }
  return dialog;
}

}  // namespace

ATSPIAccessibility::ATSPIAccessibility() : ATSPIAccessibility(Keys{}) {}

ATSPIAccessibility::ATSPIAccessibility(Keys keys) : keys_(std::move(keys)) {}

bool ATSPIAccessibility::available(std::string& reason) {
  if (keys_.reachScreen && !keysChecked_) {
    keysChecked_ = keys_.reachScreen();
  }
  if (keysChecked_ == false) {
    reason = keys_.missing;
    return false;
  }
  const Connection bus = connection();
  if (!bus.connected) {
    reason = bus.reason;
    return false;
  }
  const GObjectPtr<AtspiAccessible> desktop(atspi_get_desktop(0));
  CallError error;
  if (!desktop || (atspi_accessible_get_child_count(desktop.get(), error.out()), error)) {
    reason = "the accessibility bus does not answer: " + error.message();
    return false;
  }
  return true;
}

std::unique_ptr<ElementDriver> ATSPIAccessibility::driverFor(int pid) {
  requireConnection();
  const auto deadline = std::chrono::steady_clock::now() + kAppearTimeout;
  for (;;) {
    if (GObjectPtr<AtspiAccessible> application = applicationOf(pid)) {
      return std::make_unique<ATSPIElementDriver>(std::move(application));
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      throw DemoDriverError::elementNotFound("process " + std::to_string(pid) +
                                             " shows no accessibility tree");
    }
    std::this_thread::sleep_for(kAppearPoll);
  }
}

DialogOutcome ATSPIAccessibility::clickButtonInDialog(int pid, const std::string& button) {
  requireConnection();
  GObjectPtr<AtspiAccessible> dialog = topmostDialog(pid);
  if (!dialog) {
    return DialogOutcome::noDialog;
  }
  ATSPIElementDriver buttons(std::move(dialog));
  const std::string target = "role:push button/" + button;
  if (!buttons.find(target)) {
    return DialogOutcome::noButton;
  }
  buttons.press(target);
  return DialogOutcome::clicked;
}

DialogOutcome ATSPIAccessibility::dismissDialog(int pid) {
  requireConnection();
  const GObjectPtr<AtspiAccessible> dialog = topmostDialog(pid);
  if (!dialog) {
    return DialogOutcome::noDialog;
  }
  if (const GObjectPtr<AtspiComponent> component(
          atspi_accessible_get_component_iface(dialog.get()));
      component) {
    CallError ignored;  // a window that will not take the focus may still have it
    atspi_component_grab_focus(component.get(), ignored.out());
  }
  CallError error;
  if (!atspi_generate_keyboard_event(kEscapeKeysym, nullptr, ATSPI_KEY_SYM, error.out()) || error) {
    throw DemoDriverError::actionFailed("Escape to the dialog failed (" + error.message() + ")");
  }
  return DialogOutcome::dismissed;
}

}  // namespace brimble::atspi
