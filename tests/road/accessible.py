#!/usr/bin/env python3
"""What a screen reader is told of a program's windows, as JSON: of each control that can be seen, its
name, and where it lies in its window: left, top, width, height. The window itself comes before them.

usage: accessible.py PROGRAM
"""

import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402


def visit(control, found):
    if control is None or not control.get_state_set().contains(Atspi.StateType.SHOWING):
        return
    place = Atspi.Component.get_extents(control, Atspi.CoordType.WINDOW)
    found.append([control.get_name(), place.x, place.y, place.width, place.height])
    for child in children(control):
        visit(child, found)


def children(control):
    return [control.get_child_at_index(index) for index in range(control.get_child_count())]


def main():
    windows = []
    for program in children(Atspi.get_desktop(0)):
        if program and program.get_name() == sys.argv[1]:
            for window in children(program):
                found = []
                visit(window, found)
                windows += [found] if found else []
    print(json.dumps(windows))


if __name__ == "__main__":
    main()
