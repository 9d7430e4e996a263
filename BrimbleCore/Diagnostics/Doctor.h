#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Platform/CapabilityCheck.h"

namespace brimble {

/// What `brimble doctor` tells of this machine: every capability check, what scripts and
/// assistants use included, and whether the main jobs can run. A value.
struct DoctorReport {
  std::vector<CapabilityCheck> checks;
  /// Only Brimble's own display is needed (`--headless`): the user's desktop is shown but not
  /// required.
  bool headless = false;

  /// Whether every check the main jobs need passed.
  bool ready() const;
  /// The checklist, each missing check with its fix, and a last line that says whether the
  /// main jobs can run. Ends with a newline.
  std::string text() const;
  /// {"ready", "headless", "checks": [...]}.
  nlohmann::json json() const;
};

/// Probes this machine (a few seconds at most; nothing is shown to the user).
DoctorReport examineMachine(bool headless);

}  // namespace brimble
