#!/usr/bin/env python3
"""The figures of the screen server, beside those of others that show the same screen.

usage: screen_figures.py BUILD_FOLDER
"""

import os
import shutil
import statistics
import sys
import time

from measuring import (PORT, SECONDS, Viewer, finish, processor_share, resident_megabytes, show_table, silence,
                       start_ours)
from stage import Stage, enter_own_network, is_listening, wait_until

LINK = "zelvo://bench#AAAAAAAAAAAAAAAAAAAAAA"


def start_x11vnc(stage, env):
    return stage.start(["x11vnc", "-display", stage.display, "-rfbport", str(PORT), "-nopw",
                        "-forever", "-shared", "-quiet"], env), None


def start_x0vncserver(stage, env):
    # The command of that name is a script that starts this.
    return stage.start(["X0tigervnc", "-display", stage.display, "-rfbport", str(PORT),
                        "-SecurityTypes", "None", "-AlwaysShared"], env), None


def measure(stage, content, server, zelvo):
    """Every figure of one server, by its name."""
    figures = {}
    pid = server.process.pid

    def show(what):
        content.say(what + "\n")
        content.wait_for("^done$")
        time.sleep(1)

    def share():
        return processor_share(pid, SECONDS)

    def first(viewer):
        return (viewer.first_at - zelvo.answered[-1]) * 1000 if zelvo else viewer.first_after

    times = []
    for _ in range(5):
        viewer = Viewer(stage)
        times.append(first(viewer))
        viewer.end()
        time.sleep(0.3)
    figures["first picture, ms"] = statistics.median(times)
    viewer = Viewer(stage)
    time.sleep(2)
    figures["static, % core"] = share()
    figures["key to picture, ms"] = viewer.keys()
    show("scroll")
    viewer.frames()
    figures["scrolling, % core"] = share()
    figures["frames/s"] = viewer.frames() / SECONDS
    figures["key to picture scrolling, ms"] = viewer.keys()
    figures["resident, MB"] = resident_megabytes(pid)
    more = [Viewer(stage) for _ in range(2)]
    time.sleep(1)
    figures["three viewers, % core"] = share()
    figures["three viewers, times one"] = figures["three viewers, % core"] / figures[
        "scrolling, % core"]
    figures["three viewers, resident, MB"] = resident_megabytes(pid)
    for one in [viewer, *more]:
        one.end()
    if zelvo:
        time.sleep(1)
        viewer = Viewer(stage, "tls")
        time.sleep(1)
        figures["TLS: scrolling more, % core"] = share() - figures["scrolling, % core"]
        show("still")
        figures["TLS: key to picture more, ms"] = viewer.keys() - figures["key to picture, ms"]
        viewer.end()
        time.sleep(1)
        zelvo.set_link("bench", bytes(16))
        viewer = Viewer(stage, LINK)
        time.sleep(1)
        figures["sealed: key to picture more, ms"] = viewer.keys() - figures["key to picture, ms"]
        show("scroll")
        viewer.cost()
        more = share() - figures["scrolling, % core"]
        figures["sealed: scrolling more, both sides, % core"] = more + viewer.cost() / SECONDS / 10
        viewer.end()
    show("still")
    return figures


LIMITS = {
    "first picture, ms": 50,
    "static, % core": 0.05,
    "key to picture, ms": 2,
    "scrolling, % core": 20,
    "key to picture scrolling, ms": 5,
    "three viewers, times one": 3.3,
    "resident, MB": 20,
    "TLS: scrolling more, % core": 2,
    "TLS: key to picture more, ms": 0.3,
    "sealed: key to picture more, ms": 1,
    "sealed: scrolling more, both sides, % core": 3,
}


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    results = {}
    with silence(), Stage(build) as stage:
        stage.start_display(size="1920x1080x24")
        env = dict(os.environ, DISPLAY=stage.display)
        content = stage.start([os.path.join(build, "zelvo-bench-screen")], env, takes_input=True)
        for name, start in (("screensharingd", start_ours), ("x11vnc", start_x11vnc),
                            ("x0vncserver", start_x0vncserver)):
            if name not in ("screensharingd", *filter(shutil.which, ("x11vnc", "x0vncserver"))):
                continue
            server, zelvo = start(stage, env)
            wait_until(lambda: is_listening(PORT), 10, name)
            results[name] = measure(stage, content, server, zelvo)
            server.end()
    show_table("", results, LIMITS)
    finish()


if __name__ == "__main__":
    main()
