#!/usr/bin/python3
"""Presses a button of one application through the accessibility bus (libatspi's GObject
bindings, not Brimble's code), as a screen reader's user would: its first action. Looks for up to
twenty seconds, while the application comes up.

usage: atspi-press.py PID NAME"""
import sys
import time

import gi

gi.require_version('Atspi', '2.0')
from gi.repository import Atspi  # noqa: E402

pid, name = int(sys.argv[1]), sys.argv[2]


def find(element, depth):
    if depth > 40:
        return None
    for i in range(element.get_child_count()):
        child = element.get_child_at_index(i)
        if child is None:
            continue
        if child.get_role_name() == 'push button' and child.get_name() == name:
            return child
        found = find(child, depth + 1)
        if found is not None:
            return found
    return None


deadline = time.monotonic() + 20
while time.monotonic() < deadline:
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        application = desktop.get_child_at_index(index)
        if application is not None and application.get_process_id() == pid:
            button = find(application, 0)
            if button is not None:
                button.get_action_iface().do_action(0)
                sys.exit(0)
    time.sleep(0.2)
sys.exit(f'atspi-press.py: no button "{name}" in process {pid}')
