#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Diagnostics/CrashReports.h"
#include "BrimbleCore/Platform/CapabilityCheck.h"

namespace brimble {

/// What `brimble doctor` tells of this machine: every capability check, what scripts and
/// assistants use included, and whether the main jobs can run. A value.
struct DoctorReport {
  std::vector<CapabilityCheck> checks;
  /// Only Brimble's own display is needed (`--headless`): the user's desktop is shown but not
  /// required.
  bool headless = false;
  /// The crash reports Brimble keeps, one bucket per kind of crash, newest first, and how many
  /// reports came since they were last shown.
  std::vector<CrashBucket> crashes;
  std::size_t newCrashes = 0;

  /// Whether every check the main jobs need passed.
  bool ready() const;
  /// The checklist, each missing check with its fix, the crash reports kept, and a last line
  /// that says whether the main jobs can run. Ends with a newline.
  std::string text() const;
  /// {"ready", "headless", "checks": [...], "crashes": [...], "new_crashes"}.
  nlohmann::json json() const;
};

/// Probes this machine (a few seconds at most; nothing is shown to the user) and reads the crash
/// reports in `crashes`.
DoctorReport examineMachine(bool headless, const CrashReports& crashes = CrashReports());

}  // namespace brimble
