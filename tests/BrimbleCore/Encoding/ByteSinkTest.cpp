#include "BrimbleCore/Encoding/ByteSink.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/MuxError.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::readFile;
using testing::TempDirectory;

std::vector<std::uint8_t> bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

template <typename Body>
void expectLayoutError(const std::string& message, Body body) {
  try {
    body();
    ADD_FAILURE() << "no MuxError was thrown; expected \"" << message << "\"";
  } catch (const MuxError& error) {
    EXPECT_EQ(error, MuxError::unexpectedLayout(message));
  }
}

TEST(FileByteSink, PatchesInPlaceKeepsAppendingAndRefusesMisuse) {
  TempDirectory directory;
  const auto path = directory / "out.bin";
  std::ofstream(path) << "old contents that are truncated";
  FileByteSink sink(path);
  sink.write(bytesOf("hello"));
  sink.patch(1, bytesOf("EY"));
  sink.write(bytesOf(" world"));
  sink.patch(10, bytesOf("D"));
  EXPECT_EQ(sink.offset(), 11u);
  expectLayoutError("patch of 3 bytes at 9 exceeds 11 written",
                    [&] { sink.patch(9, bytesOf("xyz")); });
  expectLayoutError("patch of 1 bytes at 11 exceeds 11 written",
                    [&] { sink.patch(11, bytesOf("x")); });
  sink.close();
  sink.close();  // a second close does nothing
  EXPECT_EQ(readFile(path), "hEYlo worlD");
  expectLayoutError("write after the sink was closed or discarded",
                    [&] { sink.write(bytesOf("x")); });
  expectLayoutError("patch after the sink was closed or discarded",
                    [&] { sink.patch(0, bytesOf("x")); });

  FileByteSink partial(directory / "partial.bin");
  partial.write(bytesOf("partial"));
  partial.discard();
  EXPECT_FALSE(std::filesystem::exists(directory / "partial.bin"));
  const auto unwritable = directory / "missing" / "out.gif";
  expectLayoutError("could not create " + unwritable.string(),
                    [&] { FileByteSink created(unwritable); });
}

TEST(MemoryByteSink, PatchesInPlaceAndRejectsRangesPastTheEnd) {
  MemoryByteSink sink;
  sink.write(bytesOf("abcdef"));
  sink.patch(0, bytesOf("XY"));
  sink.patch(4, bytesOf("ZZ"));
  sink.patch(6, {});
  expectLayoutError("patch of 2 bytes at 5 exceeds 6 written",
                    [&] { sink.patch(5, bytesOf("12")); });
  expectLayoutError("patch of 0 bytes at 7 exceeds 6 written", [&] { sink.patch(7, {}); });
  EXPECT_EQ(sink.data, bytesOf("XYcdZZ"));
}

}  // namespace
}  // namespace brimble
