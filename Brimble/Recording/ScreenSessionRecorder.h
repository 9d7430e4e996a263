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
  void pause() override { recorder_.pause(); }
  void resume() override { recorder_.resume(); }
  std::unique_ptr<CompressedFrameStore> stopAndCollectFrameStore() override {
    return recorder_.stopAndCollectFrameStore();
  }
  bool isDiskCritical() const override { return recorder_.isDiskCritical(); }
  Clock::TimePoint lastChangeDate() const override { return recorder_.lastChangeDate(); }
  std::int64_t lostFrameCount() const override { return recorder_.lostFrameCount(); }

 private:
  ScreenSource& source_;
  ScreenRecorder recorder_;
};

}  // namespace brimble
