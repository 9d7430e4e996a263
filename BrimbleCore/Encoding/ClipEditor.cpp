#include "BrimbleCore/Encoding/ClipEditor.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <limits>
#include <sstream>
#include <utility>

#include <fmt/format.h>

#include "BrimbleCore/Encoding/FrameDeduplicator.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Support/Cancellation.h"

namespace brimble {
namespace {

/// `image` cut to `rect`, which must lie inside it.
Image cropped(const Image& image, const PixelRect& rect) {
  const Image source = image.toBGRA8();
  const PixelRect bounds{0, 0, source.width(), source.height()};
  if (rect.empty() || !bounds.contains(rect)) {
    throw ClipEditError::cropOutside(rect, source.width(), source.height());
  }
  PixelBuffer pixels(static_cast<std::size_t>(rect.width) * 4 *
                     static_cast<std::size_t>(rect.height));
  for (int y = 0; y < rect.height; ++y) {
    const auto row = source.row(rect.top + y)
                         .subspan(static_cast<std::size_t>(rect.left) * 4,
                                  static_cast<std::size_t>(rect.width) * 4);
    std::copy(row.begin(), row.end(),
              pixels.begin() + static_cast<std::ptrdiff_t>(y) * rect.width * 4);
  }
  return Image::bgra8(rect.width, rect.height, std::move(pixels));
}

}  // namespace

ClipEditError ClipEditError::invalidTrim(double start, double end, double duration) {
  return {Code::invalidTrim,
          fmt::format("Can't trim from {:.2f} s to {:.2f} s: the clip is {:.2f} s long and the "
                      "start must come before the end.",
                      start, end, duration)};
}

ClipEditError ClipEditError::cropOutside(const PixelRect& crop, int width, int height) {
  return {Code::cropOutside,
          fmt::format("Can't crop to {},{} {}x{}: the rectangle must lie inside the {}x{} "
                      "frames.",
                      crop.left, crop.top, crop.width, crop.height, width, height)};
}

ClipEditError ClipEditError::invalidSpeed(double speed) {
  return {Code::invalidSpeed,
          fmt::format("Can't play at {}x: the speed must be between 0.01 and 100.", speed)};
}

ClipEditError ClipEditError::pausesTooLong(std::size_t limitBytes, double threshold) {
  return {Code::pausesTooLong,
          fmt::format("Can't shorten the pauses of this clip: it goes on for more than {} MB of "
                      "frames without a picture that stays {:.2f} s or less; trim it or scale it "
                      "down first.",
                      limitBytes >> 20, threshold)};
}

double ClipEditor::duration(const std::vector<ProcessedFrame>& frames) {
  double total = 0;
  for (const ProcessedFrame& frame : frames) {
    total += frame.delay;
  }
  return total;
}

std::vector<ProcessedFrame> ClipEditor::trim(const std::vector<ProcessedFrame>& frames,
                                             double start, double end) {
  const double length = duration(frames);
  start = std::max(0.0, start);
  end = std::min(end, length);
  if (!(start < end)) {
    throw ClipEditError::invalidTrim(start, end, length);
  }
  std::vector<ProcessedFrame> kept;
  double at = 0;
  for (const ProcessedFrame& frame : frames) {
    const double from = std::max(at, start);
    const double to = std::min(at + frame.delay, end);
    if (to > from) {
      ProcessedFrame part = frame;
      part.delay = to - from;
      kept.push_back(std::move(part));
    }
    at += frame.delay;
  }
  return kept;
}

std::vector<ProcessedFrame> ClipEditor::crop(const std::vector<ProcessedFrame>& frames,
                                             const PixelRect& rect) {
  std::vector<ProcessedFrame> result;
  result.reserve(frames.size());
  for (const ProcessedFrame& frame : frames) {
    ProcessedFrame part = frame;
    part.image = cropped(frame.image, rect);
    result.push_back(std::move(part));
  }
  return result;
}

std::vector<ProcessedFrame> ClipEditor::changeSpeed(const std::vector<ProcessedFrame>& frames,
                                                    double speed) {
  if (!(speed >= 0.01 && speed <= 100)) {
    throw ClipEditError::invalidSpeed(speed);
  }
  std::vector<ProcessedFrame> result = frames;
  for (ProcessedFrame& frame : result) {
    frame.delay /= speed;
  }
  return result;
}

std::vector<ProcessedFrame> ClipEditor::append(const std::vector<ProcessedFrame>& clip,
                                               const std::vector<ProcessedFrame>& segment) {
  std::vector<ProcessedFrame> joined = clip;
  if (clip.empty()) {
    return segment;
  }
  const ImageSize size{clip.front().image.width(), clip.front().image.height()};
  for (const ProcessedFrame& frame : segment) {
    ProcessedFrame part = frame;
    if (ImageSize{frame.image.width(), frame.image.height()} != size) {
      part.image = ImageScaler::resize(frame.image.toBGRA8(), size);
    }
    joined.push_back(std::move(part));
  }
  return joined;
}

std::vector<ProcessedFrame> ClipEditor::apply(const std::vector<ProcessedFrame>& frames,
                                              const ClipEdit& edit) {
  std::vector<ProcessedFrame> result = frames;
  if (edit.trimStart || edit.trimEnd) {
    result = trim(result, edit.trimStart.value_or(0), edit.trimEnd.value_or(duration(result)));
  }
  if (edit.crop) {
    result = crop(result, *edit.crop);
  }
  if (edit.speed != 1) {
    result = changeSpeed(result, edit.speed);
  }
  if (edit.maxWidth > 0) {
    for (ProcessedFrame& frame : result) {
      frame.image = ImageScaler::scaleToMaxWidth(frame.image, edit.maxWidth);
    }
  }
  if (edit.deduplicate) {
    result = FrameDeduplicator::merge(result);
  }
  if (edit.idle) {
    result = edit.idle(result);
  }
  return result;
}

namespace {

/// The edit chain over a stream, in the order `apply` runs it. Each step pulls from the one
/// before: per-frame edits, then deduplication (one frame held), then the idle treatment (held
/// in pieces that it treats alike whether or not more follows).
class EditedFrameStream final : public FrameStream {
 public:
  EditedFrameStream(std::unique_ptr<FrameStream> source, ClipEdit edit, std::stop_token stop)
      : source_(std::move(source)), edit_(std::move(edit)), stop_(std::move(stop)) {}

