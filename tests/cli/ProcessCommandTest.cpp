// `brimble process` on GIFs far larger decoded than on disk: memory, hostile headers, Ctrl-C.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gif_lib.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Encoding/GIFDecoder.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/TempDirectory.h"

#if defined(__SANITIZE_ADDRESS__)
#define BRIMBLE_TEST_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BRIMBLE_TEST_UNDER_ASAN 1
#endif
#endif

namespace brimble {
namespace {

using testing::TempDirectory;

// The address space a `brimble process` child may take: far more than streaming needs, and far
// less than decoding every frame of the clips below, so a regression fails with bad_alloc rather
// than taking the machine's memory. AddressSanitizer reserves terabytes up front: no limit there.
constexpr rlim_t kChildAddressSpace = rlim_t{3} << 30;

/// Where each of a clip's small moving squares is drawn, and how big it is.
struct DotLayout {
  int screenWidth = 0;            // the logical screen the header claims
  int screenHeight = 0;           //
  int canvasWidth = 0;            // how far the images reach: what a decoder must hold per frame
  int canvasHeight = 0;           //
  bool paintedBackground = true;  // a first image filling the canvas, else one pixel in its corner
  int frames = 0;
  int dotSize = 16;
};

struct GifFileCloser {
  void operator()(GifFileType* gif) const noexcept { EGifCloseFile(gif, nullptr); }
};

void putImage(GifFileType* gif, int left, int top, int width, int height, GifPixelType colour) {
  GraphicsControlBlock control{};
  control.DisposalMode = DISPOSE_DO_NOT;
  control.DelayTime = 4;
  control.TransparentColor = NO_TRANSPARENT_COLOR;
  GifByteType extension[4];
  EGifGCBToExtension(&control, extension);
  ASSERT_EQ(EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, extension), GIF_OK);
  ASSERT_EQ(EGifPutImageDesc(gif, left, top, width, height, false, nullptr), GIF_OK);
  std::vector<GifPixelType> line(static_cast<std::size_t>(width), colour);
  for (int y = 0; y < height; ++y) {
    ASSERT_EQ(EGifPutLine(gif, line.data(), width), GIF_OK);
  }
}

/// A GIF a few kilobytes long that decodes to `layout.frames` full canvases, each with a square
/// moved on from the one before, so that no frame repeats another. Written with giflib directly:
/// our own writer would never lay a file out like this.
void writeDotGIF(const std::filesystem::path& file, const DotLayout& layout) {
  int error = 0;
  const std::unique_ptr<GifFileType, GifFileCloser> gif(
      EGifOpenFileName(file.c_str(), false, &error));
  ASSERT_TRUE(gif) << GifErrorString(error);
  EGifSetGifVersion(gif.get(), true);
  GifColorType colours[4] = {{0, 0, 0}, {250, 250, 250}, {220, 30, 30}, {30, 30, 220}};
  ColorMapObject* map = GifMakeMapObject(4, colours);
  ASSERT_EQ(EGifPutScreenDesc(gif.get(), layout.screenWidth, layout.screenHeight, 8, 0, map),
            GIF_OK);
  GifFreeMapObject(map);
  if (layout.paintedBackground) {
    putImage(gif.get(), 0, 0, layout.canvasWidth, layout.canvasHeight, 1);
  } else {
    putImage(gif.get(), layout.canvasWidth - 1, layout.canvasHeight - 1, 1, 1, 1);
  }
  const int columns = layout.canvasWidth / layout.dotSize;
  const int rows = layout.canvasHeight / layout.dotSize;
  for (int i = 1; i < layout.frames; ++i) {
    // Diagonal steps, so each square lands on a spot of its own.
    const int left = (i * 7 % columns) * layout.dotSize;
    const int top = (i * 3 % rows) * layout.dotSize;
    putImage(gif.get(), left, top, layout.dotSize, layout.dotSize, i % 2 == 0 ? 2 : 3);
  }
}

struct MeasuredRun {
  int exitCode = -1;
  long peakKilobytes = 0;  // the child's own resident peak
  std::string errorOutput;
};

/// Runs `arguments` with standard error to a file, within kChildAddressSpace, and waits for it.
MeasuredRun runMeasured(const std::vector<std::string>& arguments,
                        const std::filesystem::path& errorFile) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
#if !defined(BRIMBLE_TEST_UNDER_ASAN)
    const rlimit limit{kChildAddressSpace, kChildAddressSpace};
    setrlimit(RLIMIT_AS, &limit);
#endif
    const int errorFd = open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int nullFd = open("/dev/null", O_RDWR);
    dup2(nullFd, STDIN_FILENO);
    dup2(nullFd, STDOUT_FILENO);
    dup2(errorFd, STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  MeasuredRun run;
  int status = 0;
  rusage usage{};
  if (pid < 0 || wait4(pid, &status, 0, &usage) != pid) {
    ADD_FAILURE() << "could not run " << arguments.front();
    return run;
  }
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  run.peakKilobytes = usage.ru_maxrss;
  run.errorOutput = testing::readFile(errorFile);
  return run;
}

/// Whether `brimble process IN -o OUT` succeeded, checked to stay under `limitMB` of resident
/// memory.
bool processedWithin(const std::filesystem::path& in, const std::filesystem::path& out,
                     [[maybe_unused]] long limitMB) {
  const MeasuredRun run = runMeasured({BRIMBLE_BINARY, "process", in.string(), "-o", out.string()},
                                      out.parent_path() / "stderr.txt");
  EXPECT_EQ(run.exitCode, 0) << run.errorOutput;
#if !defined(BRIMBLE_TEST_UNDER_ASAN)
  EXPECT_LT(run.peakKilobytes, limitMB * 1024) << "peak resident memory in KB";
#endif
  return run.exitCode == 0;
}

/// The frames of a GIF read back one at a time (what every frame decoded at once would cost is
/// what is tested here): their count and the last.
struct LastFrame {
  int frames = 0;
  std::optional<Image> image;
};

LastFrame readLastFrame(const std::filesystem::path& file) {
  LastFrame last;
  GIFDecoder decoder(file);
  while (auto frame = decoder.next()) {
    ++last.frames;
    last.image = std::move(frame->image);
  }
  return last;
}

void writeFullHDGIF(const std::filesystem::path& file, int frames) {
  writeDotGIF(file, {.screenWidth = 1920,
                     .screenHeight = 1080,
                     .canvasWidth = 1920,
                     .canvasHeight = 1080,
                     .frames = frames});
}

TEST(BrimbleProcess, AMinuteOfFullHDIsProcessedAFrameAtATime) {
  TempDirectory directory;
  const auto in = directory / "long.gif";
  // 200 frames of 1920x1080: 1.6 GB decoded all at once.
  writeFullHDGIF(in, 200);
  ASSERT_LT(std::filesystem::file_size(in), 200'000u);
  const auto out = directory / "out.gif";
  ASSERT_TRUE(processedWithin(in, out, 300));
  // Every frame is there, and the last one shows the last square where it was drawn.
  const LastFrame last = readLastFrame(out);
  EXPECT_EQ(last.frames, 200);
  ASSERT_TRUE(last.image);
  ASSERT_EQ(last.image->width(), 1920);
  const int left = (199 * 7 % (1920 / 16)) * 16;
  const int top = (199 * 3 % (1080 / 16)) * 16;
  const auto pixel =
      last.image->toBGRA8().row(top + 8).subspan(static_cast<std::size_t>(left + 8) * 4, 4);
  EXPECT_EQ(std::vector<int>(pixel.begin(), pixel.begin() + 3), (std::vector<int>{220, 30, 30}));
}

TEST(BrimbleProcess, AHugeLogicalScreenWithManyFramesStaysWithinBoundedMemory) {
  TempDirectory directory;
  const auto in = directory / "crafted.gif";
  // The header claims 65535x65535; the images reach 4096x2048 (32 MB a frame) and there are 40
  // of them in a few kilobytes: 1.3 GB decoded all at once.
  writeDotGIF(in, {.screenWidth = 65535,
                   .screenHeight = 65535,
                   .canvasWidth = 4096,
                   .canvasHeight = 2048,
                   .paintedBackground = false,
                   .frames = 40,
                   .dotSize = 4});
  ASSERT_LT(std::filesystem::file_size(in), 20'000u);
  const auto out = directory / "out.gif";
  ASSERT_TRUE(processedWithin(in, out, 512));
  GIFDecoder written(out);
  EXPECT_EQ(written.size(), (ImageSize{4096, 2048}));
  EXPECT_EQ(written.frameCount(), 40);
}

TEST(BrimbleProcess, CtrlCEndsALongProcessAtOnceAndWritesNothing) {
  TempDirectory directory;
  const auto in = directory / "long.gif";
  writeFullHDGIF(in, 2000);
  const auto out = directory / "out.gif";
  std::vector<std::string> command = {BRIMBLE_BINARY, "process", in.string(), "-o", out.string()};
#if !defined(BRIMBLE_TEST_UNDER_ASAN)
  // Within the same address space as above, by the shell that becomes brimble.
  command = {"/bin/sh",
             "-c",
             "ulimit -v " + std::to_string(kChildAddressSpace / 1024) + " && exec \"$0\" \"$@\"",
             BRIMBLE_BINARY,
             "process",
             in.string(),
             "-o",
             out.string()};
#endif
  testing::ChildProcess process(command);
  // Well into the clip: the output's temporary file exists once the first frame is written.
  for (int i = 0; i < 300 && testing::entriesIn(directory.path()) < 2; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  ASSERT_FALSE(process.wait(std::chrono::milliseconds(0))) << process.errorOutput();
  const auto interrupted = std::chrono::steady_clock::now();
  process.signal(SIGINT);
  const std::optional<int> exitCode = process.wait(std::chrono::seconds(10));
  const auto took = std::chrono::steady_clock::now() - interrupted;
  EXPECT_EQ(exitCode, 130);
  EXPECT_LT(took, std::chrono::milliseconds(1000));
  EXPECT_EQ(process.errorOutput(), "brimble process: interrupted; nothing was written\n");
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(testing::entriesIn(directory.path()), 1);
}

}  // namespace
}  // namespace brimble
