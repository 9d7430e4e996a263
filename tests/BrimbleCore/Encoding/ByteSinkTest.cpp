#include "BrimbleCore/Encoding/ByteSink.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/MuxError.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::errorText;
using testing::readFile;
using testing::TempDirectory;

std::vector<std::uint8_t> bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
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
  EXPECT_EQ(errorText<MuxError>([&] { sink.patch(9, bytesOf("xyz")); }),
            "patch of 3 bytes at 9 exceeds 11 written");
  EXPECT_EQ(errorText<MuxError>([&] { sink.patch(11, bytesOf("x")); }),
            "patch of 1 bytes at 11 exceeds 11 written");
  sink.close();
  sink.close();  // a second close does nothing
  EXPECT_EQ(readFile(path), "hEYlo worlD");
  EXPECT_EQ(errorText<MuxError>([&] { sink.write(bytesOf("x")); }),
            "write after the sink was closed or discarded");
  EXPECT_EQ(errorText<MuxError>([&] { sink.patch(0, bytesOf("x")); }),
            "patch after the sink was closed or discarded");

  FileByteSink partial(directory / "partial.bin");
  partial.write(bytesOf("partial"));
  partial.discard();
  EXPECT_FALSE(std::filesystem::exists(directory / "partial.bin"));
  const auto unwritable = directory / "missing" / "out.gif";
  EXPECT_EQ(errorText<MuxError>([&] { FileByteSink created(unwritable); }),
            "could not create " + unwritable.string() + ": No such file or directory");
}

TEST(MemoryByteSink, PatchesInPlaceAndRejectsRangesPastTheEnd) {
  MemoryByteSink sink;
  sink.write(bytesOf("abcdef"));
  sink.patch(0, bytesOf("XY"));
  sink.patch(4, bytesOf("ZZ"));
  sink.patch(6, {});
  EXPECT_EQ(errorText<MuxError>([&] { sink.patch(5, bytesOf("12")); }),
            "patch of 2 bytes at 5 exceeds 6 written");
  EXPECT_EQ(errorText<MuxError>([&] { sink.patch(7, {}); }),
            "patch of 0 bytes at 7 exceeds 6 written");
  EXPECT_EQ(sink.data, bytesOf("XYcdZZ"));
}

}  // namespace
}  // namespace brimble
