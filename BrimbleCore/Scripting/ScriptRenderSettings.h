#pragma once

#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Scripting/ScriptContext.h"

namespace brimble {

/// The frame rate of a preview: quick to record and to render.
inline constexpr int kPreviewFPS = 10;
/// The width a preview is rendered at, at most.
inline constexpr int kPreviewMaxWidth = 400;

/// What a script's settings ask of the render: `fps`, `max-width`, `loop-count`, `transition`,
/// `palette-strategy`, the effect switches, `idle-strategy` and `idle-threshold`, the title
/// cards' `intro-bg` and `intro-fg`, and the window's look (`window-bar`, `window-bar-size`,
/// `window-title`, `border-radius`, `margin`, `margin-fill`). A value the table rules out (`set fps
/// 25`) leaves the default. `preview` renders at 10 fps and at most 400 pixels wide. The format,
/// title cards and background are the engine's to fill in.
RenderSettings scriptRenderSettings(const ScriptContext& context, bool preview);

/// The frame rate a script records and renders at: `fps`, or 10 for a preview.
int scriptFrameRate(const ScriptContext& context, bool preview);

}  // namespace brimble
