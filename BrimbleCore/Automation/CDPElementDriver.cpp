#include "BrimbleCore/Automation/CDPElementDriver.h"

#include "BrimbleCore/Automation/DemoDriverError.h"

namespace brimble {

std::optional<ScreenRect> CDPElementDriver::find(const std::string& target) {
  try {
    return driver_.screenRect(target);
  } catch (const DemoDriverError& error) {
    if (error.code() == DemoDriverError::Code::elementNotFound) {
      return std::nullopt;
    }
    throw;
  }
}

}  // namespace brimble
