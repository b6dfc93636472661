#!/usr/bin/env python3
"""The figures of the screen server, beside those of others that show the same screen.

usage: screen_figures.py BUILD_FOLDER
"""

import os
import shutil
import statistics
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "support"))
from figures import finish, missed, processor_share, resident_megabytes  # noqa: E402
from gate import ZelvoEnd  # noqa: E402
from stage import Stage, enter_own_network, is_listening, wait_until  # noqa: E402

PORT = 5900
SECONDS = 8
KEYS = 60
LINK = "zelvo://bench#AAAAAAAAAAAAAAAAAAAAAA"


class Viewer:
    def __init__(self, stage, security="none"):
        self.program = stage.start([os.path.join(stage.build, "zelvo-bench-viewer"), "127.0.0.1",
                                    str(PORT), security], takes_input=True)
        first = self.program.wait_for(r"^first (\S+) (\S+)$")
        # On everybody's clock; and since it began to connect.
        self.first_at, self.first_after = float(first.group(1)), float(first.group(2))

    def begin_keys(self):
        self.program.say(f"keys {KEYS}\n")

    def end_keys(self):
        """Median, 95th percentile and longest."""
        return [float(time) for time in
                self.program.wait_for(r"^keys (\S+) (\S+) (\S+)", 60).groups()]

    def keys(self):
        self.begin_keys()
        return self.end_keys()[0]

    def frames(self):
        self.program.say("frames\n")
        return int(self.program.wait_for(r"^frames (\d+)").group(1))

    def cost(self):
        self.program.say("cost\n")
        return float(self.program.wait_for(r"^cost (\S+)").group(1))

    def end(self):
        self.program.end()


def start_ours(stage, env):
    zelvo = ZelvoEnd(stage.folder)
    server = stage.start([os.path.join(stage.build, "screensharingd"), "--socket", zelvo.path,
                          "--port", str(PORT)], env)
    return server, zelvo


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
    shown = sys.stdout
    with open(os.devnull, "w", encoding="utf-8") as sys.stdout, Stage(build) as stage:
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
    sys.stdout = shown
    print(f"{'':44}" + "".join(f"{name:>16}" for name in results) + "         at most")
    for figure, value in results["screensharingd"].items():
        limit = LIMITS.get(figure)
        row = "".join(f"{result[figure]:16.2f}" if figure in result else f"{'':16}"
                      for result in results.values())
        is_missed = limit is not None and value > limit
        if is_missed:
            missed.append(figure)
        print(f"{figure:44}{row}{'' if limit is None else f'{limit:16}'}"
              f"{'  MISSED' if is_missed else ''}")
    finish()


if __name__ == "__main__":
    main()
