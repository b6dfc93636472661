#!/usr/bin/env python3
"""A bad cable: passes frames between two interfaces, each way late and not all of them.

usage: wire.py LEFT RIGHT DELAY_MS LOSS_PERCENT
"""

import heapq
import itertools
import random
import select
import socket
import sys
import time

SOL_PACKET = 263
PACKET_VNET_HDR = 15


def open_end(name):
    end = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0003))
    # Frames of this machine carry no checksum yet. The header in front of each tells the kernel of it on
    # the way in, and has it made good on the way out.
    end.setsockopt(SOL_PACKET, PACKET_VNET_HDR, 1)
    end.bind((name, 0))
    return end


def main():
    ends = [open_end(name) for name in sys.argv[1:3]]
    delay, loss = float(sys.argv[3]) / 1000, float(sys.argv[4]) / 100
    chance = random.Random(77)
    under_way = []
    order = itertools.count()
    print("Wire: ready", flush=True)
    while True:
        pause = max(0.0, under_way[0][0] - time.monotonic()) if under_way else None
        for end in select.select(ends, [], [], pause)[0]:
            frame, (_, _, kind, _, _) = end.recvfrom(1 << 17)
            if kind != socket.PACKET_OUTGOING and chance.random() >= loss:
                other = ends[1 - ends.index(end)]
                heapq.heappush(under_way, (time.monotonic() + delay, next(order), other, frame))
        while under_way and under_way[0][0] <= time.monotonic():
            _, _, end, frame = heapq.heappop(under_way)
            end.send(frame)


if __name__ == "__main__":
    main()
