#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "Brimble/Recording/AnnotationStore.h"
#include "Brimble/Recording/SessionScheduler.h"
#include "Brimble/Settings/AppSettings.h"
#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Encoding/RecordingEncoder.h"
#include "BrimbleCore/Encoding/SizeBudgetEncoder.h"

namespace brimble {

/// A finished desktop recording, as its encode needs it.
struct FinishedRecording {
  std::shared_ptr<const CompressedFrameStore> frames;
  /// Recording time, pauses left out.
  double seconds = 0;
  /// The recording time of each frame.
  std::vector<double> frameTimes;
  /// What the frames show, in screen coordinates, when the marks are to be drawn into them
  /// (SessionRecorder::markedArea); none when the frames show them already.
  std::optional<ScreenRect> markedArea;
  std::vector<Annotation> annotations;
};

/// What an encode produced: a clip in the library folder, or why there is none to hand over.
struct EncodedClip {
  std::filesystem::path file;
  OutputFormat format = OutputFormat::gif;
  int frames = 0;
  /// Passes of the size-budget loop that were written.
  int passes = 1;
  std::optional<std::string> failure;
};

/// Builds and runs the encode of one finished desktop recording at a time: the options from the
/// encoding settings, frames with the marks drawn in, progress posted back to the main thread,
/// the size-budget passes, and cancellation. Main thread only; the encode itself runs through
/// the scheduler's worker, and its results arrive as posted calls that do nothing once the
/// encode was cancelled or the job is gone.
class EncodingJob {
 public:
  /// Writes `count` frames to `output`; SizeBudgetEncoder::encode in the application.
  using SequenceWriter = std::function<SizeBudgetEncoder::Result(
      int count, const FrameSupplier& frameAt, const std::filesystem::path& output,
      const SequenceOptions& options, std::uint64_t budgetBytes,
      const SizeBudgetEncoder::PassStarted& passStarted)>;
  /// The progress of the pass being written (0 to 1) and its number, from 1.
  using Progress = std::function<void(double fraction, int pass)>;
  using Finished = std::function<void(const EncodedClip& clip)>;

  /// `scheduler` must outlive the job. Clips are written into `captureDirectory`, which is
  /// created when missing.
  EncodingJob(SessionScheduler& scheduler, std::filesystem::path captureDirectory,
              SequenceWriter writer);
  EncodingJob(const EncodingJob&) = delete;
  EncodingJob& operator=(const EncodingJob&) = delete;
  /// Stops a running encode; nothing more is reported for it.
  ~EncodingJob();

  /// Starts encoding `recording` as `encoding` says, with a budget of `encoding.maxFileSizeKB`.
  /// `progress` and then `finished` are called on the main thread, unless the encode is
  /// cancelled first; a clip it wrote meanwhile is deleted then.
  void start(FinishedRecording recording, const EncodingSettings& encoding, Progress progress,
             Finished finished);
  /// Stops the running encode, if any.
  void cancel();

 private:
  void finish(std::uint64_t generation, const SizeBudgetEncoder::Result& result,
              const std::string& failure, const std::filesystem::path& output, OutputFormat format,
              int budgetKB);
  std::filesystem::path newCapturePath(OutputFormat format) const;

  SessionScheduler& scheduler_;
  const std::filesystem::path captureDirectory_;
  const SequenceWriter writer_;

  /// Each encode gets a number; results of a cancelled one arrive with a stale number and are
  /// dropped.
  std::uint64_t generation_ = 0;
  bool running_ = false;
  int pass_ = 1;
  std::stop_source stop_;
  Progress progress_;
  Finished finished_;
  /// Posted calls hold it weakly: they do nothing once the job is gone.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace brimble
