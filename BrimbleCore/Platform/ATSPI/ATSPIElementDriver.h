#pragma once

#include <set>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/ElementDriver.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIHandles.h"

namespace brimble::atspi {

/// The elements of one native application, through its tree on the accessibility bus: "text:"
/// and "role:" targets (a "css:" target is refused), pressed through their default action, text
/// set through the editable-text interface, focus through the component interface. Elements are
/// looked up afresh for every call, so a target follows its element when the window changes.
/// A target that matches several elements on screen means the first enabled one (the first
/// when none is), and the first time it is used it logs a warning saying how many matched and
/// which was taken; "[N]" names the Nth. The targets `listElements` gives each match exactly one
/// element.
class ATSPIElementDriver final : public ElementDriver {
 public:
  explicit ATSPIElementDriver(GObjectPtr<AtspiAccessible> application)
      : application_(std::move(application)) {}

  std::optional<ScreenRect> find(const std::string& target) override;
  void press(const std::string& target) override;
  void setValue(const std::string& target, const std::string& text) override;
  void focus(const std::string& target) override;
  std::vector<DiscoveredElement> listElements(int limit) override;

 private:
  /// The element `target` names, on screen; DemoDriverError::elementNotFound when none is.
  GObjectPtr<AtspiAccessible> element(const std::string& target);

  GObjectPtr<AtspiAccessible> application_;
  /// The ambiguous targets already warned about.
  std::set<std::string, std::less<>> warned_;
};

}  // namespace brimble::atspi
