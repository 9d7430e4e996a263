#include "tests/Support/ProcessGroups.h"

#include <sstream>
#include <string>

#include "tests/Support/RunCommand.h"

namespace brimble::testing {

int runningProcessesInGroup(pid_t group) {
  const CommandResult result = runCommand("ps -e -o pgid= -o stat=");
  std::istringstream lines(result.output);
  int count = 0;
  long processGroup = 0;
  std::string state;
  while (lines >> processGroup >> state) {
    if (processGroup == group && state.front() != 'Z') {
      ++count;
    }
  }
  return count;
}

}  // namespace brimble::testing
