#!/usr/bin/python3
"""Presses the desktop portal's dialogs inside the tests' headless GNOME session as a user
would, through mutter's own remote-desktop API (which asks nothing).

usage: wayland-approve.py DELAY_SECONDS screencast|remote|cancel

screencast: the "Screen Share" dialog: the monitor row, then Share.
remote:     the "Remote desktop" dialog: the "Allow remote interaction" switch, then Share.
cancel:     either dialog: Escape.
The positions are those of the dialogs on the session's 1280x800 virtual monitor."""
import sys
import time

import dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
delay = float(sys.argv[1])
mode = sys.argv[2]

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
stream = cast_session.RecordMonitor('Meta-0', {'cursor-mode': dbus.UInt32(0)})
loop = GLib.MainLoop()
bus.add_signal_receiver(lambda node: loop.quit(), 'PipeWireStreamAdded',
                        'org.gnome.Mutter.ScreenCast.Stream', None, stream)
session.Start()
GLib.timeout_add_seconds(10, loop.quit)
loop.run()


def click(x, y):
    session.NotifyPointerMotionAbsolute(stream, dbus.Double(x), dbus.Double(y))
    time.sleep(0.15)
    session.NotifyPointerButton(dbus.Int32(0x110), True)  # BTN_LEFT
    time.sleep(0.08)
    session.NotifyPointerButton(dbus.Int32(0x110), False)
    time.sleep(0.3)


time.sleep(delay)
if mode == 'screencast':
    for x, y in [(640, 426), (852, 273)]:
        click(x, y)
elif mode == 'remote':
    for x, y in [(830, 472), (852, 273)]:
        click(x, y)
else:
    # mutter drops the first key of a new input session: a Shift goes first.
    for keysym in (0xffe1, 0xff1b):  # Shift_L, Escape
        session.NotifyKeyboardKeysym(dbus.UInt32(keysym), True)
        session.NotifyKeyboardKeysym(dbus.UInt32(keysym), False)
        time.sleep(0.3)
session.Stop()
