#pragma once

#include <sys/types.h>

namespace brimble::testing {

/// How many processes of process group `group` are running (zombies do not count), as ps(1)
/// sees them.
int runningProcessesInGroup(pid_t group);

}  // namespace brimble::testing
