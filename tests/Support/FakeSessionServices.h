#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "Brimble/Recording/ClipDelivery.h"
#include "Brimble/Recording/RecordingView.h"
#include "Brimble/Recording/SessionRecorder.h"
#include "Brimble/Recording/SessionScheduler.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Images.h"

namespace brimble::testing {

/// What the fake recorders of a test do and did; shared by every recorder its factory makes.
struct FakeRecorderScript {
  std::vector<std::string> events;
  std::optional<std::string> startFailure;
  /// Frames handed back at stop: each a 16x16 JPEG of its own grey.
  int frames = 6;
  /// Seconds of recording time between frames.
  double frameInterval = 0.5;
  /// What a window recording's frames show.
  std::optional<ScreenRect> markedArea;
  bool diskCritical = false;
  std::int64_t lostFrames = 0;
  Clock::TimePoint lastChange{};
};

class FakeSessionRecorder final : public SessionRecorder {
 public:
  explicit FakeSessionRecorder(FakeRecorderScript& script) : script_(script) {}
  ~FakeSessionRecorder() override { script_.events.push_back("destroyed"); }

  void start(const RecordingTarget& target, int fps, bool showCursor) override {
    if (script_.startFailure) {
      throw std::runtime_error(*script_.startFailure);
    }
    script_.events.push_back(fmt::format("start {} {},{} {}x{} window {} at {} fps{}",
                                         captureModeName(target.mode), target.region.x,
                                         target.region.y, target.region.width, target.region.height,
                                         target.windowID, fps, showCursor ? " with cursor" : ""));
  }
  void pause() override { script_.events.push_back("pause"); }
  void resume() override { script_.events.push_back("resume"); }
  std::unique_ptr<CompressedFrameStore> stopAndCollectFrameStore() override {
    script_.events.push_back("stop");
    auto store = std::make_unique<InMemoryFrameStore>();
    for (int i = 0; i < script_.frames; ++i) {
      const auto shade = static_cast<std::uint8_t>(i * 40);
      store->frames.push_back(encodeJPEG(solidImage(16, 16, {shade, shade, shade}), 90));
    }
    return store;
  }
  bool isDiskCritical() const override { return script_.diskCritical; }
  Clock::TimePoint lastChangeTime() const override { return script_.lastChange; }
  std::int64_t lostFrameCount() const override { return script_.lostFrames; }
  std::vector<double> frameTimes() const override {
    std::vector<double> times;
    for (int i = 0; i < script_.frames; ++i) {
      times.push_back(i * script_.frameInterval);
    }
    return times;
  }
  std::optional<ScreenRect> markedArea() const override { return script_.markedArea; }

 private:
  FakeRecorderScript& script_;
};

/// Records the view's calls as readable lines.
class FakeRecordingView final : public RecordingView {
 public:
  void showRegionOverlay() override { calls.push_back("overlay"); }
  void showWindowPicker() override { calls.push_back("window picker"); }
  void hideSelection() override { calls.push_back("hide selection"); }
  void showPanel(PanelMode mode, const ScreenRect& region) override {
    static const char* const kModes[] = {"ready", "countdown", "recording"};
    calls.push_back(fmt::format("panel {} {},{} {}x{}", kModes[static_cast<int>(mode)], region.x,
                                region.y, region.width, region.height));
  }
  void showCountdown(int seconds, const std::string& accessibleText) override {
    calls.push_back(fmt::format("countdown {} ({})", seconds, accessibleText));
  }
  void showElapsed(const std::string& text, const std::string& accessibleText) override {
    calls.push_back(fmt::format("timer {} ({})", text, accessibleText));
  }
  void showPaused(bool paused) override { calls.push_back(paused ? "look resume" : "look pause"); }
  void dismissPanel() override { calls.push_back("dismiss panel"); }
  void showAnnotationLayer(bool visible, bool drawing) override {
    calls.push_back(!visible  ? "annotations off"
                    : drawing ? "annotations drawing"
                              : "annotations shown");
  }
  void announce(const std::string& text) override { announcements.push_back(text); }
  void showMessage(const std::string& text, MessageKind kind) override {
    static const char* const kKinds[] = {"info", "warning", "error"};
    messages.push_back(fmt::format("{}: {}", kKinds[static_cast<int>(kind)], text));
  }

  std::vector<std::string> calls;
  std::vector<std::string> announcements;
  std::vector<std::string> messages;
};

class FakeClipDelivery final : public ClipDelivery {
 public:
  void copyToClipboard(const std::filesystem::path& file, OutputFormat format) override {
    calls.push_back(fmt::format("clipboard {} {}", file.filename().string(), mimeType(format)));
    delivered = file;
  }
  std::optional<std::filesystem::path> chooseSaveLocation(const std::filesystem::path& suggested,
                                                          OutputFormat) override {
    calls.push_back("save dialog at " + suggested.parent_path().string());
    return saveAnswer;
  }
  void share(const std::filesystem::path& file) override {
    calls.push_back("share " + file.filename().string());
    delivered = file;
  }
  void openPreview(const std::filesystem::path& file) override {
    calls.push_back("preview " + file.filename().string());
  }

  std::vector<std::string> calls;
  std::optional<std::filesystem::path> delivered;
  std::optional<std::filesystem::path> saveAnswer;
};

/// Nothing runs until the test says so: posted calls and background work wait in queues, and
/// timers fire when `fireTimers` is called.
class FakeSessionScheduler final : public SessionScheduler {
 public:
  void post(std::function<void()> call) override {
    std::scoped_lock lock(mutex_);
    posted_.push_back(std::move(call));
  }

  std::unique_ptr<ScheduledTimer> every(double seconds, std::function<void()> tick) override {
    auto timer = std::make_unique<Timer>(*this, seconds, std::move(tick));
    timers_.push_back(timer.get());
    return timer;
  }

  void runInBackground(std::function<void()> work, std::function<void()> done) override {
    background_.push_back({std::move(work), std::move(done)});
  }

  /// Runs posted calls until none is left.
  void runPosted() {
    for (;;) {
      std::function<void()> call;
      {
        std::scoped_lock lock(mutex_);
        if (posted_.empty()) {
          return;
        }
        call = std::move(posted_.front());
        posted_.pop_front();
      }
      call();
    }
  }
  /// Runs every background job and its completion, then the calls they posted.
  void runBackground() {
    while (!background_.empty()) {
      auto job = std::move(background_.front());
      background_.pop_front();
      job.first();
      runPosted();
      job.second();
    }
    runPosted();
  }
  /// One tick of every live timer.
  void fireTimers() {
    const std::vector<Timer*> live = timers_;
    for (Timer* timer : live) {
      if (std::find(timers_.begin(), timers_.end(), timer) != timers_.end()) {
        timer->tick();
      }
    }
  }
  std::size_t liveTimers() const { return timers_.size(); }
  std::size_t pendingBackground() const { return background_.size(); }

 private:
  struct Timer final : ScheduledTimer {
    Timer(FakeSessionScheduler& owner, double interval, std::function<void()> callback)
        : scheduler(owner), seconds(interval), tick(std::move(callback)) {}
    ~Timer() override { std::erase(scheduler.timers_, this); }
    FakeSessionScheduler& scheduler;
    double seconds;
    std::function<void()> tick;
  };

  std::mutex mutex_;  // guards posted_: encoders post progress from their threads
  std::deque<std::function<void()>> posted_;
  std::vector<Timer*> timers_;
  std::deque<std::pair<std::function<void()>, std::function<void()>>> background_;
};

}  // namespace brimble::testing
