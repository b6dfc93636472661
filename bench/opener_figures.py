#!/usr/bin/env python3
"""What it takes to open a link: time, memory, and round trips over the net. What the sealed channel
costs stands among the screen server's figures.

usage: opener_figures.py BUILD_FOLDER
"""

import os
import statistics
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "lab"))
from figures import finish, resident_megabytes, show  # noqa: E402
from lab import Lab, leave_out_where_impossible  # noqa: E402
from sealed import QUESTION, Helper, come_in  # noqa: E402

RUNS = 7
ROUND_TRIP = 200


def time_to_question(zelvo, helper, link):
    """From the start of the program, which is given the link as a desktop does."""
    begun = time.monotonic()
    opener = helper.start(f"zelvo://{link}")
    zelvo.wait_for(QUESTION)
    took = (time.monotonic() - begun) * 1000
    opener.end()
    zelvo.wait_for("^The question is over")
    return took


def median(zelvo, helper, link):
    return statistics.median(time_to_question(zelvo, helper, link) for _ in range(RUNS))


def start_wire(lab):
    """Between the internet and somebody far away, who reaches the service and the host by it."""
    lab.namespaces("far")
    wire = lab.start([sys.executable, os.path.join(HERE, "slow_wire.py"), f"{lab.name}-far",
                      f"{lab.name}-internet"], takes_input=True)
    wire.wait_for("is there")
    for place, *command in (("far", "addr", "add", "10.77.0.2/24", "dev", "slow"),
                            ("internet", "addr", "add", "10.77.0.1/24", "dev", "slow"),
                            ("far", "link", "set", "slow", "up"),
                            ("internet", "link", "set", "slow", "up"),
                            ("far", "route", "add", "default", "via", "10.77.0.1"),
                            ("router", "route", "add", "10.77.0.0/24", "via", "44.128.7.2")):
        lab.run(place, "ip", *command)
    lab.run("internet", "sysctl", "-qw", "net.ipv4.ip_forward=1")
    return wire


def measure(lab):
    lab.start_router()
    lab.start_internet()
    lab.start_display(lab.within("host"), "1920x1080x24")
    zelvo = lab.start_zelvo()
    link, _ = lab.link_of(zelvo)
    content = lab.start([os.path.join(lab.build, "zelvo-bench-screen")],
                        {**os.environ, "DISPLAY": lab.display}, lab.within("host"),
                        takes_input=True)
    wire = start_wire(lab)
    helper = Helper(lab, "far", "1920x1080x24")
    time_to_question(zelvo, helper, link)
    near = median(zelvo, helper, link)
    wire.say(f"{ROUND_TRIP / 2}\n")
    far = median(zelvo, helper, link)
    wire.say("0\n")
    opener = helper.open(link)
    come_in(zelvo, opener)
    content.say("scroll\n")
    time.sleep(5)
    return near, (far - near) / ROUND_TRIP, resident_megabytes(opener.process.pid)


def main():
    leave_out_where_impossible("/dev/net/tun")
    # What the programs say is of no interest here.
    shown = sys.stdout
    with open(os.devnull, "w", encoding="utf-8") as sys.stdout:
        with Lab(os.path.abspath(sys.argv[1])) as lab:
            near, trips, memory = measure(lab)
    sys.stdout = shown
    show("start of the opener to the question", near, "ms", 250)
    show("the same, over the net", trips, "trips", 7)
    show("opener's resident memory, 1080p", memory, "MB", 60)
    finish()


if __name__ == "__main__":
    main()
