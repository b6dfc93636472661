#!/usr/bin/env python3
"""The figures of the screen server in a sway session at 1920x1080, drawn by software, beside wayvnc's.

usage: sway_figures.py BUILD_FOLDER
"""

import os
import shutil
import sys

from measuring import PORT, SESSION_LIMITS, finish, measure_session, show_table, silence, start_ours
from stage import SKIPPED, Stage, enter_own_network, is_listening, wait_until

# The compositor refuses to run as root.
USER = "61211"


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


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    for program in ("sway", "foot"):
        if not shutil.which(program):
            print(f"SKIPPED: {program} is missing")
            sys.exit(SKIPPED)
    results = {}
    with silence(), Stage(build) as stage:
        env, as_user = start_session(stage)
        show = lambda script: stage.start(["foot", "-F", "/usr/bin/python3", "-c", script], env, as_user)
        servers = {"screensharingd": lambda: start_ours(stage, env)[0]}
        if shutil.which("wayvnc"):
            servers["wayvnc"] = lambda: stage.start(["wayvnc", "127.0.0.1", str(PORT)], env, as_user)
        for name, start in servers.items():
            server = start()
            wait_until(lambda: is_listening(PORT), 10, name)
            try:
                results[name] = measure_session(stage, show, server.process.pid, env["HOME"])
            except AssertionError as error:
                raise AssertionError(f"{name}: {error}") from error
            server.end()
            wait_until(lambda: not is_listening(PORT), 10, name + " gone")
    show_table("in sway", results, SESSION_LIMITS)
    finish()


if __name__ == "__main__":
    main()
