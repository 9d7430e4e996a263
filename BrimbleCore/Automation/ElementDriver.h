#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/DiscoveredElement.h"
#include "BrimbleCore/Capture/ScreenRect.h"

namespace brimble {

/// Acts on the elements of one application or page, named by target strings: "text:Save",
/// "role:push button/OK", and in a browser "css:#login". Scripts (`click <target>`, `fill`,
/// `move-to`, `wait-for`, `highlight`, `zoom`) and the discovery tools go through it, whether a
/// browser page or a native application answers. A target that matches several elements means
/// the first that is visible and enabled; the driver logs a warning the first time (how many
/// matched, and a target that names the one taken), and "[N]" at the end of a "text:" or
/// "role:" target takes the Nth match. Errors are DemoDriverError: invalidTarget for
/// a target this driver cannot take, elementNotFound, actionFailed, permissionDenied. One thread
/// at a time.
class ElementDriver {
 public:
  ElementDriver() = default;
  ElementDriver(const ElementDriver&) = delete;
  ElementDriver& operator=(const ElementDriver&) = delete;
  ElementDriver(ElementDriver&&) = delete;
  ElementDriver& operator=(ElementDriver&&) = delete;
  virtual ~ElementDriver() = default;

  /// Where the target's element is on screen now, or no value when none matches (or it is not
  /// visible).
  virtual std::optional<ScreenRect> find(const std::string& target) = 0;
  /// Presses the element (its default action, or a click at its centre).
  virtual void press(const std::string& target) = 0;
  /// Sets the element's text. DemoDriverError::unsupported when it does not take text directly;
  /// the caller then focuses it and types.
  virtual void setValue(const std::string& target, const std::string& text) = 0;
  /// Gives the element the keyboard focus.
  virtual void focus(const std::string& target) = 0;
  /// The elements a user can act on, at most `limit`, each with a target that finds it and no
  /// other element.
  virtual std::vector<DiscoveredElement> listElements(int limit) = 0;
};

}  // namespace brimble
