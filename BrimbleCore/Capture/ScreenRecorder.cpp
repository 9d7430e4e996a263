#include "BrimbleCore/Capture/ScreenRecorder.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <span>
#include <utility>

#include "BrimbleCore/Capture/CapturePacer.h"
#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {
namespace {

// The counters are 64-bit on purpose; wrapping one would silently corrupt the drop pattern and
// the disk checks, so overflow is fatal.
std::int64_t incremented(std::int64_t value) {
  std::int64_t result = 0;
  if (__builtin_add_overflow(value, 1, &result)) {
    std::abort();
  }
  return result;
}

int pixelCount(double value) {
  const double truncated = std::trunc(value);
  if (!(truncated >= 0 && truncated <= INT_MAX)) {  // also catches NaN
    std::abort();
  }
  const int pixels = static_cast<int>(truncated);
  return pixels - pixels % 2;
}

/// `image` brought to `size`: as is, cropped when it is at most one pixel larger each way (the
/// odd column or row that even output sizes leave out), else resampled.
Image fitted(const Image& image, ImageSize size) {
  const int extraWidth = image.width() - size.width;
  const int extraHeight = image.height() - size.height;
  if (extraWidth == 0 && extraHeight == 0) {
    return image;
  }
  if (extraWidth < 0 || extraWidth > 1 || extraHeight < 0 || extraHeight > 1) {
    return ImageScaler::resize(image, size);
  }
  const std::size_t rowBytes = std::size_t{4} * static_cast<std::size_t>(size.width);
  PixelBuffer pixels(rowBytes * static_cast<std::size_t>(size.height));
  for (int y = 0; y < size.height; ++y) {
    std::memcpy(pixels.data() + rowBytes * static_cast<std::size_t>(y), image.row(y).data(),
                rowBytes);
  }
  return Image::bgra8(size.width, size.height, std::move(pixels));
}

}  // namespace

RecordingError RecordingError::noDisplay() {
  return {Code::noDisplay, "Couldn't find a display to record."};
}

RecordingError RecordingError::frameStoreUnavailable() {
  return {Code::frameStoreUnavailable,
          "Couldn't create the temporary file for this recording. Check that your disk has free "
          "space and try again."};
}

ScreenRecorder::ScreenRecorder(ScreenSource& source, Clock& clock)
    : availableDiskSpaceProvider(&ScreenRecorder::availableDiskSpace),
      frameWriterFactory([] { return std::make_unique<DiskFrameWriter>(); }),
      source_(source),
      clock_(clock),
      lastChangeTime_(clock.now()),
      startTime_(lastChangeTime_) {}

ScreenRecorder::~ScreenRecorder() {
  stopThreads();
  if (frameWriter_) {
    frameWriter_->discard();
  }
}

ScreenDisplay ScreenRecorder::currentDisplay(std::uint32_t displayID) {
  const auto displays = source_.displays();
  const auto display = std::find_if(displays.begin(), displays.end(), [&](const auto& candidate) {
    return candidate.displayID == displayID;
  });
  if (display == displays.end()) {
    throw RecordingError::noDisplay();
  }
  return *display;
}

void ScreenRecorder::start(const ScreenRect& region, const ScreenDisplay& screen, int fps,
                           bool showCursor) {
  const ScreenDisplay display = currentDisplay(screen.displayID);
  ScreenRect area = region.intersection(display.frame);
  if (area.empty()) {
    throw RecordingError::noDisplay();
  }
  const double scale = display.scaleFactor;
  const ImageSize size =
      captureDimensions({area.width / scale, area.height / scale}, scale, kRegionMaxWidthPoints);
  if (size.width <= 0 || size.height <= 0) {
    throw RecordingError::noDisplay();
  }
  if (size.width >= area.width - 1 && size.height >= area.height - 1) {
    // Nothing to scale: grab exactly the even-sized area that is recorded.
    area.width = size.width;
    area.height = size.height;
  }
  startCapture(CaptureTarget::screenAreaOf(area), size, fps, showCursor);
}

void ScreenRecorder::start(const ScreenDisplay& fullScreen, int fps, bool showCursor) {
  const ScreenDisplay display = currentDisplay(fullScreen.displayID);
  const ScreenRect& frame = display.frame;
  const double scale = display.scaleFactor;
  const ImageSize size = captureDimensions({frame.width / scale, frame.height / scale}, scale,
                                           kFullScreenMaxWidthPoints);
  startCapture(CaptureTarget::screenAreaOf(frame), size, fps, showCursor);
}

