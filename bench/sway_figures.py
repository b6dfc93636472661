#!/usr/bin/env python3
"""The figures of the screen server in a sway session at 1920x1080, drawn by software, beside wayvnc's.

usage: sway_figures.py BUILD_FOLDER
"""

import os
import shutil
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "support"))
from figures import finish, missed, processor_share, resident_megabytes  # noqa: E402
from screen_figures import PORT, SECONDS, Viewer, start_ours  # noqa: E402
from stage import SKIPPED, Stage, enter_own_network, is_listening, wait_until  # noqa: E402

# The compositor refuses to run as root.
USER = "61211"
# Lines as wide as the screen, 30 of them a second.
SCROLL = ("import random, time\n"
          "while True:\n"
          "    print(''.join(random.choices('abcdefghij klmnop', k=260)), flush=True)\n"
          "    time.sleep(1 / 30)")
# A square in the corner that has another colour after each key.
KEYS = ("import os, tty\n"
        "tty.setraw(0)\n"
        "colour = 41\n"
        "while os.read(0, 1):\n"
        "    colour = 83 - colour\n"
        "    os.write(1, ''.join(f'\\x1b[{row}H\\x1b[{colour}m      ' for row in range(1, 4)).encode())")
LIMITS = {"static, % core": 0.05, "key to picture, ms": 40, "scrolling, % core": 40}


def start_session(stage):
    runtime = stage.path("session")
    os.mkdir(runtime, 0o700)
    os.chown(runtime, int(USER), int(USER))
    os.chmod(stage.folder, 0o711)
    settings = stage.path("sway.conf")
    with open(settings, "w", encoding="utf-8") as file:
        file.write("output HEADLESS-1 resolution 1920x1080\ndefault_border none\n")
    env = {"PATH": os.environ["PATH"], "HOME": runtime, "XDG_RUNTIME_DIR": runtime, "LC_ALL": "C.UTF-8",
           "WLR_BACKENDS": "headless", "WLR_LIBINPUT_NO_DEVICES": "1", "WLR_RENDERER": "pixman"}
    as_user = ["setpriv", "--reuid", USER, "--regid", USER, "--clear-groups"]
    stage.start(["sway", "-c", settings], env, as_user)
    wait_until(lambda: os.path.exists(os.path.join(runtime, "wayland-1")), 10, "sway")
    return {**env, "WAYLAND_DISPLAY": "wayland-1"}, as_user


def measure(stage, show, server):
    figures = {}
    pid = server.process.pid
    content = show(KEYS)
    viewer = Viewer(stage)
    time.sleep(1)
    figures["static, % core"] = processor_share(pid, SECONDS)
    figures["key to picture, ms"] = viewer.keys()
    content.end()
    content = show(SCROLL)
    time.sleep(1)
    viewer.frames()
    figures["scrolling, % core"] = processor_share(pid, SECONDS)
    figures["frames/s"] = viewer.frames() / SECONDS
    figures["resident, MB"] = resident_megabytes(pid)
    viewer.end()
    content.end()
    return figures


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    for program in ("sway", "foot"):
        if not shutil.which(program):
            print(f"SKIPPED: {program} is missing")
            sys.exit(SKIPPED)
    results = {}
    shown = sys.stdout
    with open(os.devnull, "w", encoding="utf-8") as sys.stdout, Stage(build) as stage:
        env, as_user = start_session(stage)
        show = lambda script: stage.start(["foot", "-F", "/usr/bin/python3", "-c", script], env, as_user)
        servers = {"screensharingd": lambda: start_ours(stage, env)[0]}
        if shutil.which("wayvnc"):
            servers["wayvnc"] = lambda: stage.start(["wayvnc", "127.0.0.1", str(PORT)], env, as_user)
        for name, start in servers.items():
            server = start()
            wait_until(lambda: is_listening(PORT), 10, name)
            results[name] = measure(stage, show, server)
            server.end()
            wait_until(lambda: not is_listening(PORT), 10, name + " gone")
    sys.stdout = shown
    print(f"{'in sway':30}" + "".join(f"{name:>16}" for name in results) + "         at most")
    for figure, value in results["screensharingd"].items():
        limit = LIMITS.get(figure)
        is_missed = limit is not None and value > limit
        if is_missed:
            missed.append(figure)
        print(f"{figure:30}" + "".join(f"{result[figure]:16.2f}" for result in results.values()) +
              f"{'' if limit is None else f'{limit:16}'}{'  MISSED' if is_missed else ''}")
    finish()


if __name__ == "__main__":
    main()
