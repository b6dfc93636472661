#!/usr/bin/env python3
"""What strangers cost the screen server, and the viewer who is inside, whatever they do at the door.

usage: stranger_figures.py BUILD_FOLDER
"""

import collections
import errno
import itertools
import os
import socket
import ssl
import struct
import sys
import time

from measuring import PORT, Viewer, finish, missed, processor_share, resident_megabytes, silence, start_ours
from stage import Stage, enter_own_network, is_listening, wait_until

SECONDS = 6
# More than the server ever takes in that time.
AT_ONCE = 1000
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


UPGRADE = (b"GET / HTTP/1.1\r\nHost: zelvo\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
           b"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n"
           b"Sec-WebSocket-Protocol: zelvo.1\r\n\r\n")
# Masked, with a mask that changes nothing.
WRONG_KEY = b"\x82\xd0\0\0\0\0" + b"k" * 80
PING = b"\x89\x80\0\0\0\0"

# What is said once the server has greeted, or before; what after its side of the handshake; for how
# long the connection is held, in seconds; and how much is said at once.
Scenario = collections.namedtuple("Scenario", "first then hold waits part", defaults=(True, None))
SCENARIOS = {
    "connect and close": Scenario(b"", b"", 0),
    "connections held": Scenario(b"", b"", 60),
    "half a handshake": Scenario(VERSION, b"", 0.1),
    "handshake, and gone": Scenario(VERSION + b"\x01", b"", 0.05),
    "babble after the handshake": Scenario(VERSION + b"\x01" + b"\x00" * 200000, b"", 60),
    "TLS, begun": Scenario(TLS + client_hello(), b"", 0.1),
    "TLS, agreed and broken": Scenario(TLS + client_hello(), key_exchange(), 0.5),
    "a wrong key": Scenario(UPGRADE + WRONG_KEY, b"", 0.1, False),
    "an upgrade, byte by byte": Scenario(UPGRADE, b"", 60, False, 1),
    "an upgrade, and pings": Scenario(UPGRADE + PING * 40000, b"", 60, False),
}


class Stranger:
    def __init__(self, host, scenario):
        self.scenario = scenario
        self.first, self.then = scenario.first, scenario.then
        self.until = None
        self.socket = socket.socket()
        self.socket.setblocking(False)
        self.socket.bind((f"127.1.{host // 250}.{host % 250 + 1}", 0))
        self.socket.connect_ex(("127.0.0.1", PORT))

    def is_over(self):
        """Says what there is to say; whether it has gone since."""
        try:
            heard = b"." if self.first and not self.scenario.waits else self.socket.recv(
                4096, socket.MSG_PEEK)
            # Its time begins once somebody listens.
            self.until = self.until or time.monotonic() + self.scenario.hold
            if self.first:
                self.first = self.first[self.socket.send(self.first[:self.scenario.part]):]
            elif self.then and len(heard) > 400:
                self.then = self.then[self.socket.send(self.then):]
            is_over = not heard
        except OSError as error:
            is_over = error.errno not in (errno.EAGAIN, errno.ENOTCONN)
        if not is_over and (self.until is None or time.monotonic() < self.until):
            return False
        self.socket.close()
        return True


def be_strangers(addresses, scenario):
    """For as long as they are left alone, in a process of their own."""
    os.nice(10)
    numbers = itertools.count()
    strangers = []
    while True:
        while len(strangers) < AT_ONCE:
            strangers.append(Stranger(next(numbers) % addresses, scenario))
        strangers = [one for one in strangers if not one.is_over()]
        time.sleep(0.002)


def measure(viewer, pid):
    viewer.begin_keys(80)
    share = processor_share(pid, SECONDS)
    return (share, resident_megabytes(pid), *viewer.end_keys())


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    print(f"{'strangers who':44}{'% core':>8}{'MB':>8}{'key to picture, ms':>22}{'longest':>9}")
    with silence() as shown, Stage(build) as stage:
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
        print(f"{'nobody':44}" + "".join(f"{value:>{width}.2f}" for value, width in
                                         zip((usual[0], usual[1], usual[2], usual[4]),
                                             (8, 8, 22, 9))), file=shown, flush=True)
        for name, scenario in SCENARIOS.items():
            for addresses in (1, 1000):
                child = os.fork()
                if child == 0:
                    be_strangers(addresses, scenario)
                time.sleep(1)
                share, memory, median, _, longest = measure(viewer, pid)
                os.kill(child, 9)
                os.waitpid(child, 0)
                more = (share - usual[0], memory - usual[1], median - usual[2], longest - usual[4])
                is_missed = any(value > limit for value, limit in zip(more, (2, 20, 50, 50)))
                label = f"{name}, {addresses} address{'es' if addresses > 1 else ''}"
                print(f"{label:44}" + "".join(f"{value:>+{width}.2f}" for value, width in
                                              zip(more, (8, 8, 22, 9))) +
                      ("  MISSED" if is_missed else ""), file=shown, flush=True)
                if is_missed:
                    missed.append(label)
                time.sleep(1)
    finish()


if __name__ == "__main__":
    main()
