#include "Brimble/Recording/EncodingJob.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <system_error>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "Brimble/Recording/AnnotationPainter.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

/// The marks of a window recording drawn into its frames, each from the frame captured when it
/// was finished; nothing for other recordings.
RecordingOverlay marksOverlay(const FinishedRecording& recording) {
  if (!recording.markedArea || recording.annotations.empty()) {
    return {};
  }
  const auto painter =
      std::make_shared<const AnnotationPainter>(recording.annotations, *recording.markedArea);
  const auto timeOf = [frameTimes = recording.frameTimes](int index) {
    return static_cast<std::size_t>(index) < frameTimes.size()
               ? frameTimes[static_cast<std::size_t>(index)]
               : std::numeric_limits<double>::infinity();
  };
  RecordingOverlay overlay;
  overlay.paint = [painter, timeOf](const Image& frame, int index) {
    return painter->paint(frame, timeOf(index));
  };
  overlay.changesAt = [painter, timeOf](int index) {
    return painter->visibleAt(timeOf(index)) != painter->visibleAt(timeOf(index - 1));
  };
  return overlay;
}

}  // namespace

EncodingJob::EncodingJob(SessionScheduler& scheduler, fs::path captureDirectory,
                         SequenceWriter writer)
    : scheduler_(scheduler),
      captureDirectory_(std::move(captureDirectory)),
      writer_(std::move(writer)) {}

EncodingJob::~EncodingJob() {
  stop_.request_stop();
}

void EncodingJob::start(FinishedRecording recording, const EncodingSettings& encoding,
                        Progress progress, Finished finished) {
  SequenceOptions requested;
  requested.fps = encoding.frameRate;
  requested.loopCount = encoding.loopCount;
  requested.frameDiffing = encoding.frameDiffing;
  requested.deduplicate = encoding.frameDeduplication;
  requested.format = encoding.format;
  requested.webpQuality = static_cast<float>(encoding.webpQuality);
  requested.tuning.webpMode = encoding.webpLossless ? WebPMode::lossless : WebPMode::lossy;
  RecordingOverlay overlay = marksOverlay(recording);
  RecordingSequence sequence = RecordingEncoder::prepare(
      std::move(recording.frames), recording.seconds, std::move(requested), std::move(overlay));

  stop_ = std::stop_source();
  sequence.options.stop = stop_.get_token();
  const std::uint64_t generation = ++generation_;
  running_ = true;
  pass_ = 1;
  progress_ = std::move(progress);
  finished_ = std::move(finished);
  const std::weak_ptr<bool> alive = alive_;
  // Progress comes from worker threads, which must not touch the job: it travels to the main
  // thread as posted calls, and only there is the job looked at.
  SessionScheduler& scheduler = scheduler_;
  auto post = [this, alive, generation, &scheduler](std::function<void()> update) {
    scheduler.post([this, alive, generation, update = std::move(update)] {
      if (alive.lock() && generation == generation_ && running_) {
        update();
      }
    });
  };
  sequence.options.progress = [this, post](RenderPhase renderPhase, int done, int total) {
    if (renderPhase != RenderPhase::encode || total <= 0) {
      return;
    }
    const double fraction = static_cast<double>(done) / total;
    post([this, fraction] {
      if (progress_) {
        progress_(fraction, pass_);
      }
    });
  };
  const SizeBudgetEncoder::PassStarted passStarted = [this, post](int pass) {
    post([this, pass] {
      pass_ = pass;
      if (progress_) {
        progress_(0, pass_);
      }
    });
  };

  const fs::path output = newCapturePath(encoding.format);
  const std::uint64_t budget =
      static_cast<std::uint64_t>(std::max(0, encoding.maxFileSizeKB)) * 1024;
  auto result = std::make_shared<SizeBudgetEncoder::Result>();
  auto failure = std::make_shared<std::string>();
  scheduler_.runInBackground(
      [sequence, output, budget, passStarted, result, failure, writer = writer_] {
        try {
          fs::create_directories(output.parent_path());
          *result = writer(sequence.count, sequence.frameAt, output, sequence.options, budget,
                           passStarted);
        } catch (const CancellationError&) {
          *failure = "cancelled";
        } catch (const std::exception& error) {
          *failure = error.what();
          if (failure->empty()) {
            *failure = "unknown error";
          }
        }
      },
      [this, alive, generation, result, failure, output, format = encoding.format,
       budgetKB = encoding.maxFileSizeKB] {
        if (alive.lock()) {
          finish(generation, *result, *failure, output, format, budgetKB);
        }
      });
}

void EncodingJob::cancel() {
  if (!running_) {
    return;
  }
  stop_.request_stop();
  ++generation_;
  running_ = false;
}

void EncodingJob::finish(std::uint64_t generation, const SizeBudgetEncoder::Result& result,
                         const std::string& failure, const fs::path& output, OutputFormat format,
                         int budgetKB) {
  if (generation != generation_ || !running_) {
    // Cancelled meanwhile: whatever was written goes too.
    std::error_code ignored;
    fs::remove(output, ignored);
    return;
  }
  running_ = false;
  EncodedClip clip{output, format, result.summary.frames, result.passes, std::nullopt};
  if (!failure.empty() || result.summary.frames == 0) {
    clip.failure = failure.empty() ? "no frame could be decoded" : failure;
  } else {
    if (!result.fits) {
      logLine(fmt::format("Brimble: File size {}KB exceeds budget {}KB after {} passes",
                          result.fileSize / 1024, budgetKB, result.passes));
    }
    std::error_code error;
    const auto size = fs::file_size(output, error);
    if (error || size == 0) {
      logLine("Brimble: encode reported success but reading back " + output.string() + " failed");
      clip.failure = "the written file could not be read back";
    }
  }
  // Moved out first: what `finished` does may start the next encode.
  const Finished finished = std::move(finished_);
  progress_ = {};
  if (finished) {
    finished(clip);
  }
}

fs::path EncodingJob::newCapturePath(OutputFormat format) const {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const std::string stem = fmt::format("Brimble {:%Y-%m-%d at %H.%M.%S}", now);
  fs::path path = captureDirectory_ / (stem + "." + std::string(fileExtension(format)));
  for (int n = 2; fs::exists(path); ++n) {
    path = captureDirectory_ / fmt::format("{} ({}).{}", stem, n, fileExtension(format));
  }
  return path;
}

}  // namespace brimble