  std::optional<ProcessedFrame> next() override {
    if (!edit_.idle) {
      return nextDeduplicated();
    }
    while (treated_.empty() && !piecesDone_) {
      treatNextPiece();
    }
    if (treated_.empty()) {
      return std::nullopt;
    }
    ProcessedFrame frame = std::move(treated_.front());
    treated_.pop_front();
    return frame;
  }

  StreamPosition position() const override { return source_->position(); }

 private:
  bool trims() const { return edit_.trimStart.has_value() || edit_.trimEnd.has_value(); }

  /// The next frame of the source trimmed, cropped, sped up and scaled.
  std::optional<ProcessedFrame> nextEdited() {
    const double start = std::max(0.0, edit_.trimStart.value_or(0));
    const double end = edit_.trimEnd.value_or(std::numeric_limits<double>::infinity());
    while (!sourceDone_) {
      checkCancellation(stop_);
      std::optional<ProcessedFrame> frame = source_->next();
      if (!frame) {
        sourceDone_ = true;
        break;
      }
      const double from = std::max(at_, start);
      const double to = std::min(at_ + frame->delay, end);
      at_ += frame->delay;
      if (trims()) {
        if (!(to > from)) {
          // Past the end of a trim that kept something, nothing more can be kept.
          sourceDone_ = anyKept_ && at_ >= end;
          continue;
        }
        frame->delay = to - from;
      }
      anyKept_ = true;
      if (edit_.crop) {
        frame->image = cropped(frame->image, *edit_.crop);
      }
      if (edit_.speed != 1) {
        frame->delay /= edit_.speed;
      }
      if (edit_.maxWidth > 0) {
        frame->image = ImageScaler::scaleToMaxWidth(frame->image, edit_.maxWidth);
      }
      return frame;
    }
    if (trims() && !anyKept_) {
      throw ClipEditError::invalidTrim(start, std::min(end, at_), at_);
    }
    return std::nullopt;
  }

