#include "BrimbleCore/Scripting/ScriptRenderSettings.h"

#include <algorithm>

#include "BrimbleCore/Support/Text.h"

namespace brimble {

int scriptFrameRate(const ScriptContext& context, bool preview) {
  return preview ? kPreviewFPS : context.intSetting("fps", 30);
}

namespace {

// The window bar, corners and margin a script asks for around its windows.
void applyWindowLook(const ScriptContext& context, RenderSettings& settings) {
  if (const std::string* bar = context.usableSetting("window-bar")) {
    settings.windowBar = windowBarStyleNamed(*bar);
  }
  if (const std::string* title = context.usableSetting("window-title")) {
    settings.windowBarTitle = *title;
  }
  settings.windowBarSize = context.intSetting("window-bar-size", 0);
  if (context.usableSetting("border-radius") != nullptr) {
    settings.borderRadius = context.intSetting("border-radius", 0);
  }
  if (context.usableSetting("margin") != nullptr) {
    settings.margin = context.intSetting("margin", 0);
  }
  if (const std::string* fill = context.usableSetting("margin-fill")) {
    settings.marginFill = std::string(trimmed(*fill));
  }
}

}  // namespace

RenderSettings scriptRenderSettings(const ScriptContext& context, bool preview) {
  RenderSettings settings;
  settings.fps = scriptFrameRate(context, preview);
  settings.maxWidth = context.intSetting("max-width", 800);
  if (preview) {
    settings.maxWidth = std::min(settings.maxWidth, kPreviewMaxWidth);
  }
  settings.loopCount = context.intSetting("loop-count", 0);
  settings.transition = context.doubleSetting("transition", 0.3);
  settings.playbackSpeed = context.doubleSetting("playback-speed", 1);
  if (const std::string* offset = context.usableSetting("loop-offset")) {
    settings.loopOffset = LoopOffset::parse(*offset);
  }
  if (const std::string* palette = context.usableSetting("palette-strategy")) {
    settings.paletteStrategy =
        paletteStrategyFromArgument(*palette).value_or(PaletteStrategy::automatic);
  }
  settings.showCursor = context.boolSetting("show-cursor", true);
  settings.cursorSmoothing = context.boolSetting("cursor-smoothing", false);
  settings.clickIndicators = context.boolSetting("click-indicators", false);
  settings.typeSmoothing = context.boolSetting("type-smoothing", false);
  settings.keystrokeBadges = context.boolSetting("keystroke-badges", false);
  settings.keystrokeText = context.boolSetting("keystroke-text", false);
  settings.includeTitleBar = context.boolSetting("include-title-bar", true);
  if (const std::string* idle = context.usableSetting("idle-strategy")) {
    if (*idle == "fade") {
      settings.idleStrategy = IdleStrategy::fade;
    } else if (*idle == "cut") {
      settings.idleStrategy = IdleStrategy::cut;
    } else {
      settings.idleStrategy = IdleStrategy::ramp;
    }
  }
  settings.idleThreshold = context.doubleSetting("idle-threshold", 2.0);
  if (const std::string* background = context.setting("intro-bg")) {
    settings.introBackground = *background;
  }
  if (const std::string* foreground = context.setting("intro-fg")) {
    settings.introForeground = *foreground;
  }
  applyWindowLook(context, settings);
  return settings;
}

}  // namespace brimble
