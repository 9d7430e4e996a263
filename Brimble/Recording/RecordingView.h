#pragma once

#include <string>

#include "BrimbleCore/Capture/ScreenRect.h"

namespace brimble {

/// How the control panel presents itself.
enum class PanelMode { ready, countdown, recording };

/// How a message to the user is shown.
enum class MessageKind { information, warning, error };

/// The on-screen pieces of a recording session: the selection overlay, the window picker, the
/// control panel, announcements and messages. The Qt shell implements it; the session's tests
/// record its calls. Main thread only.
class RecordingView {
 public:
  virtual ~RecordingView() = default;

  virtual void showRegionOverlay() = 0;
  virtual void showWindowPicker() = 0;
  /// Orders the overlay and the window picker out.
  virtual void hideSelection() = 0;
  /// Shows the control panel in `mode` beside `region` (never over it: it must stay out of the
  /// recording).
  virtual void showPanel(PanelMode mode, const ScreenRect& region) = 0;
  virtual void showCountdown(int seconds, const std::string& accessibleText) = 0;
  virtual void showElapsed(const std::string& text, const std::string& accessibleText) = 0;
  /// The pause button's look: Resume when `paused`.
  virtual void showPaused(bool paused) = 0;
  virtual void dismissPanel() = 0;
  /// Shows the drawing layer over the screen, taking the pointer while `drawing`; with
  /// `drawing` off the marks stay on screen but the pointer goes back to the desktop. `visible`
  /// off clears the marks.
  virtual void showAnnotationLayer(bool visible, bool drawing) = 0;
  /// Tells assistive technology (and the status line) about a phase change.
  virtual void announce(const std::string& text) = 0;
  virtual void showMessage(const std::string& text, MessageKind kind) = 0;
};

}  // namespace brimble
