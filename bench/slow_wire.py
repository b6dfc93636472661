#!/usr/bin/env python3
"""A wire between two network namespaces on which every packet takes a while, since not every kernel has one.

usage: slow_wire.py NAMESPACE NAMESPACE

The interfaces are called "slow". Standard input says how many milliseconds it takes, 0 at first.
"""

import collections
import contextlib
import ctypes
import fcntl
import os
import select
import struct
import sys
import time

NEW_NETWORK = 0x40000000
SET_INTERFACE, TAP, NO_INFORMATION = 0x400454CA, 0x0002, 0x1000


def plug_into(namespace):
    with open(f"/run/netns/{namespace}", encoding="ascii") as network:
        if ctypes.CDLL(None, use_errno=True).setns(network.fileno(), NEW_NETWORK) != 0:
            sys.exit(os.strerror(ctypes.get_errno()))
    end = os.open("/dev/net/tun", os.O_RDWR)
    fcntl.ioctl(end, SET_INTERFACE, struct.pack("16sH22x", b"slow", TAP | NO_INFORMATION))
    return end


def main():
    first, second = plug_into(sys.argv[1]), plug_into(sys.argv[2])
    other = {first: second, second: first}
    # In the order in which they came, and so in that in which they leave.
    packets, takes = collections.deque(), 0.0
    print("Wire: is there", flush=True)
    while True:
        left = max(0, packets[0][0] - time.monotonic()) if packets else None
        for ready in select.select([first, second, sys.stdin], [], [], left)[0]:
            if ready is sys.stdin:
                takes = float(sys.stdin.readline()) / 1000
            else:
                packets.append((time.monotonic() + takes, other[ready], os.read(ready, 1 << 16)))
        while packets and packets[0][0] <= time.monotonic():
            _, to, packet = packets.popleft()
            # An end that is not up takes nothing.
            with contextlib.suppress(OSError):
                os.write(to, packet)


if __name__ == "__main__":
    main()
