#!/usr/bin/python3
"""A GTK 3 window for the Wayland input and window tests, maximized so that its elements' places
in the window are their places on the screen (a Wayland client does not know where its window
is, and mutter puts a maximized one at the top-left corner).

usage: wayland-gtk-form.py TITLE [--snapshot FILE.png] [--undecorated]

It holds, top to bottom: an entry (focused at start); a "Press me" button that counts its clicks
in the label "clicked N"; a "Keys" pad, a focusable widget that takes text through GTK's input
method (as a terminal does) and shows it in the label "keys: ...", but is no editable text on the
accessibility bus; and a scrolled list of 300 lines. With --snapshot, SIGUSR1 draws the window
into FILE.png; --undecorated leaves out the title bar and its close button."""
import signal
import sys

import gi

gi.require_version('Gdk', '3.0')
gi.require_version('Gtk', '3.0')
from gi.repository import Gdk, GLib, Gtk  # noqa: E402

title = sys.argv[1]
snapshot = sys.argv[sys.argv.index('--snapshot') + 1] if '--snapshot' in sys.argv else None

window = Gtk.Window(title=title)
window.set_default_size(800, 600)
box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL, spacing=6)

entry = Gtk.Entry()
box.pack_start(entry, False, False, 0)

clicks = Gtk.Label(label='clicked 0')
count = [0]


def clicked(_button):
    count[0] += 1
    clicks.set_text('clicked %d' % count[0])


button = Gtk.Button(label='Press me')
button.connect('clicked', clicked)
box.pack_start(button, False, False, 0)
box.pack_start(clicks, False, False, 0)

keys = Gtk.Label(label='keys: ')
pad = Gtk.DrawingArea()
pad.set_size_request(-1, 40)
pad.set_can_focus(True)
pad.add_events(Gdk.EventMask.KEY_PRESS_MASK | Gdk.EventMask.KEY_RELEASE_MASK |
               Gdk.EventMask.BUTTON_PRESS_MASK)
pad.get_accessible().set_name('Keys')
input_method = Gtk.IMContextSimple()
input_method.connect('commit', lambda _context, text: keys.set_text(keys.get_text() + text))
pad.connect('key-press-event', lambda _widget, event: input_method.filter_keypress(event))
pad.connect('key-release-event', lambda _widget, event: input_method.filter_keypress(event))
pad.connect('button-press-event', lambda widget, _event: widget.grab_focus())
pad.connect('focus-in-event', lambda widget, _event: input_method.focus_in())
pad.connect('focus-out-event', lambda widget, _event: input_method.focus_out())
pad.connect('realize', lambda widget: input_method.set_client_window(widget.get_window()))


frame = Gtk.Frame()
frame.add(pad)
box.pack_start(frame, False, False, 0)
box.pack_start(keys, False, False, 0)

scrolled = Gtk.ScrolledWindow()
scrolled.set_vexpand(True)
lines = Gtk.Box(orientation=Gtk.Orientation.VERTICAL)
for number in range(300):
    lines.pack_start(Gtk.Label(label='line %d' % number), False, False, 0)
scrolled.add(lines)
box.pack_start(scrolled, True, True, 0)

window.add(box)
window.set_decorated('--undecorated' not in sys.argv)
window.connect('destroy', Gtk.main_quit)
window.maximize()
window.show_all()
entry.grab_focus()


def draw_snapshot():
    allocation = window.get_allocation()
    picture = Gdk.pixbuf_get_from_window(window.get_window(), 0, 0, allocation.width,
                                         allocation.height)
    picture.savev(snapshot, 'png', [], [])
    return GLib.SOURCE_CONTINUE


if snapshot:
    GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR1, draw_snapshot)
Gtk.main()