void ScreenRecorder::start(const ScreenWindow& window, int fps, bool showCursor) {
  const auto current = source_.window(window.windowID);
  if (!current) {
    throw ScreenCaptureError::windowNotFound(window.windowID);
  }
  const ImageSize size = captureDimensions(
      {static_cast<double>(current->frame.width), static_cast<double>(current->frame.height)}, 1,
      kFullScreenMaxWidthPoints);
  if (size.width <= 0 || size.height <= 0) {
    throw ScreenCaptureError::windowNotFound(window.windowID);
  }
  startCapture(CaptureTarget::windowOf(window.windowID), size, fps, showCursor);
}

void ScreenRecorder::startCapture(const CaptureTarget& target, ImageSize size, int fps,
                                  bool showCursor) {
  if (fps < 1) {
    throw std::invalid_argument("a recording needs at least 1 frame per second (got " +
                                std::to_string(fps) + ")");
  }
  if (captureThread_.joinable() || ingestThread_.joinable()) {
    throw std::logic_error("this recorder has already recorded");
  }
  prepareFrameStore();
  const Clock::TimePoint now = clock_.now();
  {
    std::scoped_lock lock(stateMutex_);
    outputSize_ = size;
    lastChangeTime_ = now;
  }
  startTime_ = now;
  std::promise<void> opened;
  std::future<void> ready = opened.get_future();
  try {
    ingestThread_ = std::jthread([this, size](std::stop_token stop) { ingestLoop(stop, size); });
    captureThread_ = std::jthread(
        [this, target, fps, showCursor, opened = std::move(opened)](std::stop_token stop) mutable {
          captureLoop(stop, target, fps, showCursor, std::move(opened));
        });
    ready.get();
  } catch (...) {
    stopThreads();
    frameWriter_->discard();
    frameWriter_.reset();
    throw;
  }
}

void ScreenRecorder::prepareFrameStore() {
  std::unique_ptr<FrameWriting> writer;
  try {
    if (frameWriterFactory) {
      writer = frameWriterFactory();
    }
    if (!writer) {
      throw std::runtime_error("no frame writer");
    }
  } catch (const std::exception& error) {
    logLine(std::string("Brimble: could not create the frame store (") + error.what() + ")");
    throw RecordingError::frameStoreUnavailable();
  }
  frameWriter_ = std::move(writer);
}

void ScreenRecorder::captureLoop(const std::stop_token& stop, const CaptureTarget& target, int fps,
                                 bool showCursor, std::promise<void> opened) {
  // The stream is opened here because it holds this thread's own display connection.
  std::unique_ptr<ScreenStream> stream;
  try {
    stream = source_.openStream(target, showCursor);
    opened.set_value();
  } catch (...) {
    opened.set_exception(std::current_exception());
    endCapture();
    return;
  }
  // Nothing may unwind out of a thread's entry point: a failure ends the recording early and is
  // reported through hasStreamEnded.
  try {
    CapturePacer pacer(clock_, fps);
    bool running = true;
    while (running && !stop.stop_requested()) {
      pacer.waitForNextTick();
      skippedTicks_ = pacer.skippedTicks();
      if (stop.stop_requested() || isPaused()) {
        continue;
      }
      // Taken before the grab: the picture is the screen as it was at the tick.
      const double captureTime = secondsSinceStart(clock_.now());
      if (std::optional<Image> frame = stream->grab()) {
        if (tracksPointer) {
          recordPointer(*stream, captureTime);
        }
        running = handOver(stop, {std::move(*frame), captureTime});
      }
    }
  } catch (const std::exception& error) {
    logLine(std::string("Brimble: capture stopped: ") + error.what());
    streamEnded_ = true;
  }
  endCapture();
}

bool ScreenRecorder::handOver(const std::stop_token& stop, PendingFrame frame) {
  {
    std::unique_lock lock(pendingMutex_);
    if (!pendingChanged_.wait(lock, stop, [&] { return pending_.size() < kPendingFrames; })) {
      return false;
    }
    pending_.push_back(std::move(frame));
  }
  pendingChanged_.notify_all();
  return true;
}

void ScreenRecorder::endCapture() {
  {
    std::scoped_lock lock(pendingMutex_);
    captureEnded_ = true;
  }
  pendingChanged_.notify_all();
}

