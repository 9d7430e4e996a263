#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIFocusedText.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/RemoteDesktopSession.h"
#include "BrimbleCore/Platform/Wayland/RestoreTokenFile.h"

namespace brimble::wayland {

/// Input on a Wayland desktop, which lets no client send events of its own: a remote-desktop
/// session of the desktop portal carries them, and the user allows it in the desktop's dialog
/// when the first event is sent (not before). A `KeyNumber` here is an X keysym: the compositor
/// finds the key for it in its own keyboard map, which no client may change, and drops a keysym
/// the map lacks (measured: "héllo ✓ Ω" arrived as "hllo  "). So keys type printable ASCII only,
/// and every other character is put at the caret of the focused text field through the
/// accessibility bus (`typeWithoutKey`), or, in a GTK application whose focused widget is no
/// such field (a terminal), typed through GTK's Unicode entry (Ctrl+Shift+U, its hex digits,
/// space). Buttons become evdev buttons and wheel clicks discrete axis steps; the pointer moves in
/// the logical coordinates of the monitor the session shares. Wayland tells no client where the
/// pointer is or which keys are down: `cursorPosition` is where it was last put (0,0 before) and
/// `keyboardState` holds only our own keys.
///
/// When the user cancels the dialog, the event that opened it throws PortalError::cancelled
/// ("Screen sharing was cancelled"), and the next event asks again; so does the next event after
/// the desktop ended the session. Portals from version 2 remember the permission under a
/// restore token kept in `Options::tokenFile`; version 1 (Debian 12) cannot, so each backend asks
/// once. One thread at a time.
class WaylandInputBackend final : public InputBackend {
 public:
  struct Options {
    /// Where the portal's restore token is kept between runs; empty: nowhere.
    std::filesystem::path tokenFile{};
    /// How long the user may take with the dialog.
    std::chrono::milliseconds dialogTimeout = std::chrono::minutes(5);
  };

  /// Sends nothing and asks nothing yet. `portal` may be null: nothing is available then.
  WaylandInputBackend(std::shared_ptr<DesktopPortal> portal, Options options);
  WaylandInputBackend(const WaylandInputBackend&) = delete;
  WaylandInputBackend& operator=(const WaylandInputBackend&) = delete;
  WaylandInputBackend(WaylandInputBackend&&) = delete;
  WaylandInputBackend& operator=(WaylandInputBackend&&) = delete;
  /// Releases the keys and buttons it still holds, and closes the session.
  ~WaylandInputBackend() override;

  /// Whether the portal offers remote input (asked once); the user may still refuse.
  bool available() const override;
  std::string unavailableReason() const override;

  // Each starts the session first when there is none (the dialog); throws PortalError then.
  void keyDown(KeyNumber key) override;
  void keyUp(KeyNumber key) override;
  void buttonDown(int button) override;
  void buttonUp(int button) override;
  /// Clamped to the shared monitor.
  void moveTo(ScreenPoint point) override;
  ScreenPoint cursorPosition() override { return cursor_; }

  /// Printable ASCII, which every Latin keyboard map holds; Shift and other levels are the
  /// compositor's to add. No value for anything else.
  std::optional<KeyStroke> strokeFor(char32_t character) override;
  std::optional<KeyNumber> keyForVirtualCode(int virtualKeyCode) override;
  std::optional<KeyNumber> keyForModifier(Modifier modifier) override;
  /// None: the keyboard map is the compositor's.
  std::optional<KeyNumber> bindSpareKey(char32_t) override { return std::nullopt; }
  void restoreSpareKeys() override {}
  std::string untypableReason() const override;
  bool typeWithoutKey(char32_t character) override;
  KeyboardState keyboardState() override;

 private:
  /// The session, started (and primed) when there is none. Throws PortalError.
  RemoteDesktopSession& session();
  /// Sends through the session; a session the desktop ended is dropped, so the next event asks
  /// again. Throws PortalError.
  template <typename Send>
  void send(const Send& event);
  void unicodeEntry(char32_t character);
  /// Before a session's first key: waits (a bounded time) for a window to take the keyboard.
  void readyForKeys();

  std::shared_ptr<DesktopPortal> portal_;
  Options options_;
  RestoreTokenFile tokenFile_;
  mutable std::optional<unsigned> version_;  // of the portal's RemoteDesktop, asked once
  std::unique_ptr<RemoteDesktopSession> session_;
  bool readyForKeys_ = false;  // whether this session's keys have a window to go to
  bool pointerShown_ = false;  // whether this session's pointer has been placed once
  atspi::ATSPIFocusedText focusedText_;
  ScreenPoint cursor_;
  std::vector<KeyNumber> keysDown_;
  std::vector<int> buttonsDown_;
  /// The characters typed by keys since the last one put in without a key: an insertion waits
  /// until they have arrived. Cleared by keys that move the caret or type nothing.
  std::string keyedSinceInsertion_;
  /// When a key the insertion cannot wait for was last sent.
  std::optional<std::chrono::steady_clock::time_point> untrackedKeyAt_;
};

}  // namespace brimble::wayland
