#!/usr/bin/env python3
"""The figures of the screen server in a GNOME session at 1920x1080, drawn by software.

usage: gnome_figures.py BUILD_FOLDER
"""

import os
import sys
import threading

from measuring import SESSION_LIMITS, finish, measure_session, show_table, silence
from desktop import enter_own_machine
from gnome import PROGRAMS, GnomeDesktop
from gnome_test import start_sharing
from stage import let_in, processes_named

LIMITS = {**SESSION_LIMITS, "key to picture, ms": 45}


def main():
    build = os.path.abspath(sys.argv[1])
    enter_own_machine(build, PROGRAMS)
    with silence(), GnomeDesktop(build, (1920, 1080)) as desktop:
        zelvo, _ = start_sharing(desktop)

        def show(script):
            content = desktop.start_in_session("foot", "-F", "/usr/bin/python3", "-c", script)
            desktop.windows("foot")
            desktop.click(960, 540)
            return content
        # The one viewer; full-screen windows hide the question.
        threading.Thread(target=let_in, args=[zelvo], daemon=True).start()
        figures = measure_session(desktop, show, processes_named("screensharingd")[0], desktop.home)
    show_table("in GNOME", {"screensharingd": figures}, LIMITS)
    finish()


if __name__ == "__main__":
    main()
