#!/usr/bin/env python3
"""Writes down every packet on every wire of this network, or reads that back.

usage: tap.py FILE
"""

import collections
import signal
import socket
import struct
import sys

EVERY_PROTOCOL = 3
STATISTICS = (263, 6)
RECEIVE_BUFFER_FORCE = 33


def listen(file):
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(EVERY_PROTOCOL)) as wires:
        wires.setsockopt(socket.SOL_SOCKET, RECEIVE_BUFFER_FORCE, 1 << 26)
        print("Tap: listens", flush=True)
        try:
            while True:
                packet, (wire, *_) = wires.recvfrom(1 << 17)
                file.write(struct.pack(">16sI", wire.encode(), len(packet)) + packet)
                file.flush()
        except KeyboardInterrupt:
            lost = struct.unpack("=II", wires.getsockopt(*STATISTICS, 8))[1]
            print(f"Tap: {lost} lost", flush=True)


def packets(path):
    with open(path, "rb") as file:
        while head := file.read(20):
            wire, size = struct.unpack(">16sI", head)
            yield wire.rstrip(b"\0").decode(), file.read(size)


def streams(path):
    """What was said over each TCP connection, by its wire, source and destination; each wire has its
    own copy, and whatever was sent again is there once."""
    said, first = collections.defaultdict(dict), {}
    for wire, packet in packets(path):
        if packet[12:14] != b"\x08\x00" or packet[23] != socket.IPPROTO_TCP:
            continue
        packet = packet[14:14 + struct.unpack(">H", packet[16:18])[0]]
        tcp = packet[(packet[0] & 15) * 4:]
        source, to, number = struct.unpack(">HHI", tcp[:8])
        ends = (wire, (socket.inet_ntoa(packet[12:16]), source),
                (socket.inet_ntoa(packet[16:20]), to))
        number = number - first.setdefault(ends, number) & 0xFFFFFFFF
        said[ends][number] = max(said[ends].get(number, b""), tcp[(tcp[12] >> 4) * 4:], key=len)
    for ends, parts in said.items():
        text, at = b"", 0
        for number in sorted(parts):
            text += parts[number][max(0, at - number):]
            at = max(at, number + len(parts[number]))
        yield ends, text


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    with open(sys.argv[1], "wb") as record:
        listen(record)
