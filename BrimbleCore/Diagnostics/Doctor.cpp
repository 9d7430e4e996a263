#include "BrimbleCore/Diagnostics/Doctor.h"

#include "BrimbleCore/Platform/CapabilityProbe.h"

namespace brimble {

namespace {

bool onlyNeededOnTheDesktop(const CapabilityCheck& check) {
  return check.id == capability::display || check.id == capability::screenCapture;
}

}  // namespace

bool DoctorReport::ready() const {
  return mainJobsReady(checks);
}

std::string DoctorReport::text() const {
  std::string text = formatChecklist(checks);
  std::vector<std::string> absent;
  bool onlyTheDesktop = true;
  for (const CapabilityCheck& check : checks) {
    if (check.requiredForMainJobs && check.status == CapabilityStatus::missing) {
      absent.push_back(check.title);
      onlyTheDesktop = onlyTheDesktop && onlyNeededOnTheDesktop(check);
    }
  }
  if (!absent.empty()) {
    std::string names;
    for (std::size_t i = 0; i < absent.size(); ++i) {
      names += (i == 0 ? "" : i + 1 == absent.size() ? " and " : ", ") + absent[i];
    }
    text += "\nNot ready: " + names + (absent.size() == 1 ? " is" : " are") +
            " missing; the fixes are above.\n";
    if (onlyTheDesktop) {
      text +=
          "Scripts can still run in Brimble's own display: brimble doctor --headless checks "
          "what that needs.\n";
    }
  } else if (headless) {
    text += "\nReady for brimble run and --headless.\n";
  } else {
    text += "\nReady: recording, scripts and --headless have what they need.\n";
  }
  return text;
}

nlohmann::json DoctorReport::json() const {
  nlohmann::json json = checklistJson(checks);
  json["headless"] = headless;
  return json;
}

DoctorReport examineMachine(bool headless) {
  DoctorReport report{platform::checkCapabilities({.scriptTools = true}), headless};
  if (headless) {
    for (CapabilityCheck& check : report.checks) {
      if (onlyNeededOnTheDesktop(check)) {
        check.requiredForMainJobs = false;
      }
    }
  }
  return report;
}

}  // namespace brimble
