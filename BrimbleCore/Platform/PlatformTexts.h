#pragma once

#include <string>

namespace brimble {

/// The sentences that name the platform's own mechanisms (its display server, how to reach a
/// session): each backend words them for itself, and core code takes them from the desktop it
/// drives rather than spelling them out. Plain value.
struct PlatformTexts {
  /// What is missing when the user's own session was asked for and there is none, as a clause
  /// ("$DISPLAY is not set").
  std::string sessionMissing;
  /// How to get one, as a clause ("run inside an X11 session").
  std::string sessionAdvice;
  /// A script cannot record: "Screen Recording permission required. ..." and how to get a
  /// screen.
  std::string screenRecordingRequired;
  /// The same for an MCP tool: "Screen Recording permission is required. ...".
  std::string toolScreenRecordingRequired;
  /// The permission resource's note when the screen cannot be captured: "Not granted — required
  /// for recording. ...".
  std::string screenRecordingNotGranted;
  /// `brimble_status`'s problem line when the screen cannot be captured (lower case, no stop).
  std::string screenProblem;
  /// An MCP input tool when synthetic input cannot reach the display.
  std::string toolInputUnavailable;
};

}  // namespace brimble
