#pragma once

#include <functional>
#include <optional>
#include <string>

#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIHandles.h"

namespace brimble::atspi {

/// What an element shows of itself: its role, name, text and where it is on screen.
struct ElementFacts {
  std::string role;
  std::string name;
  /// The element's text when it has some and no name (a label's or an entry's contents).
  std::string text;
  /// Screen coordinates; empty when the element has no place on screen.
  ScreenRect rect;
  /// On screen now (the SHOWING state).
  bool showing = false;
  /// Takes input now (ENABLED or SENSITIVE): a greyed-out control does not.
  bool enabled = false;
};

/// Reads what `element` shows; whatever the application does not answer stays empty.
ElementFacts factsOf(AtspiAccessible* element);
/// Reads only what `element` is: its role as the application reports it, its name and text.
/// Cheaper than `factsOf`, for sifting a tree before the matches are looked at closely.
ElementFacts identityOf(AtspiAccessible* element);

/// The application of process `pid` on the accessibility bus; null when it has none.
GObjectPtr<AtspiAccessible> applicationOf(int pid);

/// Calls `visit` for each application on the desktop's bus and each of its top-level windows
/// (frames, dialogs, menus), in the bus's order; `visit` returns false to stop. Applications and
/// windows that vanish meanwhile are passed over.
void forEachWindow(
    const std::function<bool(AtspiAccessible* application, AtspiAccessible* window)>& visit);

/// Whether `element` is in `state` now.
bool hasState(AtspiAccessible* element, AtspiStateType state);

/// Calls `visit` for `root`'s descendants, depth first in the application's order, down to 40
/// levels and 20,000 elements; `visit` returns false to stop.
void walk(AtspiAccessible* root, const std::function<bool(AtspiAccessible*)>& visit);

}  // namespace brimble::atspi
