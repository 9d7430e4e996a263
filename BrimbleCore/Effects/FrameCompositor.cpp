#include "BrimbleCore/Effects/FrameCompositor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <cairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"
#include "BrimbleCore/Effects/CameraTrack.h"
#include "BrimbleCore/Effects/CaptionTrack.h"
#include "BrimbleCore/Effects/ClickIndicators.h"
#include "BrimbleCore/Effects/CursorTrack.h"
#include "BrimbleCore/Effects/EffectColor.h"
#include "BrimbleCore/Effects/EffectsError.h"
#include "BrimbleCore/Effects/ElementHighlights.h"
#include "BrimbleCore/Effects/KeystrokeBadges.h"
#include "BrimbleCore/Effects/SpotlightTrack.h"
#include "BrimbleCore/Effects/StdoutLocator.h"
#include "BrimbleCore/Effects/TitleCardPainter.h"
#include "BrimbleCore/Effects/WindowBackdrop.h"
#include "BrimbleCore/Effects/WindowChrome.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

struct FrameCompositor::SegmentEffects {
  SegmentClock clock;
  Image backdrop;
  std::optional<CursorTrack> cursor;
  std::optional<ClickIndicators> clicks;
  std::optional<KeystrokeBadges> badges;
  SpotlightTrack spotlights;
  ElementHighlights highlights;
  CameraTrack camera;
  WindowChrome chrome;
  CaptionTrack captions;
  /// For each frame, the first of its run of identical pictures, which stands for it.
  std::vector<int> pictures;
};

namespace {

constexpr std::size_t kContentCacheSize = 6;
// Under a margin that names no fill: light, so the window's shadow shows.
constexpr const char* kDefaultMarginFill = "#dfe2e8";

std::optional<EffectColor> colorSetting(const std::string& setting, const std::string& value) {
  if (value.empty()) {
    return std::nullopt;
  }
  auto color = EffectColor::parse(value);
  if (!color) {
    throw EffectsError::invalidColor(setting, value);
  }
  return color;
}

// The colour a window bar takes: the window's own, read just inside its top left corner (a
// terminal's padding, a page's margin), so that the bar reads as part of the window.
std::optional<EffectColor> windowColor(const RecordedSegment& segment,
                                       const SegmentLayout& placed) {
  if (!segment.frames || segment.frames->count() == 0) {
    return std::nullopt;
  }
  const auto decoded = decodeImage(segment.frames->data(0));
  if (!decoded) {
    return std::nullopt;
  }
  const Image image = decoded->toBGRA8();
  const int x = std::min(placed.cropLeft + 2, image.width() - 1);
  const int y = std::min(placed.cropTop + 2, image.height() - 1);
  if (x < 0 || y < 0) {
    return std::nullopt;
  }
  const std::uint8_t* pixel = image.row(y).data() + static_cast<std::size_t>(x) * 4;
  return EffectColor{pixel[2] / 255.0, pixel[1] / 255.0, pixel[0] / 255.0, 1};
}

// A margin's picture; a file that cannot be read leaves the margin its colour, with a warning,
// rather than costing the recording.
std::optional<Image> marginPicture(const std::string& file) {
  // A picture larger than this is no backdrop anyone meant: it would only cost the memory.
  constexpr std::uintmax_t kMaxPictureBytes = 64u << 20;
  std::error_code sizeError;
  // Only a plain file: reading a pipe or a device could wait for ever.
  if (!std::filesystem::is_regular_file(file, sizeError)) {
    logLine("Warning: margin-fill '" + file +
            "' is neither a colour nor a picture file; the margin is left grey");
    return std::nullopt;
  }
  if (std::filesystem::file_size(file, sizeError) > kMaxPictureBytes) {
    logLine("Warning: margin-fill '" + file +
            "' is larger than 64 MB, too large for a picture; the margin is left grey");
    return std::nullopt;
  }
  try {
    const std::vector<std::uint8_t> bytes = readFileBytes(file);
    // A small file may still declare a picture too large to decode into memory.
    const auto declared = imageSize(bytes);
    if (declared && static_cast<double>(declared->width) * declared->height > 64e6) {
      logLine("Warning: margin-fill '" + file + "' is " + std::to_string(declared->width) + "x" +
              std::to_string(declared->height) +
              " pixels, too large for a picture; the margin is left grey");
      return std::nullopt;
    }
    if (auto image = decodeImage(bytes)) {
      return image;
    }
    logLine("Warning: margin-fill '" + file +
            "' is neither a colour nor a PNG or JPEG file; the margin is left grey");
  } catch (const ImageCodecError& error) {
    logLine(std::string("Warning: margin-fill: ") + error.what() + "; the margin is left grey");
  }
  return std::nullopt;
}

ImageSize firstFrameSize(const RecordedSegment& segment) {
  if (!segment.frames || segment.frames->count() == 0) {
    return {};
  }
  const std::vector<std::uint8_t> data = segment.frames->data(0);
  if (const auto size = imageSize(data)) {
    return *size;
  }
  if (const auto image = decodeImage(data)) {
    return {image->width(), image->height()};
  }
  return {};
}

// What one pass over a segment's compressed frames tells: which frames repeat the picture
// before them (identical pictures compress to identical bytes), so that repeats are neither
// decoded again nor drawn again, and when the picture changed.
struct PictureRuns {
  /// For each frame, the first frame of its run of identical pictures.
  std::vector<int> first;
  /// Capture times of the frames that start a run.
  std::vector<double> changeTimes;
};

PictureRuns pictureRuns(const RecordedSegment& segment) {
  PictureRuns runs;
  std::vector<std::uint8_t> previous;
  const int count = segment.frames->count();
  runs.first.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    std::vector<std::uint8_t> data = segment.frames->data(i);
    if (i == 0 || data != previous) {
      const double time = static_cast<std::size_t>(i) < segment.frameTimes.size()
                              ? segment.frameTimes[static_cast<std::size_t>(i)]
                              : i / static_cast<double>(std::max(segment.fps, 1));
      runs.changeTimes.push_back(time);
      runs.first.push_back(i);
    } else {
      runs.first.push_back(runs.first.back());
    }
    previous = std::move(data);
  }
  return runs;
}

