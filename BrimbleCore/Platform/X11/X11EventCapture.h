#pragma once

#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble::x11 {

/// Input events from XInput 2.2 raw events on the root window of a connection of its own, read
/// on a thread of its own. Raw events name the device that produced them, which tells XTest
/// input (ours) from a person's. A pointer warp produces no raw event, so the pointer is also
/// sampled about 60 times a second. `start` and `stopAndCollectEvents` from one thread; the clock
/// must outlive it.
class X11EventCapture final : public EventCapture {
 public:
  X11EventCapture(std::string displayName, const Clock& clock);
  X11EventCapture(const X11EventCapture&) = delete;
  X11EventCapture& operator=(const X11EventCapture&) = delete;
  X11EventCapture(X11EventCapture&&) = delete;
  X11EventCapture& operator=(X11EventCapture&&) = delete;
  ~X11EventCapture() override = default;  // the jthread stops and joins

  bool start() override;
  std::vector<InputEvent> stopAndCollectEvents() override;

 private:
  void listen(const std::stop_token& stop, XDisplayPtr display, int opcode,
              const std::set<int>& xtestDevices, ScreenPoint position);
  void add(InputEvent event);

  const std::string displayName_;
  const Clock& clock_;
  Clock::TimePoint started_;  // written before the thread starts
  std::mutex eventsMutex_;    // guards events_
  std::vector<InputEvent> events_;
  std::jthread thread_;
};

}  // namespace brimble::x11
