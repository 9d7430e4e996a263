#!/usr/bin/python3
"""Moves the pointer of the tests' headless GNOME session as a user's mouse would, through
mutter's own remote-desktop API (which asks nothing).

usage: wayland-pointer.py X Y [X Y ...]

Each pair is a position on the session's 1280x800 virtual monitor; the pointer goes to each in
turn and stays at the last."""
import sys
import time

import dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
points = [float(value) for value in sys.argv[1:]]
if not points or len(points) % 2 != 0:
    sys.exit('usage: wayland-pointer.py X Y [X Y ...]')

remote = dbus.Interface(bus.get_object('org.gnome.Mutter.RemoteDesktop', '/org/gnome/Mutter/RemoteDesktop'),
                        'org.gnome.Mutter.RemoteDesktop')
cast = dbus.Interface(bus.get_object('org.gnome.Mutter.ScreenCast', '/org/gnome/Mutter/ScreenCast'),
                      'org.gnome.Mutter.ScreenCast')
session_path = remote.CreateSession()
session_object = bus.get_object('org.gnome.Mutter.RemoteDesktop', session_path)
session = dbus.Interface(session_object, 'org.gnome.Mutter.RemoteDesktop.Session')
session_id = dbus.Interface(session_object, 'org.freedesktop.DBus.Properties').Get(
    'org.gnome.Mutter.RemoteDesktop.Session', 'SessionId')
cast_session = dbus.Interface(
    bus.get_object('org.gnome.Mutter.ScreenCast', cast.CreateSession({'remote-desktop-session-id': session_id})),
    'org.gnome.Mutter.ScreenCast.Session')
# Absolute motion needs a stream of the monitor to give the coordinates meaning.
stream = cast_session.RecordMonitor('Meta-0', {'cursor-mode': dbus.UInt32(0)})
loop = GLib.MainLoop()
bus.add_signal_receiver(lambda node: loop.quit(), 'PipeWireStreamAdded',
                        'org.gnome.Mutter.ScreenCast.Stream', None, stream)
session.Start()
GLib.timeout_add_seconds(10, loop.quit)
loop.run()

for x, y in zip(points[0::2], points[1::2]):
    session.NotifyPointerMotionAbsolute(stream, dbus.Double(x), dbus.Double(y))
    time.sleep(0.1)
session.Stop()