// Where the command output of a `spotlight stdout` annotation shows, in screen coordinates:
// read off the frame on screen when the spotlight begins. Empty when it cannot be found.
ScreenRect outputLine(const RecordedSegment& segment, const EffectAnnotation& annotation) {
  const int index = RenderTimeline::frameAt(segment, annotation.startTime);
  const auto frame = decodeImage(segment.frames->data(index));
  if (!frame) {
    return {};
  }
  const auto line = StdoutLocator::locate(*frame, annotation.text);
  if (!line) {
    return {};
  }
  const double scale = segment.scaleFactor > 0 ? segment.scaleFactor : 1;
  const auto screen = [&](int pixels) { return static_cast<int>(std::lround(pixels / scale)); };
  return {segment.windowFrame.x + screen(line->x), segment.windowFrame.y + screen(line->y),
          screen(line->width), screen(line->height)};
}

std::vector<double> inputTimes(const RecordedSegment& segment, bool pointerDrawn) {
  std::vector<double> times;
  for (const InputEvent& event : segment.events) {
    times.push_back(event.timestamp);
  }
  if (pointerDrawn) {
    for (std::size_t i = 1; i < segment.pointerTrack.size(); ++i) {
      if (!(segment.pointerTrack[i].position == segment.pointerTrack[i - 1].position)) {
        times.push_back(segment.pointerTrack[i].time);
      }
    }
  }
  std::sort(times.begin(), times.end());
  return times;
}

// The frame of `count` the output starts with; a frame number past the last is said to wrap.
int startingFrame(const std::optional<LoopOffset>& offset, int count) {
  if (!offset || count == 0) {
    return 0;
  }
  const int first = offset->firstFrame(count);
  if (offset->unit == LoopOffset::Unit::frame && offset->value >= count) {
    logLine("Warning: loop-offset " + std::to_string(static_cast<long long>(offset->value)) +
            " is past the last frame (" + std::to_string(count - 1) +
            "); the loop starts at frame " + std::to_string(first));
  }
  return first;
}

Image cropped(const Image& image, int left, int top, int width, int height) {
  if (left == 0 && top == 0 && width == image.width() && height == image.height()) {
    return image;
  }
  const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
  PixelBuffer pixels(rowBytes * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    std::memcpy(pixels.data() + rowBytes * static_cast<std::size_t>(y),
                image.row(top + y).data() + static_cast<std::size_t>(left) * 4, rowBytes);
  }
  return Image::bgra8(width, height, std::move(pixels));
}

