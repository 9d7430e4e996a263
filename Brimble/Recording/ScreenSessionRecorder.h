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
  /// Where the screen shows marks to the user but they may not reach the frames.
  enum class Marks { onScreen, drawnIntoFrames };

  /// `source` and `clock` must outlive the recorder. Marks are drawn into a window's frames
  /// whatever `marks` says.
  ScreenSessionRecorder(ScreenSource& source, Clock& clock, Marks marks = Marks::onScreen);

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
  std::optional<ScreenRect> markedArea() const override { return markedArea_; }

 private:
  struct Pause {
    double start = 0;
    double end = 0;
  };

  double secondsSinceStart() const;

  ScreenSource& source_;
  Clock& clock_;
  Marks marks_;
  ScreenRecorder recorder_;
  Clock::TimePoint startTime_{};
  std::optional<double> pauseStart_;
  std::vector<Pause> pauses_;
  std::optional<ScreenRect> markedArea_;
};

}  // namespace brimble
