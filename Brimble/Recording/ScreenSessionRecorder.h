#pragma once

#include <memory>

#include "Brimble/Recording/SessionRecorder.h"
#include "BrimbleCore/Capture/ScreenRecorder.h"

namespace brimble {

/// The session's recorder in the application: a ScreenRecorder over the screen source, which
/// picks the display a region lies on, or the one under the pointer for full screen. Main thread
/// only.
class ScreenSessionRecorder final : public SessionRecorder {
 public:
  /// `source` and `clock` must outlive the recorder.
  ScreenSessionRecorder(ScreenSource& source, Clock& clock);

  void start(const RecordingTarget& target, int fps, bool showCursor) override;
  void pause() override;
  void resume() override;
  std::unique_ptr<CompressedFrameStore> stopAndCollectFrameStore() override {
    return recorder_.stopAndCollectFrameStore();
  }
  bool isDiskCritical() const override { return recorder_.isDiskCritical(); }
  Clock::TimePoint lastChangeTime() const override { return recorder_.lastChangeTime(); }
  std::int64_t lostFrameCount() const override { return recorder_.lostFrameCount(); }
  std::vector<double> frameTimes() const override;
  std::optional<ScreenRect> windowArea() const override { return windowArea_; }

 private:
  struct Pause {
    double start = 0;
    double end = 0;
  };

  double secondsSinceStart() const;

  ScreenSource& source_;
  Clock& clock_;
  ScreenRecorder recorder_;
  Clock::TimePoint startTime_{};
  std::optional<double> pauseStart_;
  std::vector<Pause> pauses_;
  std::optional<ScreenRect> windowArea_;
};

}  // namespace brimble
