#!/usr/bin/python3
"""Drives the tests' headless GNOME session as a user's mouse and keyboard would, through
mutter's own remote-desktop API (which asks nothing).

usage: wayland-input.py ACTION [ACTION ...] [-- COMMAND ARGS...]

  move:X,Y             the pointer to (X, Y) of the 1280x800 virtual monitor
  drag:X1,Y1,X2,Y2     press the left button at (X1, Y1), move in steps to (X2, Y2), release
  click:X,Y            a left click at (X, Y)
  key:NAME             press and release a key: Return, space, Escape, or one character
  sleep:SECONDS        wait

A COMMAND after the actions runs while the input devices still exist (the headless seat has a
keyboard only while a remote-desktop session lives, and clipboard clients need one); its output
and exit status are this script's."""
import subprocess
import sys
import time

import dbus

import wayland_remote

KEYSYMS = {'Return': 0xff0d, 'space': 0x20, 'Escape': 0xff1b, 'Shift_L': 0xffe1}
BUTTON_LEFT = 0x110  # BTN_LEFT


def keysym(name):
    if name in KEYSYMS:
        return KEYSYMS[name]
    if len(name) == 1:
        return ord(name)
    sys.exit(f'wayland-input.py: unknown key {name}')


session, stream = wayland_remote.start()


def move(x, y):
    session.NotifyPointerMotionAbsolute(stream, dbus.Double(x), dbus.Double(y))


def key(name, pressed):
    session.NotifyKeyboardKeysym(dbus.UInt32(keysym(name)), pressed)


# mutter drops the first key of a new input session.
key('Shift_L', True)
key('Shift_L', False)
time.sleep(0.05)

arguments = sys.argv[1:]
command = []
if '--' in arguments:
    command = arguments[arguments.index('--') + 1:]
    arguments = arguments[:arguments.index('--')]

for action in arguments:
    verb, _, argument = action.partition(':')
    values = [float(value) for value in argument.split(',')] if verb in ('move', 'drag', 'click') else []
    if verb == 'move':
        move(*values)
    elif verb == 'click':
        move(*values)
        time.sleep(0.05)
        session.NotifyPointerButton(BUTTON_LEFT, True)
        session.NotifyPointerButton(BUTTON_LEFT, False)
    elif verb == 'drag':
        x1, y1, x2, y2 = values
        move(x1, y1)
        time.sleep(0.05)
        session.NotifyPointerButton(BUTTON_LEFT, True)
        for step in range(1, 11):
            move(x1 + (x2 - x1) * step / 10, y1 + (y2 - y1) * step / 10)
            time.sleep(0.02)
        session.NotifyPointerButton(BUTTON_LEFT, False)
    elif verb == 'key':
        key(argument, True)
        key(argument, False)
        print(action, flush=True)  # when it was sent, for whoever measures what follows
    elif verb == 'sleep':
        time.sleep(float(argument))
    else:
        sys.exit(f'wayland-input.py: unknown action {action}')
    time.sleep(0.05)
status = subprocess.run(command).returncode if command else 0
session.Stop()
sys.exit(status)
