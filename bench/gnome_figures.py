#!/usr/bin/env python3
"""The figures of the screen server in a GNOME session at 1920x1080, drawn by software.

usage: gnome_figures.py BUILD_FOLDER
"""

import os
import sys
import threading

HERE = os.path.dirname(os.path.abspath(__file__))
for folder in ("support", "road"):
    sys.path.insert(0, os.path.join(HERE, "..", "tests", folder))
import sway_figures  # noqa: E402
from desktop import enter_own_machine  # noqa: E402
from figures import finish, missed  # noqa: E402
from gnome import PROGRAMS, GnomeDesktop  # noqa: E402
from gnome_test import start_sharing  # noqa: E402
from stage import let_in, processes_named  # noqa: E402

LIMITS = {**sway_figures.LIMITS, "key to picture, ms": 45}


class Server:
    """As the figures of sway want it."""

    def __init__(self, pid):
        self.process = self
        self.pid = pid


def main():
    build = os.path.abspath(sys.argv[1])
    enter_own_machine(build, PROGRAMS)
    shown = sys.stdout
    with open(os.devnull, "w", encoding="utf-8") as sys.stdout, \
            GnomeDesktop(build, size=(1920, 1080)) as desktop:
        zelvo, _ = start_sharing(desktop)

        def show(script):
            content = desktop.start_in_session("foot", "-F", "/usr/bin/python3", "-c", script)
            desktop.windows("foot")
            desktop.click(960, 540)
            # Full-screen windows hide the question.
            threading.Thread(target=let_in, args=[zelvo], daemon=True).start()
            return content
        figures = sway_figures.measure(desktop, show, Server(processes_named("screensharingd")[0]))
    sys.stdout = shown
    print("in GNOME")
    for figure, value in figures.items():
        limit = LIMITS.get(figure)
        is_missed = limit is not None and value > limit
        if is_missed:
            missed.append(figure)
        print(f"{figure:30}{value:16.2f}{'' if limit is None else f'{limit:16}'}"
              f"{'  MISSED' if is_missed else ''}")
    finish()


if __name__ == "__main__":
    main()
