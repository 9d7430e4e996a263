#!/usr/bin/python3
"""Presses the desktop portal's dialogs inside the tests' headless GNOME session as a user
would, through mutter's own remote-desktop API (which asks nothing).

usage: wayland-approve.py DELAY_SECONDS screencast|remote|cancel
       wayland-approve.py DELAY_SECONDS window TITLE

screencast: the "Screen Share" dialog: the monitor row, then Share.
remote:     the "Remote desktop" dialog: the "Allow remote interaction" switch, then Share.
cancel:     either dialog: Escape.
window:     the "Screen Share" dialog that lists windows (GNOME Shell tells the portal of them):
            the row of the window titled TITLE, then Share.
The positions are those of the dialogs on the session's 1280x800 virtual monitor. The window
list's rows move with the windows open, so that mode finds the row by its title on the
accessibility bus, where the portal's GTK dialog shows itself, and presses it there."""
import sys
import time

import dbus

import wayland_remote

delay = float(sys.argv[1])
mode = sys.argv[2]


def find(node, matches):
    """The first element under `node`, itself included, that `matches`; None when there is none."""
    if matches(node):
        return node
    for index in range(node.get_child_count()):
        child = node.get_child_at_index(index)
        found = find(child, matches) if child is not None else None
        if found is not None:
            return found
    return None


def share_window(title, timeout=20):
    """Selects the row of `title` in the window chooser, then presses Share; the chooser may
    take a moment to come up and to list the windows."""
    import gi
    gi.require_version('Atspi', '2.0')
    from gi.repository import Atspi
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        desktop = Atspi.get_desktop(0)
        for index in range(desktop.get_child_count()):
            portal = desktop.get_child_at_index(index)
            if portal is None or portal.get_name() != 'xdg-desktop-portal-gnome':
                continue
            dialog = find(portal, lambda n: n.get_role() == Atspi.Role.FRAME and
                          n.get_name() == 'Screen Share')
            rows = dialog and find(dialog, lambda n: n.get_role() == Atspi.Role.LIST)
            share = dialog and find(dialog, lambda n: n.get_role() == Atspi.Role.PUSH_BUTTON and
                                    'Share' in n.get_name())
            if not rows or not share:
                continue
            titles = [rows.get_child_at_index(i).get_name() for i in range(rows.get_child_count())]
            if title in titles:
                Atspi.Selection.select_child(rows, titles.index(title))
                time.sleep(0.3)
                Atspi.Action.do_action(share, 0)  # click
                return
        time.sleep(0.2)
    sys.exit('no "Screen Share" dialog listing a window titled %r came up' % title)


time.sleep(delay)
if mode == 'window':
    share_window(sys.argv[3])
    sys.exit(0)
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
