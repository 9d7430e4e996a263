// brimble-app(1), which `brimble manual` writes from the app's option table, lists every option
// brimble-app --help prints.

#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/RunCommand.h"

namespace brimble {
namespace {

using testing::runCommand;
using testing::shellQuote;

TEST(AppManual, ListsEveryOptionTheAppsHelpPrints) {
  const auto help = runCommand(shellQuote(BRIMBLE_APP_BINARY) + " --help");
  ASSERT_EQ(help.exitCode, 0);
  const auto page = runCommand(testing::brimbleCommand("manual --man brimble-app") +
                               " | groff -man -Tascii -P-cbou");
  ASSERT_EQ(page.exitCode, 0);
  static const std::regex optionLine(R"(^  (--?[a-z-]+))");
  std::istringstream lines(help.output);
  int options = 0;
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_search(line, match, optionLine)) {
      ++options;
      EXPECT_NE(page.output.find("\n       " + match[1].str()), std::string::npos)
          << match[1] << " is not in brimble-app(1)";
    }
  }
  EXPECT_GE(options, 3);
}

}  // namespace
}  // namespace brimble