// Puts back the backdrop at the window's rounded corners that the square content covered.
void roundCorners(cairo_t* cairo, const SegmentLayout& layout, cairo_surface_t* backdrop,
                  bool top) {
  const double r = layout.cornerRadius;
  if (r <= 0) {
    return;
  }
  const CanvasRect& w = layout.window;
  const CanvasRect& c = layout.content;
  struct Corner {
    double x;
    double y;
  };
  std::vector<Corner> corners = {{w.x, c.y + c.height - r},
                                 {w.x + w.width - r, c.y + c.height - r}};
  if (top) {
    corners.push_back({w.x, c.y});
    corners.push_back({w.x + w.width - r, c.y});
  }
  cairo_save(cairo);
  cairo_set_fill_rule(cairo, CAIRO_FILL_RULE_EVEN_ODD);
  cairo_set_source_surface(cairo, backdrop, 0, 0);
  for (const Corner& corner : corners) {
    cairo_save(cairo);
    cairo_rectangle(cairo, std::floor(corner.x), std::floor(corner.y), std::ceil(r) + 1,
                    std::ceil(r) + 1);
    cairo_clip(cairo);
    cairo_rectangle(cairo, std::floor(corner.x), std::floor(corner.y), std::ceil(r) + 1,
                    std::ceil(r) + 1);
    roundedRectangle(cairo, w.x, w.y, w.width, w.height, r);
    cairo_fill(cairo);
    cairo_restore(cairo);
  }
  cairo_restore(cairo);
}

}  // namespace

