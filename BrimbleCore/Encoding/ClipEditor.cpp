#include "BrimbleCore/Encoding/ClipEditor.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include <fmt/format.h>

#include "BrimbleCore/Encoding/FrameDeduplicator.h"
#include "BrimbleCore/Encoding/ImageScaler.h"

namespace brimble {

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
  std::vector<ProcessedFrame> cropped;
  cropped.reserve(frames.size());
  for (const ProcessedFrame& frame : frames) {
    const Image source = frame.image.toBGRA8();
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
    ProcessedFrame part = frame;
    part.image = Image::bgra8(rect.width, rect.height, std::move(pixels));
    cropped.push_back(std::move(part));
  }
  return cropped;
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
