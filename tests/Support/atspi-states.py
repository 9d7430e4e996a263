#!/usr/bin/python3
"""Prints how the elements of one application that have a role and a name stand, read from the
accessibility bus on its own (through libatspi's GObject bindings, not Brimble's code): one line
per element on screen, in the tree's order, "usable" or "greyed" (SENSITIVE), then "checked" and
"mixed" (CHECKED, INDETERMINATE) where they are.

usage: atspi-states.py PID ROLE NAME"""
import sys

import gi

gi.require_version('Atspi', '2.0')
from gi.repository import Atspi  # noqa: E402

pid, role, name = int(sys.argv[1]), sys.argv[2], sys.argv[3]


def visit(element, depth):
    if depth > 40:
        return
    for i in range(element.get_child_count()):
        child = element.get_child_at_index(i)
        if child is None:
            continue
        states = child.get_state_set()
        if (child.get_role_name() == role and child.get_name() == name and
                states.contains(Atspi.StateType.SHOWING)):
            words = ['usable' if states.contains(Atspi.StateType.SENSITIVE) else 'greyed']
            if states.contains(Atspi.StateType.CHECKED):
                words.append('checked')
            if states.contains(Atspi.StateType.INDETERMINATE):
                words.append('mixed')
            print(' '.join(words))
        visit(child, depth + 1)


desktop = Atspi.get_desktop(0)
for index in range(desktop.get_child_count()):
    application = desktop.get_child_at_index(index)
    if application is not None and application.get_process_id() == pid:
        visit(application, 0)
