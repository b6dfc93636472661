#!/usr/bin/env python3
"""The figures of the whole application, taken from real runs on one machine.

usage: figures.py BUILD_FOLDER
"""

import os
import signal
import socket
import statistics
import subprocess
import sys
import time

from measuring import (finish, missed, processor_seconds, processor_share, proportional_megabytes,
                       resident_megabytes, show)
from stage import Stage, enter_own_network, is_listening, wait_until


def somebody_listens():
    """Without a program, which would take as long as what is measured."""
    with open("/proc/net/tcp", encoding="ascii") as table:
        return " 00000000:170C 00000000:0000 0A " in table.read()


def watch_windows(display):
    watch = subprocess.Popen(["stdbuf", "-oL", "xev", "-root", "-event", "substructure"], text=True,
                             env=dict(os.environ, DISPLAY=display), stdout=subprocess.PIPE)
    # It does not tell when it has begun.
    time.sleep(0.3)
    return watch


def until_the_window(watch, pid):
    """Milliseconds of the processor until a window is on the display that was watched."""
    with watch:
        next(line for line in watch.stdout if line.startswith("MapNotify"))
        watch.kill()
        return processor_seconds(pid) * 1000


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    probes = subprocess.run([os.path.join(build, "zelvo-bench-probes")], check=False)
    if probes.returncode != 0:
        missed.append("probes")
    with Stage(build) as stage:
        stage.start_display()
        stage.make_certificate()
        service = stage.start_service()
        router = stage.start_router()
        sys.stdout.flush()

        # Waiting for Screen Sharing: a listener that does not count keeps the tool from starting one.
        with socket.create_server(("127.0.0.1", 5900)):
            zelvo = stage.start_application(service, router)
            zelvo.wait_for(r"^Port mapping: Applying")
            # The tool gives up at once; five seconds later the haste is over.
            time.sleep(1)
            hasty = processor_share(zelvo.process.pid, 4)
            time.sleep(3)
            waiting = processor_share(zelvo.process.pid, 10)
            zelvo.end(signal.SIGTERM)
        times, after_listening, shown = [], [], []
        for _ in range(5):
            watch = watch_windows(stage.display)
            begun = time.monotonic()
            zelvo = stage.start_application(service, router)
            shown.append(until_the_window(watch, zelvo.process.pid))
            wait_until(somebody_listens, 20, "Screen Sharing on")
            listening = time.monotonic()
            zelvo.wait_for(r"^Link: ")
            times.append((time.monotonic() - begun) * 1000)
            after_listening.append((time.monotonic() - listening) * 1000)
            if len(times) == 5:
                # Ten seconds after the link it gives memory back, once.
                time.sleep(12)
                watching = processor_share(zelvo.process.pid, 20)
                memory = resident_megabytes(zelvo.process.pid)
                share = proportional_megabytes(zelvo.process.pid)
            begun = time.monotonic()
            zelvo.end(signal.SIGTERM)
            ended = (time.monotonic() - begun) * 1000
            # It switches Screen Sharing on at each start, and off at its end.
            wait_until(lambda: not is_listening(5900), 5, "Screen Sharing off")

    # Of which half a second is for the eye, before Zelvo asks to switch Screen Sharing on.
    show("from process start to the link", statistics.median(times), "ms", 900)
    show("from listening to the link", statistics.median(after_listening), "ms", 150)
    show("from process start to the window", statistics.median(shown), "ms of CPU", 60)
    show("resident memory, link up", memory, "MB", 44)
    show("proportional memory, link up", share, "MB", 20)
    show("switching Screen Sharing on", hasty, "% core", 5)
    show("waiting for Screen Sharing", waiting, "% core", 1)
    show("waiting for a viewer", watching, "% core", 0.06)
    show("from quit to the end", ended, "ms", 5000)
    finish()


if __name__ == "__main__":
    main()
