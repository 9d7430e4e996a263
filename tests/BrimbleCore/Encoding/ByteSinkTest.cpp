#include "BrimbleCore/Encoding/ByteSink.h"

#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/MuxError.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::TempDirectory;

std::vector<std::uint8_t> bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

template <typename Body>
void expectLayoutError(const std::string& message, Body body) {
  try {
    body();
    ADD_FAILURE() << "no MuxError was thrown; expected \"" << message << "\"";
  } catch (const MuxError& error) {
    EXPECT_EQ(error, MuxError::unexpectedLayout(message));
    EXPECT_EQ(std::string(error.what()), message);
  }
}

TEST(FileByteSink, PatchesInPlaceAndKeepsAppendingAtTheEnd) {
  TempDirectory directory;
  FileByteSink sink(directory / "out.bin");
  sink.write(bytesOf("hello"));
  sink.patch(1, bytesOf("EY"));
  EXPECT_EQ(sink.offset(), 5u);
  sink.write(bytesOf(" world"));
  sink.patch(10, bytesOf("D"));
  EXPECT_EQ(sink.offset(), 11u);
  sink.close();
  sink.close();  // a second close does nothing
  EXPECT_EQ(readFile(directory / "out.bin"), "hEYlo worlD");
}

TEST(FileByteSink, CreatingTruncatesAnExistingFile) {
  TempDirectory directory;
  std::ofstream(directory / "out.bin") << "old contents";
  FileByteSink sink(directory / "out.bin");
  sink.write(bytesOf("new"));
  sink.close();
  EXPECT_EQ(readFile(directory / "out.bin"), "new");
}

TEST(FileByteSink, MisuseAndFailuresHaveExactMessages) {
  TempDirectory directory;
  const auto unwritable = directory / "missing" / "out.gif";
  expectLayoutError("could not create " + unwritable.string(),
                    [&] { FileByteSink sink(unwritable); });

  FileByteSink sink(directory / "out.bin");
  sink.write(bytesOf("0123456789a"));
  expectLayoutError("patch of 3 bytes at 9 exceeds 11 written",
                    [&] { sink.patch(9, bytesOf("xyz")); });
  expectLayoutError("patch of 1 bytes at 11 exceeds 11 written",
                    [&] { sink.patch(11, bytesOf("x")); });
  sink.close();
  expectLayoutError("write after the sink was closed or discarded",
                    [&] { sink.write(bytesOf("x")); });
  expectLayoutError("patch after the sink was closed or discarded",
                    [&] { sink.patch(0, bytesOf("x")); });
  EXPECT_EQ(readFile(directory / "out.bin"), "0123456789a");
}

TEST(FileByteSink, DiscardDeletesTheFile) {
  TempDirectory directory;
  FileByteSink sink(directory / "out.bin");
  sink.write(bytesOf("partial"));
  sink.discard();
  EXPECT_FALSE(std::filesystem::exists(directory / "out.bin"));
  expectLayoutError("write after the sink was closed or discarded",
                    [&] { sink.write(bytesOf("x")); });
}

TEST(MemoryByteSink, PatchesInPlaceAndRejectsRangesPastTheEnd) {
  MemoryByteSink sink;
  sink.write(bytesOf("abcdef"));
  sink.patch(0, bytesOf("XY"));
  sink.patch(4, bytesOf("ZZ"));
  sink.patch(6, {});
  EXPECT_EQ(sink.data, bytesOf("XYcdZZ"));
  EXPECT_EQ(sink.offset(), 6u);
  expectLayoutError("patch of 2 bytes at 5 exceeds 6 written",
                    [&] { sink.patch(5, bytesOf("12")); });
  expectLayoutError("patch of 0 bytes at 7 exceeds 6 written", [&] { sink.patch(7, {}); });
  EXPECT_EQ(sink.data, bytesOf("XYcdZZ"));
}

}  // namespace
}  // namespace brimble
