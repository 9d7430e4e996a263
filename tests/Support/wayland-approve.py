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

import wayland_remote

delay = float(sys.argv[1])
mode = sys.argv[2]
session, stream = wayland_remote.start()


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
