#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

class RecordingError : public std::runtime_error {
 public:
  enum class Code { noDisplay, frameStoreUnavailable };

  static RecordingError noDisplay();
  static RecordingError frameStoreUnavailable();

  Code code() const noexcept { return code_; }

 private:
  RecordingError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// A size in points. On Linux a point is a pixel, but the recorder keeps the two apart so the
/// maximum widths mean the same on every display.
struct PointSize {
  double width = 0;
  double height = 0;
};

/// The capture engine of one recording: it grabs a region, a display or a window from a
/// ScreenSource at the requested frame rate, compresses every frame to JPEG and appends it to a
/// frame writer, watches the free space of the temporary volume, and on stop hands the finished
/// frame store back.
///
/// Two threads of its own: the capture thread grabs on the ticks of a CapturePacer and hands
/// each frame over a queue of at most three to the ingest thread, which runs `ingestFrame` in
/// arrival order. Grabs stay on their ticks while JPEG runs beside them; when the ingest thread
/// falls behind, the capture thread waits for room, and the ticks it misses are skipped.
///
/// Thread-safe: any thread may pause, resume, read the counters and stop. One recording per
/// recorder.
class ScreenRecorder {
 public:
  /// Free bytes on the temporary volume, or no value when unknown.
  using DiskSpaceProvider = std::function<std::optional<std::uint64_t>()>;
  /// Makes the frame writer of a new recording; throws when it cannot.
  using FrameWriterFactory = std::function<std::unique_ptr<FrameWriting>()>;

  static constexpr double kJPEGQuality = 0.85;
  static constexpr double kRegionMaxWidthPoints = 900;
  static constexpr double kFullScreenMaxWidthPoints = 1920;
  static constexpr std::int64_t kDiskCheckInterval = 60;           // frames
  static constexpr std::uint64_t kDiskPressureBytes = 1ull << 30;  // 1 GiB
  static constexpr std::uint64_t kDiskCriticalBytes = 1ull << 28;  // 256 MiB

  /// `source` and `clock` must outlive the recorder. Frames go to a DiskFrameWriter in the
  /// temporary directory and free space is read from that directory, unless replaced below.
  ScreenRecorder(ScreenSource& source, Clock& clock);
  ScreenRecorder(const ScreenRecorder&) = delete;
  ScreenRecorder& operator=(const ScreenRecorder&) = delete;
  /// Stops capturing and deletes the frames of a recording that was never collected.
  ~ScreenRecorder();

  /// Replaceable before `start`, for tests of the disk logic and of failing writers.
  DiskSpaceProvider availableDiskSpaceProvider;
  FrameWriterFactory frameWriterFactory;
  /// Set before `start` to follow the pointer: at every grab the stream is also asked where the
  /// pointer is and what it looks like, so effects can draw it on frames taken without it.
  bool tracksPointer = false;

  /// Where the pointer was at `time` (seconds from the start), in screen coordinates, and the
  /// index of its picture in `cursorImages()` (-1 when unknown).
  struct PointerPosition {
    double time = 0;
    int x = 0;
    int y = 0;
    int cursor = -1;
  };

  /// Records `region` (screen coordinates) of the display `screen`, at most 900 points wide.
  /// The region is clipped to the display. Throws RecordingError::noDisplay when no display has
  /// `screen`'s identifier or the region lies outside it, RecordingError::frameStoreUnavailable,
  /// and ScreenCaptureError when the source cannot be captured. Returns once the stream is open
  /// on the capture thread.
  void start(const ScreenRect& region, const ScreenDisplay& screen, int fps, bool showCursor);
  /// Records the whole display `fullScreen`, at most 1920 points wide. Throws as above.
  void start(const ScreenDisplay& fullScreen, int fps, bool showCursor);
  /// Records `window` even where other windows cover it, at most 1920 points wide at the size it
  /// has now (later frames of another size are scaled to it). Throws RecordingError::
  /// frameStoreUnavailable and ScreenCaptureError (windowNotFound).
  void start(const ScreenWindow& window, int fps, bool showCursor);

  /// Stops capturing, finalizes the frame writer and returns the store of everything written;
  /// nothing when there was no recording or finalizing failed (the frames are deleted then).
  /// Logs how many frames were lost to write failures. The caller owns the store and its file.
  std::unique_ptr<CompressedFrameStore> stopAndCollectFrameStore();

  /// One captured bgra8 image, grabbed `captureTime` seconds after the recording started (no
  /// value: now): compressed to JPEG, compared with the last frame, written unless paused or
  /// dropped for disk pressure; every 60 frames the free space is checked. Called on the ingest
  /// thread (tests call it directly), one thread at a time.
  void ingestFrame(const Image& image, std::optional<double> captureTime = std::nullopt);

  /// When each frame of the store was grabbed, in seconds from the start of the recording, one
  /// entry per written frame. Complete once `stopAndCollectFrameStore` has returned.
  std::vector<double> frameTimes() const;
  /// The pointer at every grab while `tracksPointer` was set, in time order, and its pictures,
  /// each kept once. Complete once `stopAndCollectFrameStore` has returned.
  std::vector<PointerPosition> pointerTrack() const;
  std::vector<CursorImage> cursorImages() const;

