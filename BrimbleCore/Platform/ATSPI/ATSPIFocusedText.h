#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

struct _AtspiAccessible;  // libatspi's AtspiAccessible, declared here so the header needs no atspi

namespace brimble::atspi {

/// The text field that has the keyboard focus on the desktop, as the accessibility bus shows it:
/// where text that no key of the keyboard map types is put at the caret through the field's
/// editable text, as if typed there. The focus is that of the active window (the ACTIVE state),
/// so it follows the user from window to window. Works with every toolkit that publishes its
/// fields on the bus (GTK, Qt, Chromium with accessibility on). Connects to the bus on first use;
/// without one it finds nothing. One thread at a time.
class ATSPIFocusedText {
 public:
  /// How long `insert` waits for keys sent before it to arrive.
  static constexpr std::chrono::milliseconds kKeysTimeout{500};

  ATSPIFocusedText();
  ATSPIFocusedText(const ATSPIFocusedText&) = delete;
  ATSPIFocusedText& operator=(const ATSPIFocusedText&) = delete;
  ~ATSPIFocusedText();

  /// Puts UTF-8 `text` at the caret of the focused editable text, in place of its selection as
  /// typing would, and leaves the caret after it. Keys travel through the compositor and this
  /// through the bus, so either could overtake the other: it first waits (up to `kKeysTimeout`)
  /// until the characters `keyedBefore`, sent as keys since the last insertion, stand before the
  /// caret. False, with nothing inserted, when nothing editable has the focus.
  bool insert(const std::string& text, const std::string& keyedBefore);

  /// The toolkit of the application whose window is active ("gtk", "qt"), lower-cased; empty
  /// when no window on the bus is active.
  std::string activeToolkit();

 private:
  struct Release {
    void operator()(_AtspiAccessible* element) const noexcept;
  };
  using ElementPtr = std::unique_ptr<_AtspiAccessible, Release>;

  bool connected();
  /// The focused editable text of the active window; null when there is none.
  ElementPtr focusedField();

  std::optional<bool> connected_;
  ElementPtr lastField_;  // asked first: the focus rarely moves while text is typed
};

}  // namespace brimble::atspi
