#!/usr/bin/env python3
"""However and whenever the application ends, nothing listens a second later.

usage: ends_test.py BUILD_FOLDER [KILLS QUITS]
"""

import os
import random
import signal
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from stage import (Stage, connect_viewer, enter_own_network, is_listening,  # noqa: E402
                   let_in, processes_named, wait_until)

VNC_PORT = 5900
# A viewer's version, and no security (RFC 6143, sections 7.1.1 and 7.1.2).
GREETING = b"RFB 003.008\n\1\1"


class Viewers(threading.Thread):
    """Come as soon as somebody listens; the first is let in, if any."""

    def __init__(self, application, let_in_one):
        super().__init__(daemon=True)
        self.application = application
        self.let_in_one = let_in_one
        self.stays = True
        self.came = 0

    def run(self):
        viewers = []
        while self.stays and self.came < 3:
            try:
                viewer, _ = connect_viewer("127.0.0.1", VNC_PORT)
                viewer.sendall(GREETING)
            except OSError:
                time.sleep(0.02)
                continue
            viewers.append(viewer)
            self.came += 1
            if self.came == 1 and self.let_in_one:
                threading.Thread(target=self.answer, daemon=True).start()
        while self.stays:
            time.sleep(0.02)

    def answer(self):
        try:
            let_in(self.application, random.choice(("help", "watch")))
        except (AssertionError, OSError, ValueError):
            # It has ended before.
            pass


def one_end(stage, service, router, number, delay):
    application = stage.start_application(service, router)
    # With somebody inside, a quit would ask.
    viewers = Viewers(application, number == signal.SIGKILL)
    viewers.start()
    time.sleep(delay)
    was_on = is_listening(VNC_PORT)
    application.send(number)
    # What is taken back at a quit, is asked for within the limits that a quit has.
    application.wait(15)
    ended = time.monotonic()
    wait_until(lambda: not is_listening(VNC_PORT) and not processes_named("screensharingd"),
               ended + 1 - time.monotonic(), f"nothing, {delay:.3f} s after the start")
    viewers.stays = False
    viewers.join()
    # The tool may have been about to start it.
    wait_until(lambda: not tools_at_work(), 10, "the end of the tools")
    assert not is_listening(VNC_PORT) and not processes_named("screensharingd"), delay
    application.end()
    return was_on, viewers.came


def tools_at_work():
    return subprocess.run(["pgrep", "-f", "screen-sharing-and-guess-access.tool"],
                          capture_output=True, check=False).returncode == 0


def main():
    enter_own_network()
    kills, quits = map(int, sys.argv[2:] or (6, 6))
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        stage.start_display()
        stage.make_certificate()
        service, router = stage.start_service(), stage.start_router()
        # How long it takes here until somebody listens.
        begun = time.monotonic()
        application = stage.start_application(service, router)
        wait_until(lambda: is_listening(VNC_PORT), 20, "a listener")
        up = time.monotonic() - begun
        application.end()
        seen = [one_end(stage, service, router, signal.SIGKILL, random.uniform(0, up + 2.5))
                for _ in range(kills)]
        seen += [one_end(stage, service, router, signal.SIGTERM,
                         random.choice((random.uniform(0, 2), random.gauss(up, 0.05),
                                        random.gauss(up, 0.05))) % 3)
                 for _ in range(quits)]
    print(f"{kills} kills, {quits} quits; {sum(on for on, _ in seen)} times somebody listened, "
          f"{sum(came > 0 for _, came in seen)} times viewers had come")
    assert any(came for _, came in seen)


if __name__ == "__main__":
    main()
