#!/usr/bin/python3
"""Waits, up to twenty seconds, until one application shows a window of that title on the
accessibility bus (read through libatspi's GObject bindings, not Brimble's code): whatever role
its toolkit gives a top-level window there.

usage: atspi-window.py PID TITLE"""
import sys
import time

import gi

gi.require_version('Atspi', '2.0')
from gi.repository import Atspi  # noqa: E402

pid, title = int(sys.argv[1]), sys.argv[2]
deadline = time.monotonic() + 20
while time.monotonic() < deadline:
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        application = desktop.get_child_at_index(index)
        if application is None or application.get_process_id() != pid:
            continue
        for window in range(application.get_child_count()):
            child = application.get_child_at_index(window)
            if child is not None and child.get_name() == title:
                sys.exit(0)
    time.sleep(0.2)
sys.exit(f'atspi-window.py: no window "{title}" in process {pid}')
