#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/SegmentLayout.h"
#include "BrimbleCore/Effects/WindowBar.h"

struct _cairo;

namespace brimble {

/// The bars painted above a segment's frames: a title bar (a plain title, or a desktop's three
/// window buttons), and for
/// browser segments a minimal address bar showing the page's address, into which a `navigate
/// ... show-typing` types the new one. Immutable once built; paint from any thread.
class WindowChrome {
 public:
  /// Seconds per typed character of an address when the navigation gave no duration.
  static constexpr double kTypingStep = 0.045;

  explicit WindowChrome(const RenderSegment& segment);

  /// What the address bar shows at `time`, and whether it is being typed (a caret shows).
  std::pair<std::string, bool> addressAt(double time) const;

  /// Paints `bar` into `layout`'s bar area; `roundTop` rounds its upper corners to the
  /// layout's corner radius.
  static void paintTitleBar(_cairo* cairo, const SegmentLayout& layout, const WindowBar& bar,
                            bool roundTop);
  void paintAddressBar(_cairo* cairo, const SegmentLayout& layout, double time,
                       bool roundTop) const;
  bool changesBetween(double from, double to) const;

 private:
  struct Navigation {
    double start = 0;
    double typingEnd = 0;  // equal to start when not typed
    std::string url;
  };
  std::string initial_;
  std::vector<Navigation> navigations_;
};

}  // namespace brimble
