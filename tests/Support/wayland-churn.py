#!/usr/bin/python3
"""A window that fills the screen of the tests' headless GNOME session and redraws a page of text
sixty times a second (or RATE times), so that the compositor sends a new picture for every frame
a 30 or 60 fps capture asks for, and JPEG has real text to compress.

usage: wayland-churn.py [RATE]"""
import os
import sys
import time

import gi

gi.require_version('Gtk', '3.0')
from gi.repository import GLib, Gtk  # noqa: E402

LINES = sorted(os.listdir('/usr/bin'))[:40]

window = Gtk.Window(title='churn')
label = Gtk.Label(xalign=0, yalign=0)
label.set_selectable(False)
window.add(label)
window.fullscreen()
window.connect('destroy', Gtk.main_quit)


def redraw():
    now = time.monotonic_ns()
    shift = (now // 16_000_000) % len(LINES)
    page = LINES[shift:] + LINES[:shift]
    label.set_markup('<tt>' + GLib.markup_escape_text(
        '\n'.join(f'{now:>20} {name:<40} {now % 997:>4}' for name in page)) + '</tt>')
    return True


GLib.timeout_add(1000 // (int(sys.argv[1]) if len(sys.argv) > 1 else 60), redraw)
window.show_all()
Gtk.main()
