#include "BrimbleCore/Support/ProcessTable.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace brimble {

std::optional<ProcessInfo> processInfo(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string stat;
  if (!std::getline(file, stat)) {
    return std::nullopt;
  }
  // "pid (name) state parent group ...": the name may itself hold spaces and parentheses.
  const std::size_t close = stat.rfind(')');
  ProcessInfo info;
  info.pid = pid;
  if (close == std::string::npos || std::sscanf(stat.c_str() + close + 1, " %c %d %d", &info.state,
                                                &info.parent, &info.group) != 3) {
    return std::nullopt;
  }
  return info;
}

std::vector<ProcessInfo> liveProcesses() {
  std::vector<ProcessInfo> processes;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    const auto info = processInfo(std::stoi(name));
    // 'X' is a process being torn down right now.
    if (info && info->state != 'Z' && info->state != 'X') {
      processes.push_back(*info);
    }
  }
  return processes;
}

bool processAlive(pid_t pid) {
  const auto info = processInfo(pid);
  return info && info->state != 'Z' && info->state != 'X';
}

int liveProcessesInGroup(pid_t group) {
  const auto processes = liveProcesses();
  return static_cast<int>(
      std::count_if(processes.begin(), processes.end(),
                    [&](const ProcessInfo& info) { return info.group == group; }));
}

}  // namespace brimble
