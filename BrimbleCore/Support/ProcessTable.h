#pragma once

#include <optional>
#include <vector>

#include <sys/types.h>

namespace brimble {

/// One process as the kernel describes it in /proc/<pid>/stat.
struct ProcessInfo {
  pid_t pid = 0;
  pid_t parent = 0;
  pid_t group = 0;
  char state = '?';  // 'R', 'S', 'D', 'T', 'Z' ...
};

/// The process `pid`; no value when there is none (zombies included: they still have an entry).
std::optional<ProcessInfo> processInfo(pid_t pid);

/// Every living process: zombies are left out, since they are gone but for an exit status that
/// their parent collects.
std::vector<ProcessInfo> liveProcesses();

/// Whether `pid` is alive (not a zombie).
bool processAlive(pid_t pid);

/// How many living processes `group` holds.
int liveProcessesInGroup(pid_t group);

}  // namespace brimble
