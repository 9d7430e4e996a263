// A small X client for the platform tests: one window of a known colour, name and class, that
// logs what it receives on standard output, one line per event:
//   window <id>                        once mapped
//   key press <keysym> <state>         (and "key release")
//   button press <n> <x> <y>           window coordinates (and "button release")
//   motion <x> <y>
//   focus in | focus out | closed
// It ends when standard input closes or the window manager asks it to close. A line
// "warp <x> <y>" on standard input moves the pointer there the way a program does
// (XWarpPointer), not as a device would; "resize <width> <height>" asks for a new size;
// "color <RRGGBB>" repaints the window in that colour. --max-size asks the window manager to keep
// the window at most that large, as applications with a fixed size do.
//
//   BrimbleX11TestClient [--title T] [--class C] [--size WxH] [--position X,Y] [--color RRGGBB]
//                        [--max-size WxH]

#include <cstdio>
#include <cstdlib>
#include <string>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <poll.h>
#include <unistd.h>

int main(int argc, char** argv) {
  std::string title = "Brimble test window";
  std::string windowClass = "BrimbleTestClient";
  int width = 400;
  int height = 300;
  int x = 0;
  int y = 0;
  unsigned long color = 0x336699;
  int maxWidth = 0;
  int maxHeight = 0;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    const std::string value = argv[i + 1];
    if (option == "--title") {
      title = value;
    } else if (option == "--class") {
      windowClass = value;
    } else if (option == "--size") {
      std::sscanf(value.c_str(), "%dx%d", &width, &height);
    } else if (option == "--position") {
      std::sscanf(value.c_str(), "%d,%d", &x, &y);
    } else if (option == "--max-size") {
      std::sscanf(value.c_str(), "%dx%d", &maxWidth, &maxHeight);
    } else if (option == "--color") {
      color = std::strtoul(value.c_str(), nullptr, 16);
    }
  }
  Display* display = XOpenDisplay(nullptr);
  if (display == nullptr) {
    std::fprintf(stderr, "cannot open display\n");
    return 1;
  }
  const int screen = DefaultScreen(display);
  XSetWindowAttributes attributes{};
  attributes.background_pixel = color;
  attributes.event_mask = KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask |
                          PointerMotionMask | FocusChangeMask | StructureNotifyMask;
  const Window window =
      XCreateWindow(display, RootWindow(display, screen), x, y, static_cast<unsigned>(width),
                    static_cast<unsigned>(height), 0, CopyFromParent, InputOutput, CopyFromParent,
                    CWBackPixel | CWEventMask, &attributes);
  XStoreName(display, window, title.c_str());
  XClassHint hint{const_cast<char*>("brimble-test-client"), const_cast<char*>(windowClass.c_str())};
  XSetClassHint(display, window, &hint);
  XSizeHints sizeHints{};
  sizeHints.flags = USPosition | USSize;
  sizeHints.x = x;
  sizeHints.y = y;
  sizeHints.width = width;
  sizeHints.height = height;
  if (maxWidth > 0 && maxHeight > 0) {
    sizeHints.flags |= PMaxSize;
    sizeHints.max_width = maxWidth;
    sizeHints.max_height = maxHeight;
  }
  XSetWMNormalHints(display, window, &sizeHints);
  const long pid = static_cast<long>(getpid());
  XChangeProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32,
                  PropModeReplace, reinterpret_cast<const unsigned char*>(&pid), 1);
  Atom deleteWindow = XInternAtom(display, "WM_DELETE_WINDOW", False);
  XSetWMProtocols(display, window, &deleteWindow, 1);
  XMapWindow(display, window);
  XFlush(display);

  const auto say = [](const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
  };
  pollfd waits[2] = {{ConnectionNumber(display), POLLIN, 0}, {0, POLLIN, 0}};
  while (true) {
    while (XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
      switch (event.type) {
        case MapNotify:
          say("window " + std::to_string(window));
          break;
        case KeyPress:
        case KeyRelease: {
          const KeySym keysym = XLookupKeysym(&event.xkey, 0);
          const char* name = XKeysymToString(keysym);
          say(std::string(event.type == KeyPress ? "key press " : "key release ") +
              (name != nullptr ? name : "?") + " " + std::to_string(event.xkey.state));
          break;
        }
        case ButtonPress:
        case ButtonRelease:
          say(std::string(event.type == ButtonPress ? "button press " : "button release ") +
              std::to_string(event.xbutton.button) + " " + std::to_string(event.xbutton.x) + " " +
              std::to_string(event.xbutton.y));
          break;
        case MotionNotify:
          say("motion " + std::to_string(event.xmotion.x) + " " + std::to_string(event.xmotion.y));
          break;
        case MappingNotify:
          // Keys bound for one keystroke must be read with the new map.
          XRefreshKeyboardMapping(&event.xmapping);
          break;
        case FocusIn:
          say("focus in");
          break;
        case FocusOut:
          say("focus out");
          break;
        case ClientMessage:
          if (static_cast<Atom>(event.xclient.data.l[0]) == deleteWindow) {
            say("closed");
            XCloseDisplay(display);
            return 0;
          }
          break;
        default:
          break;
      }
    }
    if (poll(waits, 2, 1000) > 0 && (waits[1].revents & (POLLIN | POLLHUP)) != 0) {
      char buffer[256];
      const ssize_t got = read(0, buffer, sizeof buffer - 1);
      if (got <= 0) {
        break;
      }
      buffer[got] = '\0';
      int a = 0;
      int b = 0;
      if (std::sscanf(buffer, "warp %d %d", &a, &b) == 2) {
        XWarpPointer(display, None, RootWindow(display, screen), 0, 0, 0, 0, a, b);
      } else if (unsigned long rgb = 0; std::sscanf(buffer, "color %lx", &rgb) == 1) {
        XSetWindowBackground(display, window, rgb);
        XClearWindow(display, window);
      } else if (std::sscanf(buffer, "resize %d %d", &a, &b) == 2) {
        XResizeWindow(display, window, static_cast<unsigned>(a), static_cast<unsigned>(b));
      }
      XFlush(display);
    }
  }
  XCloseDisplay(display);
  return 0;
}
