#include "BrimbleCore/Scripting/ScriptIncludes.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using ::testing::HasSubstr;

// Where each instruction came from, as "<file>:<line> <source>".
std::vector<std::string> origins(const ParsedScript& script) {
  std::vector<std::string> lines;
  for (const LocatedInstruction& located : script.instructions) {
    lines.push_back(located.file + ":" + std::to_string(located.line) + " " + located.source);
  }
  return lines;
}

TEST(ScriptIncludes, IncludedLinesRunInPlaceFromBesideTheScriptThatIncludesThem) {
  testing::TempDirectory directory;
  const auto main = directory / "demo.brim";
  testing::writeFile(directory / "lib" / "setup.brim",
                     "# the terminal\nopen \"Terminal\"\ninclude \"more.brim\"\n");
  testing::writeFile(directory / "lib" / "more.brim", "capture-window app \"Terminal\" as $t\n");
  // A name no include reaches is not looked for beside the main script.
  testing::writeFile(directory / "more.brim", "wait 99\n");
  const ParsedScript script =
      validate("set fps 12\ninclude \"lib/setup.brim\"\nrecord $t duration 1\n", main);
  EXPECT_EQ(origins(script), (std::vector<std::string>{
                                 ":1 set fps 12",
                                 "lib/setup.brim:2 open \"Terminal\"",
                                 "lib/more.brim:1 capture-window app \"Terminal\" as $t",
                                 ":3 record $t duration 1",
                             }));
  // $t is set by an included line, so nothing warns of it.
  EXPECT_TRUE(script.warnings.empty()) << script.warnings.front();
}

TEST(ScriptIncludes, ErrorsPointAtTheIncludedFileAndCyclesAreRefused) {
  testing::TempDirectory directory;
  const auto main = directory / "a.brim";
  testing::writeFile(main, "wait 1\n");
  const auto errorOf = [&](const std::string& source) {
    return testing::errorText<ScriptError>([&] { validate(source, main); });
  };
  testing::writeFile(directory / "typo.brim", "wait 1\nopne \"Terminal\"\n");
  EXPECT_THAT(errorOf("wait 1\ninclude \"typo.brim\"\n"),
              ::testing::StartsWith("typo.brim: Line 2, Col 1: Unknown command 'opne'"));
  EXPECT_EQ(errorOf("wait 1\n\ninclude \"gone.brim\"\n"),
            "Line 3: Cannot include 'gone.brim': no such file");
  EXPECT_THAT(errorOf("include $file\n"), HasSubstr("expected a file name written out"));

  // A script that includes itself, directly or through another, stops at the line that closes
  // the circle.
  EXPECT_EQ(errorOf("include \"a.brim\"\n"),
            "Line 1: include cycle: a.brim -> a.brim is already included");
  testing::writeFile(directory / "b.brim", "wait 1\ninclude \"a.brim\"\n");
  EXPECT_EQ(errorOf("include \"b.brim\"\n"),
            "b.brim: Line 2: include cycle: a.brim -> b.brim -> a.brim is already included");
  // The same file twice, one after the other, is no cycle.
  testing::writeFile(directory / "c.brim", "wait 1\n");
  EXPECT_EQ(validate("include \"c.brim\"\ninclude \"c.brim\"\n", main).instructions.size(), 2u);

  // What cannot be a script is refused without reading it: a pipe would never end.
  ASSERT_EQ(::mkfifo((directory / "pipe.brim").c_str(), 0600), 0);
  EXPECT_EQ(errorOf("include \"pipe.brim\"\n"), "Line 1: Cannot include 'pipe.brim': not a file");
  testing::writeFile(directory / "big.brim", std::string(kMaxIncludedScriptBytes + 1, '#'));
  EXPECT_THAT(errorOf("include \"big.brim\"\n"), HasSubstr("larger than 1 MiB"));
}

}  // namespace
}  // namespace brimble
