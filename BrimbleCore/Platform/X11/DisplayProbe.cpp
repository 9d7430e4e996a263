#include "BrimbleCore/Platform/X11/DisplayProbe.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>

namespace brimble::x11 {

DisplayOffer probeDisplay(const std::string& name) {
  DisplayOffer offer;
  const XDisplayPtr display = openDisplay(name);
  if (!display) {
    return offer;
  }
  offer.reachable = true;
  offer.size = screenSize(display.get());
  int eventBase = 0;
  int errorBase = 0;
  int major = 0;
  int minor = 0;
  offer.xtest = XTestQueryExtension(display.get(), &eventBase, &errorBase, &major, &minor) == True;
  // A server may accept clients yet refuse to hand out its pixels (a locked-down X server): only
  // reading one back tells.
  XImage* pixel = nullptr;
  const bool read = succeeds(display.get(), [&] {
    pixel =
        XGetImage(display.get(), DefaultRootWindow(display.get()), 0, 0, 1, 1, AllPlanes, ZPixmap);
  });
  offer.captures = read && pixel != nullptr;
  if (pixel != nullptr) {
    XDestroyImage(pixel);
  }
  return offer;
}

}  // namespace brimble::x11
