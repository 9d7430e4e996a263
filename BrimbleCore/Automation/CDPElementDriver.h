#pragma once

#include "BrimbleCore/Automation/CDPDriver.h"
#include "BrimbleCore/Automation/ElementDriver.h"

namespace brimble {

/// The elements of a browser page as an ElementDriver: "text:" and "css:" targets (and bare CSS
/// selectors) through the CDP driver; "role:" targets are refused (DemoDriverError::
/// invalidTarget), since roles belong to the accessibility service. `driver` is borrowed and
/// must outlive it. One thread at a time.
class CDPElementDriver final : public ElementDriver {
 public:
  explicit CDPElementDriver(CDPDriver& driver) : driver_(driver) {}

  std::optional<ScreenRect> find(const std::string& target) override;
  void press(const std::string& target) override { driver_.click(target); }
  void setValue(const std::string& target, const std::string& text) override {
    driver_.fill(target, text);
  }
  void focus(const std::string& target) override { driver_.focus(target); }
  std::vector<DiscoveredElement> listElements(int limit) override {
    return driver_.listElements(limit);
  }

 private:
  CDPDriver& driver_;
};

}  // namespace brimble
