"""A session of mutter's own remote-desktop API (which asks nothing) in the tests' headless
GNOME session, with a stream of its monitor so that absolute pointer motion has coordinates:
what the tests' helpers press and move through, as a user's keyboard and mouse would."""
import dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib


def start():
    """Starts a session; returns (session, stream) once mutter streams the monitor."""
    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
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
    return session, stream