void ScreenRecorder::ingestLoop(const std::stop_token& stop, ImageSize size) {
  bool hasLoggedFailure = false;
  while (true) {
    PendingFrame frame;
    {
      std::unique_lock lock(pendingMutex_);
      pendingChanged_.wait(lock, stop, [&] { return !pending_.empty() || captureEnded_; });
      if (pending_.empty()) {
        return;  // the capture has ended and every frame it took is in
      }
      frame = std::move(pending_.front());
      pending_.pop_front();
    }
    pendingChanged_.notify_all();
    try {
      ingestFrame(fitted(frame.image, size), frame.captureTime);
    } catch (const std::exception& error) {
      // Only scaling can throw here (out of memory); that frame is lost, the recording goes on.
      if (!hasLoggedFailure) {
        hasLoggedFailure = true;
        logLine(std::string("Brimble: could not process a frame (") + error.what() + ")");
      }
    }
  }
}

void ScreenRecorder::stopThreads() {
  captureThread_ = {};  // requests the stop and joins
  endCapture();         // in case the capture thread never started
  if (ingestThread_.joinable()) {
    ingestThread_.join();  // not stopped: it drains the queue first
  }
  ingestThread_ = {};
}

std::unique_ptr<CompressedFrameStore> ScreenRecorder::stopAndCollectFrameStore() {
  stopThreads();
  std::unique_ptr<CompressedFrameStore> store;
  std::optional<std::string> finalizeFailure;
  if (frameWriter_) {
    try {
      store = frameWriter_->finalize();
    } catch (const std::exception& error) {
      finalizeFailure = error.what();
      frameWriter_->discard();
    }
    frameWriter_.reset();
  }
  const std::int64_t lost = lostFrameCount();
  if (lost > 0) {
    logLine("Brimble: " + std::to_string(lost) +
            " frame(s) were lost to frame-store write failures");
  }
  if (finalizeFailure) {
    logLine("Brimble: frame store finalize failed (" + *finalizeFailure +
            "), discarding temp file");
  }
  return store;
}

void ScreenRecorder::ingestFrame(const Image& image, std::optional<double> captureTime) {
  const Clock::TimePoint now = clock_.now();
  const double time = captureTime ? *captureTime : secondsSinceStart(now);
  std::int64_t count = 0;
  bool constrained = false;
  {
    std::scoped_lock lock(stateMutex_);
    if (isPaused_) {
      return;
    }
    count = ingestedFrameCount_;
    ingestedFrameCount_ = incremented(count);
    constrained = isDiskConstrained_;
  }
  bool drop = false;
  if (constrained) {
    dropCounter_ = incremented(dropCounter_);
    drop = dropCounter_ % 2 == 0;
  }
  if (std::optional<std::vector<std::uint8_t>> data = compress(image, kJPEGQuality)) {
    // Compressed bytes are compared rather than pixels: identical pictures give identical JPEG,
    // and the comparison costs no pixel work.
    const bool changed = !lastFrameData_ || *lastFrameData_ != *data;
    if (changed) {
      lastFrameData_ = std::move(*data);
      std::scoped_lock lock(stateMutex_);
      lastChangeTime_ = now;
    }
    const std::span<const std::uint8_t> bytes = changed ? *lastFrameData_ : *data;
    if (!drop && frameWriter_) {
      bool written = false;
      try {
        frameWriter_->append(bytes);
        written = true;
      } catch (const std::exception& error) {
        if (!hasLoggedWriteFailure_) {
          hasLoggedWriteFailure_ = true;
          logLine("Brimble: frame write failed (" + std::string(error.what()) +
                  "); further failures are only counted");
        }
      }
      std::scoped_lock lock(stateMutex_);
      if (written) {
        frameTimes_.push_back(time);
      } else {
        lostFrameCount_ = incremented(lostFrameCount_);
      }
    }
  }
  if (count % kDiskCheckInterval == 0) {
    checkDiskSpace();
  }
}

