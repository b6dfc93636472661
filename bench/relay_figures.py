#!/usr/bin/env python3
"""What the relay forwards in a second of a core, and what hosts cost that wait.

usage: relay_figures.py BUILD_FOLDER [HOSTS]
"""

import contextlib
import os
import resource
import socket
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
for folder in ("support", "relay"):
    sys.path.insert(0, os.path.join(HERE, "..", "tests", folder))
from figures import finish, missed, resident_megabytes, show  # noqa: E402
from relay_test import cost_of_deaf_viewers, going_on, latency  # noqa: E402
from relays import ASK, Host, Relays, send_all  # noqa: E402
from stage import Stage, enter_own_network  # noqa: E402

SECONDS = 5
FREE = ("--settle", "0", "--bytes-per-host", "0", "--bytes-per-owner", "0", "--bytes-per-client", "0",
        "--requests-per-client", "0", "--hosts-per-owner", "100000", "--hosts-per-client", "100000",
        "--connections-per-client", "100000", "--viewers-per-client", "99", "--viewers-per-host", "99")


def processor_seconds(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def forward(relays, pairs, size, seconds=SECONDS):
    """Bytes that came through, and processor seconds that they took. Each end is a process."""
    host = Host(relays)
    children, counts = [], []
    for _ in range(pairs):
        viewer = relays.viewer(host.number)
        there = host.take_next()
        counter = os.pipe()
        data = os.urandom(size)
        for is_writer in (True, False):
            if (child := os.fork()) == 0:
                end = time.monotonic() + seconds
                try:
                    if is_writer:
                        while time.monotonic() < end:
                            there.sendall(data)
                        there.shutdown(socket.SHUT_WR)
                    else:
                        count = 0
                        while part := viewer.recv(262144):
                            count += len(part)
                        os.write(counter[1], str(count).encode())
                finally:
                    os._exit(0)
            children.append(child)
        os.close(counter[1])
        counts.append(counter[0])
        # Without a word, since the session goes on in a child.
        for line in (viewer, there):
            os.close(line.detach())
    before = processor_seconds(relays.relay.process.pid)
    for child in children:
        os.waitpid(child, 0)
    took = processor_seconds(relays.relay.process.pid) - before
    return sum(int(os.read(count, 99)) for count in counts), took


def show_floods(relays):
    """How long a calm host's words take beside others' floods."""
    calm, loud = Host(relays), Host(relays)
    viewer, flooded = (relays.viewer(host.number) for host in (calm, loud))
    there, flood = calm.take_next(), loud.take_next()

    # Those who flood are on this machine, but would be elsewhere.
    def knock():
        os.nice(19)
        while True:
            with contextlib.suppress(OSError), relays.connect(ASK.format(loud.number).encode(), "127.3.0.1"):
                pass

    def pour():
        os.nice(19)
        send_all(flood, bytes(1 << 33))

    def swallow():
        os.nice(19)
        while flooded.recv(1 << 18):
            pass

    quiet = latency(there, viewer)
    print(f"from a host to its viewer {quiet:26.2f} ms")
    for what, works in (("viewers at another host", (knock,)),
                        ("another host's bytes", (pour, swallow))):
        with going_on(*works):
            show(f"the same beside a flood of {what}", latency(there, viewer), "ms", round(2 * quiet, 2))


def main():
    enter_own_network()
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    hosts = int(sys.argv[2]) if len(sys.argv) > 2 else 15000
    print(f"load of the machine before: {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores")
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        relays = Relays(stage, ["--requests-per-client", "0", "--creates-per-client", "0"])
        relays.start(*FREE)
        for label, pairs, size, least in (("one viewer, full records", 1, 1 << 20, 0.5),
                                          ("four viewers, full records", 4, 1 << 20, 0.5),
                                          ("one viewer, records of 2 KB", 1, 2048, 0)):
            count, took = forward(relays, pairs, size)
            rate = count / took / 1e9
            print(f"{label:36} {rate:8.2f} GB in a second of a core (at least {least} GB), "
                  f"{count / SECONDS / 1e6:.0f} MB/s{'' if rate >= least else '  MISSED'}", flush=True)
            if rate < least:
                missed.append(label)
        show("a viewer that never reads", sum(cost_of_deaf_viewers(relays)), "KB", 300)
        show_floods(relays)
        relays.relay.end()

        relays.port = 0
        relays.start(*FREE)
        empty = resident_megabytes(relays.relay.process.pid)
        ticket = relays.ticket()
        begun = time.monotonic()
        waiting = [Host(relays, source=f"127.1.{i // 250}.{i % 250 + 1}", ticket=ticket) for i in range(hosts)]
        took = time.monotonic() - begun
        if any(host.status != 101 for host in waiting):
            missed.append("hosts")
        full = resident_megabytes(relays.relay.process.pid)
        print(f"{hosts} hosts came in {took:.0f} s; {(full - empty) * 1e3 / hosts:.1f} KB each")
        show(f"memory at {hosts} idle hosts", full, "MB", 400)
        before = processor_seconds(relays.relay.process.pid)
        time.sleep(20)
        used = processor_seconds(relays.relay.process.pid) - before
        show("processor beside them", used / 20 * 100, "% core", 10)
        begun = time.monotonic()
        viewer = relays.viewer(waiting[-1].number)
        waiting[-1].take_next().sendall(b"x")
        viewer.recv(1)
        show("from a viewer's begin to the host's word", (time.monotonic() - begun) * 1000, "ms", 100)
    print(f"load of the machine after: {os.getloadavg()[0]:.1f}")
    finish()


if __name__ == "__main__":
    main()
