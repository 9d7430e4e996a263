// Screen capture under load, on Brimble's embedded display (1920x1080):
//
//  1. the embedded display from start to ready (Xvfb, session bus, openbox), several times;
//  2. the cost of one frame, step by step, on the calling thread's CPU clock: grab through
//     MIT-SHM and through XGetImage, the pointer (XFixes image and blend), JPEG at quality 85;
//  3. sustained recordings of the whole display at 30 and 60 fps through ScreenRecorder into a
//     frame file: frames written, achieved fps, skipped ticks, CPU per frame and cores used (this
//     process), and the X server's CPU beside it.
//
// The screen shows an xterm that redraws a page of text ten times a second, so frames differ
// and JPEG has real text to compress. A 1280x800 area is recorded at 30 fps too, to compare with:
//
//  4. Wayland, in a headless GNOME session (mutter, its 1280x800 virtual monitor, the desktop
//     portal and PipeWire): a later capture's start (the permission remembered) to its first
//     frame, and a sustained 30 fps recording of the monitor through ScreenRecorder while a
//     window redraws a page of text sixty times a second: frames, achieved fps, CPU per frame
//     and cores used (this process), and the compositor's CPU beside it.
//
//   BrimbleCaptureBench [SECONDS] [x11|wayland]   (default 10 s, both)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11ScreenStream.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "tests/Support/WaylandSession.h"