FrameCompositor::FrameCompositor(std::span<const RenderSegment> segments,
                                 const RenderSettings& settings)
    : segments_(segments), settings_(settings) {
  if (settings.fps <= 0) {
    throw EffectsError::invalidSetting("fps", settings.fps, "a positive number");
  }
  if (!(settings.playbackSpeed >= 0.25 && settings.playbackSpeed <= 4)) {
    throw EffectsError::invalidSetting("playback-speed", settings.playbackSpeed,
                                       "a factor from 0.25 to 4");
  }
  if (!(settings.idleThreshold >= 0)) {
    throw EffectsError::invalidSetting("idle-threshold", settings.idleThreshold,
                                       "a number of seconds, 0 or more");
  }
  const auto background = colorSetting("background", settings.background);
  WindowBackdrop::Style backdrop;
  backdrop.fill = background.value_or(EffectColor{0, 0, 0, 1});
  std::optional<Image> marginImage;
  bool filled = background.has_value();
  if (!settings.marginFill.empty()) {
    if (const auto color = EffectColor::parse(settings.marginFill)) {
      backdrop.fill = *color;
      filled = true;
    } else if ((marginImage = marginPicture(settings.marginFill))) {
      backdrop.picture = &*marginImage;
      filled = true;
    }
  }
  if (!filled && settings.margin.value_or(0) > 0) {
    backdrop.fill = *EffectColor::parse(kDefaultMarginFill);
  }
  const auto cardBackground = colorSetting("intro-bg", settings.introBackground);
  const auto cardForeground = colorSetting("intro-fg", settings.introForeground);

  std::vector<ImageSize> sizes;
  for (const RenderSegment& segment : segments) {
    sizes.push_back(firstFrameSize(segment));
  }
  layout_ = CanvasLayout::make(segments, sizes, settings);
  backdrop.shadow = layout_.padding > 0;
  std::vector<SegmentClock> clocks;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    const RenderSegment& segment = segments[i];
    const SegmentLayout& placed = layout_.segments[i];
    const double length = RenderTimeline::segmentLength(segment);
    if (placed.cropWidth == 0) {
      clocks.emplace_back(0);
      effects_.push_back(nullptr);
      continue;
    }
    const bool drawPointer = settings.showCursor && !segment.framesShowCursor;
    PictureRuns runs = pictureRuns(segment);
    std::vector<TimeSpan> idle;
    if (settings.idleStrategy) {
      idle = SegmentClock::idleStretches(runs.changeTimes, inputTimes(segment, drawPointer), length,
                                         settings.idleThreshold);
    }
    std::vector<double> keys;
    std::vector<TimeSpan> bursts;
    if (settings.typeSmoothing) {
      keys = SegmentClock::typedKeyTimes(segment.events);
      bursts = SegmentClock::typingBursts(keys);
    }
    SegmentClock clock =
        idle.empty() && bursts.empty()
            ? SegmentClock(length)
            : SegmentClock::remapped(length, idle, settings.idleStrategy, bursts, keys);
    std::vector<ScreenRect> lights;
    for (const EffectAnnotation& annotation : segment.effects) {
      lights.push_back(annotation.rect.empty() && !annotation.text.empty()
                           ? outputLine(segment, annotation)
                           : annotation.rect);
    }
    const auto backdropOf = [&](const RenderSegment& shown, const SegmentLayout& at) {
      WindowBackdrop::Style style = backdrop;
      if (settings.windowBar) {
        style.bar = WindowBar{*settings.windowBar, settings.windowBarTitle, windowColor(shown, at)};
      } else if (settings.fauxTitleBar) {
        style.bar = WindowBar{WindowBarStyle::title, *settings.fauxTitleBar, std::nullopt};
      }
      return style;
    };
    auto effects = std::make_unique<SegmentEffects>(SegmentEffects{
        clock,
        WindowBackdrop::make(placed, layout_.canvas, backdropOf(segment, placed)),
        drawPointer ? std::optional<CursorTrack>(std::in_place, segment, settings.cursorSmoothing)
                    : std::nullopt,
        settings.clickIndicators ? std::optional<ClickIndicators>(std::in_place, segment.events)
                                 : std::nullopt,
        settings.keystrokeBadges || settings.keystrokeText
            ? std::optional<KeystrokeBadges>(std::in_place, segment.events, settings.keystrokeText)
            : std::nullopt,
        SpotlightTrack(segment.effects, lights, segment.demoEvents),
        ElementHighlights(segment.demoEvents),
        CameraTrack(segment.demoEvents),
        WindowChrome(segment),
        CaptionTrack(segment.captions, length),
        std::move(runs.first),
    });
    if (const int missing = effects->captions.missingGlyphs(); missing > 0) {
      logLine("BrimbleCore: no installed font has " + std::to_string(missing) +
              " of the captions' characters; they show as boxes");
    }
    clocks.push_back(clock);
    effects_.push_back(std::move(effects));
  }

  TimelineCards cards;
  if (layout_.canvas.width > 0) {
    const EffectColor cardBack =
        cardBackground.value_or(*EffectColor::parse(TitleCardPainter::kDefaultBackground));
    const EffectColor cardFore =
        cardForeground.value_or(*EffectColor::parse(TitleCardPainter::kDefaultForeground));
    if (settings.intro) {
      intro_ = std::make_unique<TitleCardPainter>(*settings.intro, cardBack, cardFore,
                                                  layout_.canvas, true);
      cards.introLength = std::max(intro_->duration(), 0.0);
    }
    if (settings.outro) {
      outro_ = std::make_unique<TitleCardPainter>(*settings.outro, cardBack, cardFore,
                                                  layout_.canvas, false);
      cards.outroLength = std::max(outro_->duration(), 0.0);
    }
  }
  timeline_ = RenderTimeline::build(segments, clocks, cards, settings.fps, settings.transition,
                                    settings.playbackSpeed);
  // A looping output may start at its most telling frame: the frames before it follow the last,
  // in every output, and the clock keeps counting from the animation's own beginning.
  const int firstFrame = startingFrame(settings.loopOffset, frameCount());
  std::rotate(timeline_.begin(), timeline_.begin() + firstFrame, timeline_.end());
  outputClock_ =
      OutputClock(RenderTimeline::segmentStarts(segments, clocks, cards, settings.transition),
                  clocks, static_cast<double>(timeline_.size()) / settings.fps,
                  settings.playbackSpeed, static_cast<double>(firstFrame) / settings.fps);
  // A repeated picture is shown as the frame that began its run.
  const auto picture = [&](int segment, int& frame) {
    if (segment >= 0 && frame >= 0 && effects_[static_cast<std::size_t>(segment)]) {
      frame =
          effects_[static_cast<std::size_t>(segment)]->pictures[static_cast<std::size_t>(frame)];
    }
  };
  for (TimelineFrame& entry : timeline_) {
    if (entry.source == TimelineSource::segment) {
      picture(entry.segment, entry.frame);
    }
    if (entry.nextSource == TimelineSource::segment) {
      picture(entry.nextSegment, entry.nextFrame);
    }
  }
}

