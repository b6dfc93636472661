#!/usr/bin/env python3
"""What strangers cost the screen server, and the viewer who is inside, whatever they do at the door.

usage: stranger_figures.py BUILD_FOLDER
"""

import collections
import os
import socket
import ssl
import struct
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "support"))
import screen_figures  # noqa: E402
from figures import finish, missed, processor_share, resident_megabytes  # noqa: E402
from screen_figures import PORT, Viewer, start_ours  # noqa: E402
from stage import Stage, enter_own_network, is_listening, wait_until  # noqa: E402

SECONDS = 6
# More than the server ever takes in that time.
AT_ONCE = 200
VERSION = b"RFB 003.008\n"
TLS = VERSION + b"\x13\x00\x02\x00\x00\x01\x01"


def client_hello():
    """Of a client that knows the dearest agreement only."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    context.maximum_version = ssl.TLSVersion.TLSv1_2
    context.set_ciphers("ADH-AES256-GCM-SHA384:@SECLEVEL=0")
    out = ssl.MemoryBIO()
    try:
        context.wrap_bio(ssl.MemoryBIO(), out).do_handshake()
    except ssl.SSLWantReadError:
        pass
    return out.read()


def key_exchange():
    """A key that the server has to work with, and an end of the handshake that it has to refuse."""
    body = struct.pack(">H", 384) + b"\x02" * 384
    message = b"\x10" + struct.pack(">I", len(body))[1:] + body
    return (b"\x16\x03\x03" + struct.pack(">H", len(message)) + message + b"\x14\x03\x03\x00\x01\x01" +
            b"\x16\x03\x03\x00\x28" + b"x" * 40)


# What is said at once, what after the server's side of the TLS handshake, and for how long the
# connection is then held, in seconds.
Scenario = collections.namedtuple("Scenario", "first then hold")
SCENARIOS = {
    "connect and close": Scenario(b"", b"", 0),
    "connections held": Scenario(b"", b"", 60),
    "half a handshake": Scenario(VERSION, b"", 0.1),
    "handshake, and gone": Scenario(VERSION + b"\x01", b"", 0.05),
    "babble after the handshake": Scenario(VERSION + b"\x01" + b"\x00" * 200000, b"", 60),
    "TLS, begun": Scenario(TLS + client_hello(), b"", 0.1),
    "TLS, agreed and broken": Scenario(TLS + client_hello(), key_exchange(), 0.5),
}


def stranger(addresses, scenario):
    """Does it for as long as it is left alone, in a process of its own."""
    os.nice(10)
    open_ = []
    number = 0
    while True:
        now = time.monotonic()
        while len(open_) < AT_ONCE:
            number += 1
            one = socket.socket()
            one.setblocking(False)
            host = number % addresses
            one.bind((f"127.1.{host // 250}.{host % 250 + 1}", 0))
            one.connect_ex(("127.0.0.1", PORT))
            open_.append([one, now + scenario.hold + 0.02, scenario.first, scenario.then])
        for entry in open_:
            one, until, first, then = entry
            try:
                if first:
                    entry[2] = first[one.send(first):]
                    # Its time begins once somebody listens.
                    entry[1] = now + scenario.hold + 0.02
                elif then and len(one.recv(4096, socket.MSG_PEEK)) > 400:
                    one.send(then)
                    entry[3] = b""
                if not first and not one.recv(4096, socket.MSG_PEEK):
                    until = now
            except BlockingIOError:
                pass
            except OSError as error:
                # ENOTCONN: not yet.
                until = until if error.errno == 107 else now
            if now >= min(until, entry[1] if until != now else now):
                one.close()
                entry[0] = None
        open_ = [entry for entry in open_ if entry[0]]
        time.sleep(0.002)


def measure(viewer, pid):
    viewer.begin_keys()
    share = processor_share(pid, SECONDS)
    return (share, resident_megabytes(pid), *viewer.end_keys())


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    screen_figures.KEYS = 80
    print(f"{'strangers who':34}{'% core':>8}{'MB':>8}{'key to picture, ms':>22}{'longest':>9}")
    with open(os.devnull, "w", encoding="utf-8") as nowhere, Stage(build) as stage:
        shown, sys.stdout = sys.stdout, nowhere
        stage.start_display(size="1920x1080x24")
        env = dict(os.environ, DISPLAY=stage.display)
        stage.start([os.path.join(build, "zelvo-bench-screen")], env, takes_input=True)
        server, zelvo = start_ours(stage, env)
        wait_until(lambda: is_listening(PORT), 10, "the server")
        viewer = Viewer(stage)
        zelvo.answer = None
        pid = server.process.pid
        time.sleep(2)
        usual = measure(viewer, pid)
        print(f"{'nobody':34}" + "".join(f"{value:>{width}.2f}" for value, width in
                                         zip((usual[0], usual[1], usual[2], usual[4]),
                                             (8, 8, 22, 9))), file=shown, flush=True)
        for name, scenario in SCENARIOS.items():
            for addresses in (1, 1000):
                child = os.fork()
                if child == 0:
                    stranger(addresses, scenario)
                time.sleep(1)
                share, memory, median, _, longest = measure(viewer, pid)
                os.kill(child, 9)
                os.waitpid(child, 0)
                more = (share - usual[0], memory - usual[1], median - usual[2], longest - usual[4])
                is_missed = any(value > limit for value, limit in zip(more, (2, 20, 50, 50)))
                label = f"{name}, {addresses} address{'es' if addresses > 1 else ''}"
                print(f"{label:34}" + "".join(f"{value:>+{width}.2f}" for value, width in
                                              zip(more, (8, 8, 22, 9))) +
                      ("  MISSED" if is_missed else ""), file=shown, flush=True)
                if is_missed:
                    missed.append(label)
                time.sleep(1)
    sys.stdout = shown
    finish()


if __name__ == "__main__":
    main()