void ScreenRecorder::checkDiskSpace() {
  // The provider is asked outside the lock: it may be slow (a statfs) or call back.
  const std::optional<std::uint64_t> available =
      availableDiskSpaceProvider ? availableDiskSpaceProvider() : std::nullopt;
  if (!available) {
    return;
  }
  const std::string megabytes = std::to_string(*available >> 20);
  std::vector<std::string> lines;
  {
    std::scoped_lock lock(stateMutex_);
    if (*available < kDiskPressureBytes) {
      if (!isDiskConstrained_) {
        lines.push_back("Brimble: Disk pressure detected (" + megabytes +
                        " MB free), dropping every other frame");
      }
      isDiskConstrained_ = true;
    }
    if (*available < kDiskCriticalBytes) {
      if (!diskCritical_) {
        lines.push_back("Brimble: Disk critically low (" + megabytes +
                        " MB free), stopping the recording");
      }
      diskCritical_ = true;
    }
  }
  for (const std::string& line : lines) {
    logLine(line);
  }
}

ImageSize ScreenRecorder::captureDimensions(PointSize pointSize, double scale,
                                            double maxWidthPoints) {
  double width = pointSize.width;
  double height = pointSize.height;
  if (width > maxWidthPoints) {
    // The width becomes the limit itself: recomputing it as width * (limit / width) can land a
    // hair below the limit and lose two pixels to truncation.
    height *= maxWidthPoints / width;
    width = maxWidthPoints;
  }
  return {pixelCount(width * scale), pixelCount(height * scale)};
}

std::optional<std::vector<std::uint8_t>> ScreenRecorder::compress(const Image& image,
                                                                  double quality) {
  const int percent = std::clamp(static_cast<int>(std::lround(quality * 100)), 1, 100);
  try {
    return encodeJPEG(image, percent);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<std::uint64_t> ScreenRecorder::availableDiskSpace() {
  std::error_code error;
  const auto space = std::filesystem::space(temporaryDirectory(), error);
  if (error) {
    return std::nullopt;
  }
  return space.available;
}

void ScreenRecorder::sweepOrphanedFrameFiles() {
  DiskFrameWriter::sweepOrphans(temporaryDirectory(), kOrphanedFrameFileAge);
}

void ScreenRecorder::pause() {
  std::scoped_lock lock(stateMutex_);
  isPaused_ = true;
}

void ScreenRecorder::resume() {
  std::scoped_lock lock(stateMutex_);
  isPaused_ = false;
}

bool ScreenRecorder::isPaused() const {
  std::scoped_lock lock(stateMutex_);
  return isPaused_;
}

bool ScreenRecorder::isDiskCritical() const {
  std::scoped_lock lock(stateMutex_);
  return diskCritical_;
}

bool ScreenRecorder::isDiskConstrained() const {
  std::scoped_lock lock(stateMutex_);
  return isDiskConstrained_;
}

Clock::TimePoint ScreenRecorder::lastChangeTime() const {
  std::scoped_lock lock(stateMutex_);
  return lastChangeTime_;
}

std::int64_t ScreenRecorder::ingestedFrameCount() const {
  std::scoped_lock lock(stateMutex_);
  return ingestedFrameCount_;
}

std::int64_t ScreenRecorder::lostFrameCount() const {
  std::scoped_lock lock(stateMutex_);
  return lostFrameCount_;
}

void ScreenRecorder::recordPointer(ScreenStream& stream, double time) {
  const std::optional<PointerState> pointer = stream.pointer();
  if (!pointer) {
    return;
  }
  std::scoped_lock lock(pointerMutex_);
  if (cursorSerial_ != pointer->serial || cursorImages_.empty()) {
    cursorImages_.push_back(pointer->cursor);
    cursorSerial_ = pointer->serial;
  }
  pointerTrack_.push_back(
      {time, pointer->x, pointer->y, static_cast<int>(cursorImages_.size()) - 1});
}

std::vector<ScreenRecorder::PointerPosition> ScreenRecorder::pointerTrack() const {
  std::scoped_lock lock(pointerMutex_);
  return pointerTrack_;
}

std::vector<CursorImage> ScreenRecorder::cursorImages() const {
  std::scoped_lock lock(pointerMutex_);
  return cursorImages_;
}

std::vector<double> ScreenRecorder::frameTimes() const {
  std::scoped_lock lock(stateMutex_);
  return frameTimes_;
}

double ScreenRecorder::secondsSinceStart(Clock::TimePoint time) const {
  return std::chrono::duration<double>(time - startTime_).count();
}

ImageSize ScreenRecorder::outputSize() const {
  std::scoped_lock lock(stateMutex_);
  return outputSize_;
}

}  // namespace brimble