  /// The pixel size of the stream for a capture of `pointSize`: scaled down to
  /// `maxWidthPoints` wide when wider, times `scale`, truncated and rounded down to even
  /// numbers. Aborts when a result does not fit an int.
  static ImageSize captureDimensions(PointSize pointSize, double scale, double maxWidthPoints);

  /// `image` as JPEG of `quality` (0...1); no value when compression fails.
  static std::optional<std::vector<std::uint8_t>> compress(const Image& image, double quality);

  /// Free bytes on the volume of the temporary directory; no value when it cannot be read.
  static std::optional<std::uint64_t> availableDiskSpace();

  /// Deletes the frame files that recordings of crashed processes left in the temporary
  /// directory: those untouched for an hour (kOrphanedFrameFileAge). Programs that record (the
  /// command line's record, run and mcp-server, the desktop application) call it once as they
  /// start; it logs how many it deleted.
  static void sweepOrphanedFrameFiles();
  static constexpr double kOrphanedFrameFileAge = 3600;

  /// While paused, frames are neither grabbed nor written.
  void pause();
  void resume();
  bool isPaused() const;

  /// Set once free space fell below 256 MiB: the owner should stop the recording.
  bool isDiskCritical() const;
  /// Set once free space fell below 1 GiB: every other frame is dropped from then on.
  bool isDiskConstrained() const;
  /// When the picture last changed (the clock's time), for inactivity checks.
  Clock::TimePoint lastChangeTime() const;
  std::int64_t ingestedFrameCount() const;
  std::int64_t lostFrameCount() const;
  /// The pixel size frames are recorded at; empty before `start`.
  ImageSize outputSize() const;

  /// Ticks of the frame clock that passed while the capture thread was still busy with an
  /// earlier frame (or waiting for the ingest thread), so were skipped.
  std::int64_t skippedTickCount() const noexcept { return skippedTicks_.load(); }
  /// Whether the capture thread has ended on its own (the window was closed, capture failed);
  /// the reason was logged.
  bool hasStreamEnded() const noexcept { return streamEnded_.load(); }

 private:
  /// The source's display of `displayID` as it is now; throws RecordingError::noDisplay.
  ScreenDisplay currentDisplay(std::uint32_t displayID);
  void startCapture(const CaptureTarget& target, ImageSize size, int fps, bool showCursor);
  void prepareFrameStore();
  void captureLoop(const std::stop_token& stop, const CaptureTarget& target, int fps,
                   bool showCursor, std::promise<void> opened);
  /// A grabbed frame on its way to the ingest thread.
  struct PendingFrame {
    Image image;
    double captureTime = 0;
  };

  /// Queues `frame` for the ingest thread, waiting for room; false when `stop` came first.
  bool handOver(const std::stop_token& stop, PendingFrame frame);
  void endCapture();
  /// Asks `stream` where the pointer is; called on the capture thread.
  void recordPointer(ScreenStream& stream, double time);
  void ingestLoop(const std::stop_token& stop, ImageSize size);
  /// Stops the capture thread, then lets the ingest thread finish the frames it was handed.
  void stopThreads();
  void checkDiskSpace();
  double secondsSinceStart(Clock::TimePoint time) const;

  static constexpr std::size_t kPendingFrames = 3;

  ScreenSource& source_;
  Clock& clock_;
  std::atomic<std::int64_t> skippedTicks_ = 0;
  std::atomic<bool> streamEnded_ = false;

  std::mutex pendingMutex_;  // guards the fields below
  std::condition_variable_any pendingChanged_;
  std::deque<PendingFrame> pending_;
  bool captureEnded_ = false;

  std::jthread ingestThread_;
  std::jthread captureThread_;

  // Touched only by the thread that ingests frames, and before and after the capture threads
  // run, so the writer is never called with a lock held.
  std::unique_ptr<FrameWriting> frameWriter_;
  std::optional<std::vector<std::uint8_t>> lastFrameData_;
  bool hasLoggedWriteFailure_ = false;
  std::int64_t dropCounter_ = 0;

  mutable std::mutex stateMutex_;  // guards the recording's state and counts below
  ImageSize outputSize_;
  bool isPaused_ = false;
  bool isDiskConstrained_ = false;
  bool diskCritical_ = false;
  std::int64_t ingestedFrameCount_ = 0;
  std::int64_t lostFrameCount_ = 0;
  Clock::TimePoint lastChangeTime_;
  std::vector<double> frameTimes_;
  mutable std::mutex pointerMutex_;  // guards the pointer's track and pictures below
  std::vector<PointerPosition> pointerTrack_;
  std::vector<CursorImage> cursorImages_;
  std::optional<std::uint64_t> cursorSerial_;

  // Set before the capture threads start and never again, so they read it without the lock.
  Clock::TimePoint startTime_;
};

}  // namespace brimble
