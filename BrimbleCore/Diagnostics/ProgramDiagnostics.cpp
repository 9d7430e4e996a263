#include "BrimbleCore/Diagnostics/ProgramDiagnostics.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "BrimbleCore/Diagnostics/CrashHandler.h"
#include "BrimbleCore/Diagnostics/CrashReports.h"
#include "BrimbleCore/Diagnostics/LogFile.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {

void startDiagnostics(std::string_view program, std::string_view version, int argc, char** argv) {
  auto file = std::make_shared<LogFile>(userFolders::state() / "logs", std::string(program),
                                        LogFile::Limits{});
  auto failed = std::make_shared<std::atomic<bool>>(false);
  setLogRecorder([file, failed, name = std::string(program)](std::string_view line) {
    if (failed->load()) {
      return;
    }
    try {
      file->append(line);
    } catch (const std::system_error& error) {
      // Called under the log's lock, so this goes straight to standard error.
      failed->store(true);
      std::fprintf(stderr, "%s: the log is not kept (%s); going on without it\n", name.c_str(),
                   error.what());
    }
  });
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  CrashReports().prune();
  crashHandler::install(program, version, arguments, CrashReports::defaultFolder());
}

}  // namespace brimble
