#!/usr/bin/python3
"""A desktop portal that offers only global shortcuts, as the documented interfaces describe
them (org.freedesktop.portal.GlobalShortcuts version 1, and xdg-desktop-portal 1.19's
org.freedesktop.host.portal.Registry), for the tests of a desktop whose portal has them. Debian
12's portal has not.

usage: portal-global-shortcuts.py [--no-registry] [--decline]

Owns org.freedesktop.portal.Desktop on the session bus of the environment. Writes one line on
standard output for each thing it is asked ("ready" first):
  register APP_ID
  create-session SESSION_HANDLE
  bind SESSION_HANDLE ID PREFERRED_TRIGGER DESCRIPTION
  close SESSION_HANDLE
and takes commands on standard input: "press N" sends N presses (Activated, then Deactivated) of
every bound shortcut to the app that bound it. --decline answers BindShortcuts as a user who
closes the dialog; --no-registry leaves the registry out, as portals before 1.19 do."""
import sys

import dbus
import dbus.lowlevel
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

PATH = '/org/freedesktop/portal/desktop'
SHORTCUTS = 'org.freedesktop.portal.GlobalShortcuts'
REGISTRY = 'org.freedesktop.host.portal.Registry'

registry = '--no-registry' not in sys.argv
decline = '--decline' in sys.argv


def say(line):
    print(line, flush=True)


def sender_element(sender):
    return sender[1:].replace('.', '_')


class Portal(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, PATH)
        self.bus = bus
        self.sessions = {}  # session handle -> (owner, [shortcut ids])
        self.serial = 0

    def respond(self, sender, token, code, results):
        path = '%s/request/%s/%s' % (PATH, sender_element(sender), token)

        def send():
            message = dbus.lowlevel.SignalMessage(path, 'org.freedesktop.portal.Request',
                                                  'Response')
            message.append(dbus.UInt32(code), dbus.Dictionary(results, signature='sv'),
                           signature='ua{sv}')
            message.set_destination(sender)
            self.bus.send_message(message)
            return False
        # After the method's reply, as the real portal answers.
        GLib.timeout_add(20, send)
        return dbus.ObjectPath(path)

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature='ss', out_signature='v')
    def Get(self, interface, name):
        if interface == SHORTCUTS and name == 'version':
            return dbus.UInt32(1, variant_level=1)
        if interface == REGISTRY and registry and name == 'version':
            return dbus.UInt32(1, variant_level=1)
        raise dbus.exceptions.DBusException('no property %s.%s' % (interface, name),
                                            name='org.freedesktop.DBus.Error.UnknownProperty')

    @dbus.service.method(REGISTRY, in_signature='sa{sv}', out_signature='')
    def Register(self, app_id, options):
        if not registry:
            raise dbus.exceptions.DBusException(
                'no registry', name='org.freedesktop.DBus.Error.UnknownMethod')
        say('register %s' % app_id)

    @dbus.service.method(SHORTCUTS, in_signature='a{sv}', out_signature='o',
                         sender_keyword='sender')
    def CreateSession(self, options, sender=None):
        session = '%s/session/%s/%s' % (PATH, sender_element(sender),
                                        options['session_handle_token'])
        self.sessions[session] = (sender, [])
        say('create-session %s' % session)
        return self.respond(sender, options['handle_token'], 0,
                            {'session_handle': dbus.String(session)})

    @dbus.service.method(SHORTCUTS, in_signature='oa(sa{sv})sa{sv}', out_signature='o',
                         sender_keyword='sender')
    def BindShortcuts(self, session, shortcuts, parent_window, options, sender=None):
        bound = []
        for shortcut_id, info in shortcuts:
            say('bind %s %s %s %s' % (session, shortcut_id, info.get('preferred_trigger', ''),
                                      info.get('description', '')))
            bound.append(dbus.Struct((shortcut_id, dbus.Dictionary({
                'description': info.get('description', ''),
                'trigger_description': info.get('preferred_trigger', '')}, signature='sv')),
                signature='sa{sv}'))
        if decline:
            return self.respond(sender, options['handle_token'], 1, {})
        self.sessions[session][1].extend(str(shortcut_id) for shortcut_id, _ in shortcuts)
        return self.respond(sender, options['handle_token'], 0,
                            {'shortcuts': dbus.Array(bound, signature='(sa{sv})')})

    def press(self, count):
        for session, (owner, ids) in self.sessions.items():
            for _ in range(count):
                for shortcut_id in ids:
                    self.serial += 1
                    for member in ('Activated', 'Deactivated'):
                        message = dbus.lowlevel.SignalMessage(PATH, SHORTCUTS, member)
                        message.append(dbus.ObjectPath(session), shortcut_id,
                                       dbus.UInt64(self.serial), dbus.Dictionary({}, signature='sv'),
                                       signature='osta{sv}')
                        message.set_destination(owner)
                        self.bus.send_message(message)


class Session(dbus.service.FallbackObject):
    """Answers Close on every session path."""

    def __init__(self, bus, portal):
        super().__init__(bus, PATH + '/session')
        self.portal = portal

    @dbus.service.method('org.freedesktop.portal.Session', in_signature='', out_signature='',
                         rel_path_keyword='rel_path')
    def Close(self, rel_path=None):
        session = PATH + '/session' + rel_path
        self.portal.sessions.pop(session, None)
        say('close %s' % session)


def main():
    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    portal = Portal(bus)
    Session(bus, portal)
    # Held for the whole run: the name is released when this object goes.
    name = dbus.service.BusName('org.freedesktop.portal.Desktop', bus, do_not_queue=True)
    loop = GLib.MainLoop()

    def command(source, condition):
        line = sys.stdin.readline()
        if not line:
            loop.quit()
            return False
        words = line.split()
        if len(words) == 2 and words[0] == 'press':
            portal.press(int(words[1]))
            say('pressed %s' % words[1])
        return True
    GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, command)
    say('ready')
    loop.run()
    del name


main()