FrameCompositor::~FrameCompositor() = default;

const SegmentClock& FrameCompositor::clock(int index) const {
  return effects_.at(static_cast<std::size_t>(index))->clock;
}

std::optional<Image> FrameCompositor::content(int segment, int frame, bool full) const {
  const ContentKey key{segment, frame, full};
  {
    std::scoped_lock lock(contentMutex_);
    const auto found = std::find_if(contentCache_.begin(), contentCache_.end(),
                                    [&](const auto& entry) { return entry.first == key; });
    if (found != contentCache_.end()) {
      contentCache_.splice(contentCache_.begin(), contentCache_, found);
      return contentCache_.front().second;
    }
  }
  const RenderSegment& source = segments_[static_cast<std::size_t>(segment)];
  const auto decoded = decodeImage(source.frames->data(frame));
  if (!decoded) {
    return std::nullopt;
  }
  const SegmentLayout& placed = layout_.segments[static_cast<std::size_t>(segment)];
  Image image = decoded->toBGRA8();
  // A frame of another size than the first (a resized window) is scaled to the first's.
  const ImageSize first{placed.cropLeft + placed.cropWidth, placed.cropTop + placed.cropHeight};
  if (image.width() < first.width || image.height() < first.height) {
    image = ImageScaler::resize(image, first);
  }
  image = cropped(image, placed.cropLeft, placed.cropTop, placed.cropWidth, placed.cropHeight);
  if (!full) {
    image = ImageScaler::resize(image, placed.contentSize());
  }
  std::scoped_lock lock(contentMutex_);
  contentCache_.emplace_front(key, image);
  if (contentCache_.size() > kContentCacheSize) {
    contentCache_.pop_back();
  }
  return image;
}

Image FrameCompositor::segmentFrame(int segment, int frame, double time, bool& decoded) const {
  const SegmentEffects& effects = *effects_[static_cast<std::size_t>(segment)];
  const SegmentLayout& placed = layout_.segments[static_cast<std::size_t>(segment)];
  const CanvasRect view = effects.camera.contentAt(placed, time);
  const bool zoomed = !(view == placed.content);
  const auto picture = content(segment, frame, zoomed);
  decoded = picture.has_value();
  if (!picture) {
    return effects.backdrop;
  }
  DrawingSurface canvas(effects.backdrop);
  CairoPtr owned = canvas.context();
  cairo_t* cairo = owned.get();
  const CanvasRect& area = placed.content;
  const CairoSurfacePtr pictureSurface = surfaceOver(*picture);
  cairo_save(cairo);
  cairo_rectangle(cairo, area.x, area.y, area.width, area.height);
  cairo_clip(cairo);
  if (!zoomed) {
    cairo_set_source_surface(cairo, pictureSurface.get(), area.x, area.y);
  } else {
    cairo_translate(cairo, view.x, view.y);
    cairo_scale(cairo, view.width / picture->width(), view.height / picture->height());
    cairo_set_source_surface(cairo, pictureSurface.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cairo), CAIRO_FILTER_GOOD);
  }
  cairo_paint(cairo);
  cairo_restore(cairo);
  if (placed.cornerRadius > 0) {
    const CairoSurfacePtr backdrop = surfaceOver(effects.backdrop);
    roundCorners(cairo, placed, backdrop.get(),
                 placed.titleBarHeight <= 0 && placed.addressBarHeight <= 0);
  }
  effects.chrome.paintAddressBar(cairo, placed, time, placed.cornerRadius > 0);

  // Overlays on the recording follow the camera and stay within the recording.
  SegmentLayout viewed = placed;
  viewed.content = view;
  cairo_save(cairo);
  cairo_rectangle(cairo, area.x, area.y, area.width, area.height);
  cairo_clip(cairo);
  effects.highlights.paint(cairo, viewed, time);
  effects.spotlights.paint(cairo, viewed, area, time);
  if (effects.clicks) {
    effects.clicks->paint(cairo, viewed, time);
  }
  if (effects.cursor) {
    effects.cursor->paint(cairo, viewed, time);
  }
  cairo_restore(cairo);
  // Captions stay put while the camera moves; key badges stand above a caption at the bottom.
  const double captionInset = effects.captions.paint(cairo, area, placed.uiScale, time);
  if (effects.badges) {
    CanvasRect badgeArea = area;
    badgeArea.height = std::max(0.0, area.height - captionInset);
    effects.badges->paint(cairo, badgeArea, placed.uiScale, time);
  }
  owned.reset();
  return std::move(canvas).release();
}

