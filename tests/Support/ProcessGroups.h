#pragma once

#include "BrimbleCore/Support/ProcessTable.h"

namespace brimble::testing {

/// How many processes of process group `group` are running (zombies do not count).
inline int runningProcessesInGroup(pid_t group) {
  return liveProcessesInGroup(group);
}

}  // namespace brimble::testing