namespace {

using namespace brimble;
using Clock = std::chrono::steady_clock;

double seconds(Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

double threadCPU() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double processCPU() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto toSeconds = [](const timeval& value) {
    return static_cast<double>(value.tv_sec) + static_cast<double>(value.tv_usec) * 1e-6;
  };
  return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

/// User and system CPU seconds of another process, from /proc.
double otherProcessCPU(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string field;
  double ticks = 0;
  for (int i = 1; i <= 15 && stat >> field; ++i) {
    if (i == 14 || i == 15) {
      ticks += std::stod(field);
    }
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void displayStartup() {
  std::vector<double> ready;
  std::vector<double> stopped;
  for (int run = 0; run < 7; ++run) {
    const auto start = Clock::now();
    auto display = x11::HeadlessDisplay::start();
    const auto up = Clock::now();
    display.reset();
    ready.push_back(seconds(up - start) * 1000);
    stopped.push_back(seconds(Clock::now() - up) * 1000);
  }
  std::printf(
      "| embedded display start to ready | %.0f ms | min %.0f, max %.0f; teardown %.0f ms |\n",
      median(ready), *std::min_element(ready.begin(), ready.end()),
      *std::max_element(ready.begin(), ready.end()), median(stopped));
}

struct StepCost {
  double cpu = 0;   // ms on this thread's CPU clock
  double wall = 0;  // ms, round trips to the X server included
};

/// The cost per call of `step` over `count` calls.
template <typename Step>
StepCost perCall(int count, Step step) {
  step();  // warm: segments, caches, the first connection round trips
  const double cpuBefore = threadCPU();
  const auto wallBefore = Clock::now();
  for (int i = 0; i < count; ++i) {
    step();
  }
  return {(threadCPU() - cpuBefore) * 1000 / count,
          seconds(Clock::now() - wallBefore) * 1000 / count};
}

void frameSteps(const std::string& displayName, const ScreenRect& screen) {
  const int count = 300;
  const auto target = CaptureTarget::screenAreaOf(screen);
  x11::X11ScreenStream shared(displayName, target, false, true);
  x11::X11ScreenStream copied(displayName, target, false, false);
  x11::X11ScreenStream withCursor(displayName, target, true, true);
  // The pointer's cost on a small area, where the grab itself costs next to nothing.
  const auto corner = CaptureTarget::screenAreaOf({screen.x, screen.y, 64, 64});
  x11::X11ScreenStream small(displayName, corner, false, true);
  x11::X11ScreenStream smallWithCursor(displayName, corner, true, true);
  const StepCost sharedGrab = perCall(count, [&] { shared.grab(); });
  const StepCost copiedGrab = perCall(count / 4, [&] { copied.grab(); });
  const StepCost smallGrab = perCall(count * 10, [&] { small.grab(); });
  const StepCost cursorGrab = perCall(count * 10, [&] { smallWithCursor.grab(); });
  const Image frame = *withCursor.grab();
  const StepCost jpeg =
      perCall(count / 2, [&] { ScreenRecorder::compress(frame, ScreenRecorder::kJPEGQuality); });
  const auto bytes = ScreenRecorder::compress(frame, ScreenRecorder::kJPEGQuality)->size();
  std::printf(
      "| grab 1920x1080, MIT-SHM (%s) | %.2f ms CPU, %.2f ms wall | the copy that forces "
      "alpha included |\n",
      shared.usesSharedMemory() ? "in use" : "REFUSED", sharedGrab.cpu, sharedGrab.wall);
  std::printf("| grab 1920x1080, XGetImage fallback | %.2f ms CPU, %.2f ms wall | |\n",
              copiedGrab.cpu, copiedGrab.wall);
  std::printf(
      "| pointer: XFixes image and blend | %.3f ms CPU, %.3f ms wall | 64x64 grabs with the "
      "pointer minus without |\n",
      cursorGrab.cpu - smallGrab.cpu, cursorGrab.wall - smallGrab.wall);
  std::printf("| JPEG quality 85, 1920x1080 of text | %.2f ms CPU, %.2f ms wall | %zu bytes |\n",
              jpeg.cpu, jpeg.wall, bytes);
}

/// Records `area` of `screen` (all of it when empty) for `length` seconds at `fps`, the pointer
/// drawn in, and prints what it cost this process and `server` (the X server or compositor).
void sustained(ScreenSource& source, const ScreenDisplay& screen, const ScreenRect& area, int fps,
               double length, pid_t server, const char* label) {
  ScreenRecorder recorder(source, steadyClock());
  const double cpuBefore = processCPU();
  const double serverBefore = otherProcessCPU(server);
  const auto start = Clock::now();
  if (area.empty()) {
    recorder.start(screen, fps, true);
  } else {
    recorder.start(area, screen, fps, true);
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(length));
  const auto store = recorder.stopAndCollectFrameStore();
  const double wall = seconds(Clock::now() - start);
  const double cpu = processCPU() - cpuBefore;
  const double serverCPU = otherProcessCPU(server) - serverBefore;
  const int frames = store ? store->count() : 0;
  // A repeated picture compresses to the same bytes: what differs is what the screen sent anew.
  int changed = frames > 0 ? 1 : 0;
  for (int i = 1; i < frames; ++i) {
    changed += store->data(i) != store->data(i - 1) ? 1 : 0;
  }
  std::printf(
      "| %s: sustained %d fps, %.0f s, cursor on | %.1f fps achieved | %d frames (%d differ from "
      "the one before), %lld ticks skipped, %.2f ms CPU per frame, %.2f cores (%s %.2f cores "
      "more) |\n",
      label, fps, length, frames / wall, frames, changed,
      static_cast<long long>(recorder.skippedTickCount()), frames > 0 ? cpu * 1000 / frames : 0.0,
      cpu / wall, std::strcmp(label, "Wayland") == 0 ? "mutter" : "X server", serverCPU / wall);
}

void x11Capture(double length) {
  std::printf("| measurement | result | notes |\n|---|---|---|\n");
  displayStartup();

  const auto display = x11::HeadlessDisplay::start();
  // A page of text, redrawn ten times a second.
  Subprocess terminal =
      Subprocess::spawn({"xterm", "-geometry", "320x83+0+0", "-e", "sh", "-c",
                         "while :; do ls -l /usr/bin | head -n 82; date +%N; sleep 0.1; done"});
  std::this_thread::sleep_for(std::chrono::seconds(1));

  x11::X11ScreenSource source(display->displayName());
  const ScreenDisplay screen = source.displays().front();
  frameSteps(display->displayName(), screen.frame);
  for (const int fps : {30, 60}) {
    sustained(source, screen, {}, fps, length, display->serverPid(), "X11 1920x1080");
  }
  sustained(source, screen, {0, 0, 1280, 800}, 30, length, display->serverPid(), "X11 1280x800");
  terminal.terminate();
}

void waylandCapture(double length) {
  using namespace std::chrono_literals;
  const auto session = testing::WaylandSession::start();
  if (!session) {
    std::printf("| Wayland | not measured | no mutter on this machine |\n");
    return;
  }
  const std::filesystem::path tokenFile = std::filesystem::temp_directory_path() /
                                          ("brimble-capture-bench-" + std::to_string(::getpid())) /
                                          "screencast-token";
  const auto makeSource = [&] {
    return std::make_unique<wayland::WaylandScreenSource>(
        std::make_shared<wayland::DesktopPortal>(),
        wayland::WaylandScreenSource::Options{.tokenFile = tokenFile, .dialogTimeout = 30s});
  };
  const auto source = makeSource();
  session->approveScreenCastAfter(1500ms);
  const ScreenDisplay screen = source->displays().front();
  session->waitForDialogHelper();
  session->startApplication({BRIMBLE_SOURCE_DIR "/tests/Support/wayland-churn.py"});
  std::this_thread::sleep_for(3s);

  std::vector<double> starts;
  for (int run = 0; run < 5; ++run) {
    // A later capture: the token skips the dialog.
    const auto start = Clock::now();
    const auto again = makeSource();
    const auto frame = again->openStream(CaptureTarget::screenAreaOf(screen.frame), false)->grab();
    starts.push_back(seconds(Clock::now() - start) * 1000);
    if (!frame) {
      std::printf("| Wayland | no frame | the later capture got no picture |\n");
      return;
    }
  }
  std::printf(
      "| Wayland: later capture, start to first frame | %.0f ms | min %.0f, max %.0f; new "
      "session with the remembered permission, no dialog |\n",
      median(starts), *std::min_element(starts.begin(), starts.end()),
      *std::max_element(starts.begin(), starts.end()));
  // What the redrawing window costs the compositor on its own, to tell the capture's share.
  const double idleBefore = otherProcessCPU(session->compositorPid());
  const auto idleStart = Clock::now();
  std::this_thread::sleep_for(std::chrono::duration<double>(length));
  std::printf(
      "| Wayland: mutter, no capture | %.2f cores | the window redrawing alone |\n",
      (otherProcessCPU(session->compositorPid()) - idleBefore) / seconds(Clock::now() - idleStart));
  sustained(*source, screen, {}, 30, length, session->compositorPid(), "Wayland");
  std::filesystem::remove_all(tokenFile.parent_path());
}

}  // namespace

int main(int argc, char** argv) {
  const double length = argc > 1 ? std::atof(argv[1]) : 10;
  const std::string mode = argc > 2 ? argv[2] : "";
  if (mode.empty() || mode == "x11") {
    x11Capture(length);
  }
  // Last: the session points this process's environment at itself.
  if (mode.empty() || mode == "wayland") {
    if (mode == "wayland") {
      std::printf("| measurement | result | notes |\n|---|---|---|\n");
    }
    waylandCapture(length);
  }
  return 0;
}