Image FrameCompositor::sourceFrame(TimelineSource source, int segment, int frame, double time,
                                   double dip, bool& decoded) const {
  Image image;
  decoded = true;
  if (source == TimelineSource::intro) {
    image = intro_->frameAt(time);
  } else if (source == TimelineSource::outro) {
    image = outro_->frameAt(time);
  } else {
    image = segmentFrame(segment, frame, time, decoded);
  }
  if (dip <= 0) {
    return image;
  }
  DrawingSurface dipped(image);
  CairoPtr cairo = dipped.context();
  cairo_set_source_rgb(cairo.get(), 0, 0, 0);
  cairo_paint_with_alpha(cairo.get(), std::clamp(dip, 0.0, 1.0));
  cairo.reset();
  return std::move(dipped).release();
}

std::optional<Image> FrameCompositor::frame(int index) const {
  if (index < 0 || index >= frameCount()) {
    return std::nullopt;
  }
  const TimelineFrame& entry = timeline_[static_cast<std::size_t>(index)];
  bool firstDecoded = true;
  Image first =
      sourceFrame(entry.source, entry.segment, entry.frame, entry.time, entry.dip, firstDecoded);
  if (entry.nextFrame < 0) {
    return firstDecoded ? std::optional<Image>(first) : std::nullopt;
  }
  bool nextDecoded = true;
  const Image next = sourceFrame(entry.nextSource, entry.nextSegment, entry.nextFrame,
                                 entry.nextTime, 0, nextDecoded);
  if (!firstDecoded || !nextDecoded) {
    if (!firstDecoded && !nextDecoded) {
      return std::nullopt;
    }
    return firstDecoded ? first : next;
  }
  DrawingSurface mixed(first);
  CairoPtr cairo = mixed.context();
  const CairoSurfacePtr nextSurface = surfaceOver(next);
  cairo_set_source_surface(cairo.get(), nextSurface.get(), 0, 0);
  cairo_paint_with_alpha(cairo.get(), std::clamp(entry.blend, 0.0, 1.0));
  cairo.reset();
  return std::move(mixed).release();
}

bool FrameCompositor::overlaysChange(int segment, double from, double to) const {
  const SegmentEffects& e = *effects_[static_cast<std::size_t>(segment)];
  return (e.cursor && e.cursor->changesBetween(from, to)) ||
         (e.clicks && e.clicks->changesBetween(from, to)) ||
         (e.badges && e.badges->changesBetween(from, to)) ||
         e.spotlights.changesBetween(from, to) || e.highlights.changesBetween(from, to) ||
         e.camera.changesBetween(from, to) || e.chrome.changesBetween(from, to) ||
         e.captions.changesBetween(from, to);
}

bool FrameCompositor::repeatsPrevious(int index) const {
  if (index <= 0 || index >= frameCount()) {
    return false;
  }
  const TimelineFrame& previous = timeline_[static_cast<std::size_t>(index) - 1];
  const TimelineFrame& current = timeline_[static_cast<std::size_t>(index)];
  if (!current.showsSameAs(previous)) {
    return false;
  }
  const auto still = [&](TimelineSource source, int segment, double from, double to) {
    switch (source) {
      case TimelineSource::intro:
        return !intro_->changesBetween(from, to);
      case TimelineSource::outro:
        return !outro_->changesBetween(from, to);
      case TimelineSource::segment:
        return !overlaysChange(segment, std::min(from, to), std::max(from, to));
    }
    return false;
  };
  if (!still(current.source, current.segment, previous.time, current.time)) {
    return false;
  }
  return current.nextFrame < 0 ||
         still(current.nextSource, current.nextSegment, previous.nextTime, current.nextTime);
}

}  // namespace brimble
