#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "BrimbleCore/Effects/WindowBar.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/Encoding/PaletteStrategy.h"
#include "BrimbleCore/Encoding/VideoWriter.h"

namespace brimble {

/// How long stretches without change are treated.
enum class IdleStrategy { fade, cut, ramp };

/// The strategy a script setting, a tool argument or a command-line switch names ("cut",
/// "ramp", "fade", any case); no value for anything else.
std::optional<IdleStrategy> idleStrategyFromArgument(std::string_view text);

/// Where a looping output starts: at a frame of the composed animation (from 0), or a share of
/// its length; the frames before it play after the last.
struct LoopOffset {
  enum class Unit { frame, percent };
  Unit unit = Unit::frame;
  double value = 0;

  /// "12" (a frame) or "50%" (0% to 100%); no value for anything else.
  static std::optional<LoopOffset> parse(std::string_view text);
  /// The frame of `count` that comes first: a frame number past the last wraps around, as the
  /// loop does, and 100% is the first frame again.
  int firstFrame(int count) const;
};

/// A title card shown before or after the recording.
struct TitleCard {
  std::string title;
  std::string subtitle;
  /// Seconds; no value takes the renderer's default.
  std::optional<double> duration;
};

/// What a render makes of recorded segments: the output's shape and timing, and the
/// post-production effects, each off unless switched on (a script's settings, an assistant's
/// transforms).
struct RenderSettings {
  OutputFormat format = OutputFormat::gif;
  int fps = 30;
  /// Frames wider than this are scaled down, keeping their aspect ratio; 0 keeps their size.
  int maxWidth = 800;
  /// Number of plays; 0 = forever.
  int loopCount = 0;
  /// Where the output starts; no value starts with the first frame.
  std::optional<LoopOffset> loopOffset;
  /// Crossfade between segments, seconds; 0 is a cut.
  double transition = 0.3;
  /// The output plays this many times as fast as it was recorded (cards and crossfades too):
  /// 2 is half as long. Frame times are kept, so above 1 frames are skipped.
  double playbackSpeed = 1;
  PaletteStrategy paletteStrategy = PaletteStrategy::automatic;
  /// Frames that repeat the frame before them only lengthen its delay.
  bool deduplicate = true;
  /// GIF frames after the first store only the pixels that changed.
  bool frameDiffing = true;
  float webpQuality = 75;
  /// MP4: quality, speed and sound.
  VideoOptions video;

  bool showCursor = true;
  bool cursorSmoothing = false;
  bool clickIndicators = false;
  bool typeSmoothing = false;
  bool keystrokeBadges = false;
  /// Plain typing shows too, as a caption of the text typed (badges come with it).
  bool keystrokeText = false;
  bool includeTitleBar = true;
  std::optional<IdleStrategy> idleStrategy;
  double idleThreshold = 2.0;
  std::optional<TitleCard> intro;
  std::optional<TitleCard> outro;
  /// Title-card colours as "#rrggbb"; empty takes the renderer's.
  std::string introBackground;
  std::string introForeground;
  /// Each frame centred on this colour ("#rrggbb") with padding; empty for none.
  std::string background;
  /// A plain title bar painted over the top of each frame with this title; no value for none.
  std::optional<std::string> fauxTitleBar;
  /// A bar over every window in place of the window manager's (which is cut away), coloured
  /// like the window's own background; no value for none. It takes the place of `fauxTitleBar`.
  std::optional<WindowBarStyle> windowBar;
  /// The title `windowBar` shows.
  std::string windowBarTitle;
  /// The bar's height in output pixels; 0 takes one that suits the output's width.
  int windowBarSize = 0;
  /// The window's corner radius in output pixels; no value rounds them only on a background.
  std::optional<int> borderRadius;
  /// Output pixels around the window; no value takes a background's own padding (none without
  /// a background).
  std::optional<int> margin;
  /// What fills the margin: a colour ("#rrggbb") or a PNG or JPEG file, scaled to cover the
  /// canvas; empty takes `background`, else a light grey.
  std::string marginFill;
};

}  // namespace brimble
