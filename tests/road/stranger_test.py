#!/usr/bin/env python3
"""Strangers come while the user types into a terminal: nobody gets in before the mouse says so.

usage: stranger_test.py BUILD_FOLDER [STRANGERS]
"""

import os
import random
import shutil
import socket
import string
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from stage import SKIPPED, Stage, enter_own_network, wait_until  # noqa: E402

VNC_PORT = 5900
# A viewer's version, no security, and that others may stay (RFC 6143, sections 7.1.1, 7.1.2, 7.3.1).
GREETING = b"RFB 003.008\n\1\1"


class Stranger:
    """From an address of its own, which so is asked about whatever became of the others."""

    def __init__(self, number):
        self.socket = socket.create_connection(("127.0.0.1", VNC_PORT), 10,
                                               (f"127.0.{number + 1}.1", 0))
        self.socket.sendall(GREETING)
        self.heard = b""

    def is_in(self):
        """Four zeros behind the version and the kinds of security (sections 7.1.2 and 7.1.3)."""
        self.socket.setblocking(False)
        try:
            self.heard += self.socket.recv(4096)
        except (BlockingIOError, ConnectionError):
            pass
        kinds = self.heard[12] if len(self.heard) > 12 else 0
        return self.heard[13 + kinds:17 + kinds] == bytes(4)

    def leave(self):
        self.socket.close()


class Typist(threading.Thread):
    """Types without end, now in haste, now with a pause in which the buttons come to life."""

    def __init__(self, stage):
        super().__init__(daemon=True)
        self.stage = stage
        self.types = True

    def run(self):
        while self.types:
            letter = random.choice(string.ascii_lowercase)
            key = random.choice((letter, letter, letter, "Return", "space", "Tab", "alt+" + letter,
                                 "alt+Tab"))
            self.stage.xdotool("key", key)
            time.sleep(1.2 if random.random() < 0.03 else random.uniform(0.01, 0.15))

    def stop(self):
        self.types = False
        self.join()


def question(stage):
    """The window of the question, which comes on top of the application's."""
    windows = stage.xdotool("search", "--onlyvisible", "--name", "^Zelvo$").split()
    return windows[-1] if len(windows) > 1 else None


def let_in_by_mouse(stage):
    wait_until(lambda: question(stage), 5, "the question")
    time.sleep(1.3)
    place = dict(line.split("=") for line in
                 stage.xdotool("getwindowgeometry", "--shell", question(stage)).split())
    stage.xdotool("mousemove", str(int(place["X"]) + int(place["WIDTH"]) // 5),
                  str(int(place["Y"]) + int(place["HEIGHT"]) - 84), "click", "1")


def scenario(stage, strangers):
    stage.start_display()
    stage.make_certificate()
    env = dict(os.environ, DISPLAY=stage.display)
    stage.start(["openbox"], env)
    service, router = stage.start_service(), stage.start_router()
    zelvo = stage.start_application(service, router)
    zelvo.wait_for("^Link: ")
    stage.start(["xterm", "-e", "cat"], env)
    wait_until(lambda: stage.xdotool("search", "--onlyvisible", "--class", "xterm"), 10, "a terminal")
    terminal = stage.xdotool("search", "--onlyvisible", "--class", "xterm").split()[-1]
    stage.xdotool("windowactivate", "--sync", terminal)

    typist = Typist(stage)
    typist.start()
    asked = 0
    for number in range(strangers):
        stranger = Stranger(number)
        end = time.monotonic() + random.choice((0.5, 1.0, 2.5))
        while time.monotonic() < end:
            assert not stranger.is_in(), f"stranger {number}"
            asked += question(stage) is not None
            time.sleep(0.05)
        stranger.leave()
    assert asked > strangers, "the question was hardly ever seen"
    typist.stop()
    # Where the typing has hit "Refuse everybody", nobody is asked about any more.
    assert not [line for line in zelvo.lines if " is in and " in line]

    stage.xdotool("windowactivate", "--sync", terminal)
    friend = Stranger(strangers)
    other = Stranger(strangers + 1)
    let_in_by_mouse(stage)
    wait_until(friend.is_in, 5, "the one who was let in")
    time.sleep(0.5)
    assert not other.is_in()
    print(f"{strangers} strangers, the question was seen {asked} times; one was let in")


def main():
    missing = [name for name in ("openbox", "xterm", "xdotool", "Xvfb") if not shutil.which(name)]
    if missing:
        print("SKIPPED: missing: " + " ".join(missing))
        sys.exit(SKIPPED)
    enter_own_network()
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        scenario(stage, int(sys.argv[2]) if len(sys.argv) > 2 else 8)


if __name__ == "__main__":
    main()
