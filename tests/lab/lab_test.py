#!/usr/bin/env python3
"""The application at home behind a real router, with a viewer out in the internet.

usage: lab_test.py BUILD_FOLDER SCENARIO
       lab_test.py --list
"""

import os
import signal
import sys
import time

from lab import Lab, leave_out_where_impossible
from stage import wait_until


def whole_lab(lab, speaks="all"):
    lab.start_router(speaks=speaks)
    lab.start_internet()
    lab.start_host()


def one_protocol(lab, protocol, name):
    whole_lab(lab, protocol)
    zelvo = lab.start_zelvo()
    link, _ = lab.link_of(zelvo)
    zelvo.wait_for_any(rf"^Port mapping: {name} maps TCP")
    lab.view(zelvo, link)
    lab.quit(zelvo)
    assert int(lab.published(link)["availabilityStatus"]) == 1


def pcp(lab):
    """PCP alone: a viewer comes through the router and leaves, and nothing stays behind."""
    one_protocol(lab, "pcp", "PCP")


def nat_pmp(lab):
    """NAT-PMP alone: a viewer comes through the router and leaves, and nothing stays behind."""
    one_protocol(lab, "nat-pmp", "NAT-PMP")


def upnp(lab):
    """UPnP alone: a viewer comes through the router and leaves, and nothing stays behind."""
    one_protocol(lab, "upnp", "UPnP")


SCENARIOS = (pcp, nat_pmp, upnp)


def main():
    if sys.argv[1:] == ["--list"]:
        print("\n".join(scenario.__name__ for scenario in SCENARIOS))
        return
    leave_out_where_impossible()
    build, name = os.path.abspath(sys.argv[1]), sys.argv[2]
    scenario = next(each for each in SCENARIOS if each.__name__ == name)
    print(f"=== {name}: {scenario.__doc__.splitlines()[0]}", flush=True)
    begun = time.monotonic()
    with Lab(build) as lab:
        scenario(lab)
    print(f"{name}: {time.monotonic() - begun:.1f} s")


if __name__ == "__main__":
    main()
