// Element discovery over AT-SPI on a real GTK application (gtk3-widget-factory) in Brimble's
// embedded display: listing up to 500 elements, resolving one `text:` target late in the tree,
// and one that is nowhere (a whole walk). Medians and maxima over repeated runs.
//
//   BrimbleAccessibilityBench [RUNS]   (default 20)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "tests/Support/ChildProcess.h"

namespace {

using namespace brimble;
using Clock = std::chrono::steady_clock;

struct Timing {
  double median = 0;
  double max = 0;
};

Timing measure(int runs, const std::function<void()>& work) {
  std::vector<double> milliseconds;
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    work();
    milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  std::sort(milliseconds.begin(), milliseconds.end());
  return {milliseconds[milliseconds.size() / 2], milliseconds.back()};
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
  const auto display = x11::HeadlessDisplay::start();
  testing::ChildProcess app({"gtk3-widget-factory"});
  atspi::ATSPIAccessibility accessibility;
  std::unique_ptr<ElementDriver> driver;
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  while (Clock::now() < deadline) {
    try {
      driver = accessibility.driverFor(app.pid());
      if (driver->find("text:page 3")) {
        break;
      }
    } catch (const DemoDriverError&) {
      // not on the bus yet
    }
    driver.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  if (!driver) {
    std::fprintf(stderr, "gtk3-widget-factory did not show its elements: %s\n",
                 app.errorOutput().c_str());
    return 1;
  }
  std::size_t listed = 0;
  const Timing list = measure(runs, [&] { listed = driver->listElements(500).size(); });
  const Timing found = measure(runs, [&] { driver->find("text:page 3"); });
  const Timing missing = measure(runs, [&] { driver->find("text:Nowhere at all"); });
  std::printf("listElements(500): %zu elements, median %.1f ms, max %.1f ms (target 500 ms)\n",
              listed, list.median, list.max);
  std::printf("resolve text:page 3: median %.1f ms, max %.1f ms (target 200 ms)\n", found.median,
              found.max);
  std::printf("resolve a missing text: target (whole walk): median %.1f ms, max %.1f ms\n",
              missing.median, missing.max);
  return 0;
}