  std::optional<ProcessedFrame> nextDeduplicated() {
    if (!edit_.deduplicate) {
      return nextEdited();
    }
    if (!kept_) {
      kept_ = nextEdited();
    }
    while (kept_) {
      std::optional<ProcessedFrame> frame = nextEdited();
      if (!frame) {
        break;
      }
      if (FrameComparison::framesRepeat(kept_->image, frame->image, DedupRule::everyPixel)) {
        kept_->delay += frame->delay;
      } else {
        return std::exchange(kept_, std::move(frame));
      }
    }
    return std::exchange(kept_, std::nullopt);
  }

  /// Reads up to the end of the first picture after which the treatment starts afresh: one
  /// shown no longer than the threshold. Each picture's frames are judged as the treatment
  /// judges them, all together, so no piece splits one.
  void treatNextPiece() {
    std::vector<ProcessedFrame> piece;
    std::size_t heldBytes = 0;
    std::size_t runStart = 0;
    double runLength = 0;
    if (carried_) {
      piece.push_back(std::move(*carried_));
      carried_.reset();
      heldBytes = piece.back().image.bytes().size();
      runLength = piece.back().delay;
    }
    while (true) {
      std::optional<ProcessedFrame> frame = nextDeduplicated();
      if (!frame) {
        piecesDone_ = true;
        break;
      }
      if (!piece.empty() && !frame->image.hasSamePixels(piece[runStart].image)) {
        if (runLength <= edit_.idleThreshold) {
          carried_ = std::move(frame);
          break;
        }
        runStart = piece.size();
        runLength = 0;
      }
      runLength += frame->delay;
      heldBytes += frame->image.bytes().size();
      if (heldBytes > kHeldFrameBytes) {
        throw ClipEditError::pausesTooLong(kHeldFrameBytes, edit_.idleThreshold);
      }
      piece.push_back(std::move(*frame));
    }
    if (!piece.empty()) {
      for (ProcessedFrame& frame : edit_.idle(piece)) {
        treated_.push_back(std::move(frame));
      }
    }
  }

  std::unique_ptr<FrameStream> source_;
  const ClipEdit edit_;
  std::stop_token stop_;
  double at_ = 0;  // seconds of the source read so far
  bool anyKept_ = false;
  bool sourceDone_ = false;
  std::optional<ProcessedFrame> kept_;     // deduplication: the frame repeats are merged into
  std::optional<ProcessedFrame> carried_;  // the first frame of the next piece
  std::deque<ProcessedFrame> treated_;
  bool piecesDone_ = false;
};

std::optional<double> parseSeconds(const std::string& text, bool& ok) {
  if (text.empty()) {
    return std::nullopt;
  }
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  ok = ok && end == text.c_str() + text.size() && value >= 0;
  return value;
}

}  // namespace

std::unique_ptr<FrameStream> ClipEditor::stream(std::unique_ptr<FrameStream> source, ClipEdit edit,
                                                std::stop_token stop) {
  if (!(edit.speed >= 0.01 && edit.speed <= 100)) {
    throw ClipEditError::invalidSpeed(edit.speed);
  }
  return std::make_unique<EditedFrameStream>(std::move(source), std::move(edit), std::move(stop));
}

std::optional<std::pair<std::optional<double>, std::optional<double>>> ClipEditor::parseTrim(
    const std::string& text) {
  const auto colon = text.find(':');
  if (colon == std::string::npos || text.find(':', colon + 1) != std::string::npos) {
    return std::nullopt;
  }
  bool ok = true;
  const auto start = parseSeconds(text.substr(0, colon), ok);
  const auto end = parseSeconds(text.substr(colon + 1), ok);
  if (!ok || (!start && !end)) {
    return std::nullopt;
  }
  return std::pair{start, end};
}

std::optional<PixelRect> ClipEditor::parseCrop(const std::string& text) {
  PixelRect rect;
  char comma1 = 0;
  char comma2 = 0;
  char comma3 = 0;
  std::istringstream stream(text);
  stream >> rect.left >> comma1 >> rect.top >> comma2 >> rect.width >> comma3 >> rect.height;
  if (!stream || !stream.eof() || comma1 != ',' || comma2 != ',' || comma3 != ',' ||
      rect.left < 0 || rect.top < 0 || rect.width <= 0 || rect.height <= 0) {
    return std::nullopt;
  }
  return rect;
}

}  // namespace brimble
