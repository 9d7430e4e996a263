#include "BrimbleCore/Platform/CapabilityCheck.h"

#include <algorithm>

namespace brimble {

std::string_view rawValue(CapabilityStatus status) noexcept {
  switch (status) {
    case CapabilityStatus::ok:
      return "ok";
    case CapabilityStatus::missing:
      return "missing";
    case CapabilityStatus::notNeeded:
      return "not needed";
  }
  return "missing";
}

bool mainJobsReady(const std::vector<CapabilityCheck>& checks) {
  return std::none_of(checks.begin(), checks.end(), [](const CapabilityCheck& check) {
    return check.requiredForMainJobs && check.status == CapabilityStatus::missing;
  });
}

const CapabilityCheck* findCheck(const std::vector<CapabilityCheck>& checks, std::string_view id) {
  const auto found = std::find_if(checks.begin(), checks.end(),
                                  [id](const CapabilityCheck& check) { return check.id == id; });
  return found != checks.end() ? &*found : nullptr;
}

std::string formatChecklist(const std::vector<CapabilityCheck>& checks) {
  // The statuses padded to one width, so the titles start in one column.
  constexpr std::size_t kStatusWidth = 11;
  std::string text;
  for (const CapabilityCheck& check : checks) {
    std::string status(rawValue(check.status));
    status.resize(std::max(status.size(), kStatusWidth), ' ');
    text += status + check.title + ": " + check.detail + "\n";
    if (check.status == CapabilityStatus::missing && !check.fix.empty()) {
      text += std::string(kStatusWidth + 2, ' ') + "fix: " + check.fix + "\n";
    }
  }
  return text;
}

nlohmann::json checklistJson(const std::vector<CapabilityCheck>& checks) {
  nlohmann::json list = nlohmann::json::array();
  for (const CapabilityCheck& check : checks) {
    list.push_back({{"id", check.id},
                    {"title", check.title},
                    {"status", std::string(rawValue(check.status))},
                    {"detail", check.detail},
                    {"fix", check.fix},
                    {"required", check.requiredForMainJobs}});
  }
  return {{"ready", mainJobsReady(checks)}, {"checks", std::move(list)}};
}

}  // namespace brimble
