#!/usr/bin/env python3
"""The figures at home: the application behind a real router, beside others who ask the same router.

usage: lab_figures.py BUILD_FOLDER
"""

import os
import statistics
import sys
import time

from measuring import finish, show, silence
from lab import Lab, leave_out_where_impossible
from stage import wait_until

RUNS = 5
# The command-line clients of NAT-PMP and of UPnP, and what it takes them to map both transports.
PEERS = {
    "natpmpc": lambda port: [("natpmpc", "-g", "192.168.77.1", "-a", port, "5900", transport, "600")
                             for transport in ("tcp", "udp")],
    "upnpc": lambda port: [("upnpc", "-r", "5900", port, "tcp", "5900", port, "udp")],
}


def milliseconds_since(begun):
    return (time.monotonic() - begun) * 1000


def time_to_mapping(lab, protocol, port):
    """From the start of the process, which asks for both transports, to its first word."""
    begun = time.monotonic()
    mapper = lab.start([os.path.join(lab.build, "zelvo-map-port"), "5900", port, protocol],
                       prefix=lab.within("host"))
    mapper.wait_for(r"^Mapped ")
    took = milliseconds_since(begun)
    mapper.end()
    wait_until(lab.table_is_empty, 5, "an empty table")
    return took


def time_of_peer(lab, name, port):
    begun = time.monotonic()
    for command in PEERS[name](port):
        lab.run("host", *command)
    took = milliseconds_since(begun)
    lab.lose_router()
    lab.start_router(speaks="nat-pmp" if name == "natpmpc" else "upnp")
    return took


def median(measure, *words):
    return statistics.median(measure(*words, str(20000 + run)) for run in range(RUNS))


def mappings(lab):
    figures = {}
    for protocol, peer in (("pcp", None), ("nat-pmp", "natpmpc"), ("upnp", "upnpc")):
        lab.namespaces("only", protocol)
        figures[protocol] = median(time_to_mapping, lab, protocol)
        if peer:
            figures[peer] = median(time_of_peer, lab, peer)
    return figures


def application(lab):
    """Process start to the link, half a second before Screen Sharing is asked for among it; quit to the
    router's empty table."""
    lab.start_internet()
    lab.start_host()
    lab.namespaces("only", "all")
    starts, quits = [], []
    for _ in range(RUNS):
        begun = time.monotonic()
        zelvo = lab.start_zelvo()
        zelvo.wait_for(r"^Link: ")
        starts.append(milliseconds_since(begun))
        wait_until(lambda: len(lab.mapped()) == 1, 5, "both transports mapped")
        quits.append(lab.quit(zelvo)[1] * 1000)
    return statistics.median(starts), max(quits)


def main():
    leave_out_where_impossible("natpmpc", "upnpc")
    with silence(), Lab(os.path.abspath(sys.argv[1])) as lab:
        lab.start_router()
        asked = mappings(lab)
        start, quit_ = application(lab)
    show("at home: start to the link", start, "ms", 1000)
    show("PCP: request to mapping", asked["pcp"], "ms", round(asked["natpmpc"], 1))
    show("NAT-PMP: request to mapping", asked["nat-pmp"], "ms", round(asked["natpmpc"], 1))
    show("UPnP: request to mapping", asked["upnp"], "ms", round(asked["upnpc"] / 2, 1))
    print(f"{'natpmpc, TCP and UDP':36} {asked['natpmpc']:8.2f} ms")
    print(f"{'upnpc, TCP and UDP':36} {asked['upnpc']:8.2f} ms")
    show("quit to an empty rule table", quit_, "ms", 500)
    finish()


if __name__ == "__main__":
    main()
