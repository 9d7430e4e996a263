#!/usr/bin/python3
"""A GTK 3 window of one colour and a known size, without a title bar, for the tests that record
a single window on Wayland: every pixel of the window is COLOUR, and nothing of it is the
desktop's. The application is named APP on the accessibility bus (`brimble --app APP`), and its
window TITLE (the name the desktop's window chooser lists).

usage: wayland-colour-window.py APP TITLE WIDTH HEIGHT COLOUR   (COLOUR as #rrggbb)"""
import sys

import gi

gi.require_version('Gdk', '3.0')
gi.require_version('Gtk', '3.0')
from gi.repository import Gdk, GLib, Gtk  # noqa: E402

app, title, width, height, colour = sys.argv[1:6]
GLib.set_prgname(app)
GLib.set_application_name(app)

window = Gtk.Window(title=title)
window.set_default_size(int(width), int(height))
window.set_resizable(False)
window.set_decorated(False)
style = Gtk.CssProvider()
style.load_from_data(('window { background: %s; }' % colour).encode())
Gtk.StyleContext.add_provider_for_screen(Gdk.Screen.get_default(), style,
                                         Gtk.STYLE_PROVIDER_PRIORITY_APPLICATION)
window.connect('destroy', Gtk.main_quit)
window.show_all()
Gtk.main()
