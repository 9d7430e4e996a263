#include "BrimbleCore/Diagnostics/Doctor.h"

#include <ctime>

#include "BrimbleCore/Platform/CapabilityProbe.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {

namespace {

bool onlyNeededOnTheDesktop(const CapabilityCheck& check) {
  return check.id == capability::display || check.id == capability::screenCapture;
}

std::string localTime(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
  return text;
}

std::string joined(const std::vector<std::string>& items, const char* separator) {
  std::string text;
  for (const std::string& item : items) {
    text += (text.empty() ? "" : separator) + item;
  }
  return text;
}

/// "Crash reports: 3 of 2 kinds, 2 new since last shown:", a line per kind, and what to do.
std::string crashText(const std::vector<CrashBucket>& buckets, std::size_t fresh) {
  std::size_t reports = 0;
  for (const CrashBucket& bucket : buckets) {
    reports += bucket.count;
  }
  std::string text = "\nCrash reports: " + std::to_string(reports) + " of " +
                     std::to_string(buckets.size()) + (buckets.size() == 1 ? " kind" : " kinds") +
                     (fresh > 0 ? ", " + std::to_string(fresh) + " new since last shown" : "") +
                     ":\n";
  for (const CrashBucket& bucket : buckets) {
    text += "  " + std::to_string(bucket.count) + "x " + bucket.program + ", " + bucket.signal +
            " in " + (bucket.topFrames.empty() ? "unknown code" : joined(bucket.topFrames, " < ")) +
            "; last " + localTime(bucket.lastTime) + ", " + bucket.newestReport.string() + "\n";
  }
  return text + "  brimble report puts them in one archive to attach to a new issue.\n";
}

}  // namespace

bool DoctorReport::ready() const {
  return mainJobsReady(checks);
}

std::string DoctorReport::text() const {
  std::string text = formatChecklist(checks);
  if (!crashes.empty()) {
    text += crashText(crashes, newCrashes);
  }
  std::vector<std::string> absent;
  bool onlyTheDesktop = true;
  for (const CapabilityCheck& check : checks) {
    if (check.requiredForMainJobs && check.status == CapabilityStatus::missing) {
      absent.push_back(check.title);
      onlyTheDesktop = onlyTheDesktop && onlyNeededOnTheDesktop(check);
    }
  }
  if (!absent.empty()) {
    text += "\nNot ready: " + listedInWords(absent) + (absent.size() == 1 ? " is" : " are") +
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
  json["crashes"] = nlohmann::json::array();
  for (const CrashBucket& bucket : crashes) {
    json["crashes"].push_back({{"signature", bucket.signature},
                               {"program", bucket.program},
                               {"signal", bucket.signal},
                               {"count", bucket.count},
                               {"top_frames", bucket.topFrames},
                               {"first", localTime(bucket.firstTime)},
                               {"last", localTime(bucket.lastTime)},
                               {"newest_report", bucket.newestReport.string()}});
  }
  json["new_crashes"] = newCrashes;
  return json;
}

DoctorReport examineMachine(bool headless, const CrashReports& crashes) {
  DoctorReport report{platform::checkCapabilities({.scriptTools = true}), headless,
                      crashes.buckets(), crashes.unseen().size()};
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
