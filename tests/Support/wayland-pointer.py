#!/usr/bin/python3
"""Moves the pointer of the tests' headless GNOME session as a user's mouse would, through
mutter's own remote-desktop API (which asks nothing).

usage: wayland-pointer.py X Y [X Y ...]

Each pair is a position on the session's 1280x800 virtual monitor; the pointer goes to each in
turn and stays at the last."""
import sys
import time

import dbus

import wayland_remote

points = [float(value) for value in sys.argv[1:]]
if not points or len(points) % 2 != 0:
    sys.exit('usage: wayland-pointer.py X Y [X Y ...]')
session, stream = wayland_remote.start()

for x, y in zip(points[0::2], points[1::2]):
    session.NotifyPointerMotionAbsolute(stream, dbus.Double(x), dbus.Double(y))
    time.sleep(0.1)
session.Stop()
