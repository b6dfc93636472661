#!/usr/bin/env python3
"""The real screen server on a real X display: what viewers type, copy and see, and how they end.

usage: screen_test.py BUILD_FOLDER
"""

import ctypes
import os
import re
import socket
import struct
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "support"))
from gate import LEFT, ZelvoEnd  # noqa: E402
from stage import Stage, enter_own_network, is_listening, wait_until, wait_until_at_rest  # noqa: E402

PORT = 5900
SHIFT, CAPS, NUM, ALTGR, DEAD_ACUTE, KEYPAD_5 = 0xFFE1, 0xFFE5, 0xFF7F, 0xFE03, 0xFE51, 0xFFB5
TEXT = "Zoë: {[@]}~ \\|^`´ é ß € ñ ł жЩю αΩς"


class Viewer:
    """RFB 3.8 in clear; reads only what it is told to."""

    def __init__(self, zelvo, address="127.0.0.1", room=None):
        entered = len(zelvo.answered)
        self.socket = socket.socket()
        if room:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, room)
        self.socket.settimeout(10)
        self.socket.connect((address, PORT))
        self.say(b"RFB 003.008\n\x01\x01")
        # Version, types, result; then the size.
        self.hear(12 + 3 + 4)
        self.size = struct.unpack(">HH", self.hear(4))
        self.hear(struct.unpack(">16xI", self.hear(20))[0])
        self.number = struct.unpack(">I", [body for kind, body in zelvo.messages if kind == 2]
                                    [entered][:4])[0]

    def say(self, data):
        self.socket.sendall(data)

    def hear(self, size):
        data = b""
        while len(data) < size:
            part = self.socket.recv(size - len(data))
            assert part, "the server has hung up"
            data += part
        return data

    def key(self, keysym, *is_down):
        for down in is_down or (True, False):
            self.say(struct.pack(">BBHI", 4, down, 0, keysym))

    def type(self, text):
        for character in text:
            code = ord(character)
            self.key(code if code < 256 else 0x1000000 + code)

    def ask(self, incremental=False):
        self.say(struct.pack(">BBHHHH", 3, incremental, 0, 0, *self.size))

    def next(self):
        """The next message: what was cut, or the encodings and sizes of an update's rectangles."""
        kind = self.hear(1)[0]
        if kind == 3:
            return self.hear(struct.unpack(">3xI", self.hear(7))[0])
        assert kind == 0, kind
        parts = []
        for _ in range(struct.unpack(">xH", self.hear(3))[0]):
            _, _, width, height, encoding = struct.unpack(">HHHHi", self.hear(12))
            parts.append((encoding, width, height))
            self.hear({0: width * height * 4, -223: 0, -239: width * height * 4 +
                       (width + 7) // 8 * height}[encoding])
        return parts


def typing(stage, zelvo):
    """Every character arrives, whatever the layout and the locks are, and no key outlives its viewer."""
    path = stage.path("typed")
    env = dict(os.environ, DISPLAY=stage.display, LC_ALL="C.UTF-8")
    run = lambda *words: subprocess.run(words, env=env, check=True, capture_output=True)
    typed = lambda: open(path, encoding="utf-8", errors="replace").read()
    open(path, "w", encoding="utf-8").close()
    stage.start(["xterm", "-u8", "-e", f"stty raw -echo; touch {path}.up; exec cat >{path}"], env)
    wait_until(lambda: os.path.exists(path + ".up"), 10, "the terminal")
    stage.xdotool("mousemove", "100", "100")
    time.sleep(0.5)
    viewer = Viewer(zelvo)
    expected = ""

    def expect(text, what):
        nonlocal expected
        expected += text
        try:
            wait_until(lambda: typed() == expected, 5, what)
        except AssertionError:
            raise AssertionError(f"{what}: {typed()[-60:]!r} instead of {expected[-60:]!r}") from None
    for layout in ("us", "de", "fr", "ru", "gr"):
        run("setxkbmap", layout)
        time.sleep(0.3)
        viewer.type(TEXT)
        expect(TEXT, f"the text on {layout}")
    run("setxkbmap", "de")
    time.sleep(0.3)
    for lock in (CAPS, NUM):
        viewer.key(lock)
        viewer.type("aA1ß")
        viewer.key(KEYPAD_5)
        expect("aA1ß5", f"with lock {lock:x}")
        viewer.key(lock)
    viewer.key(ALTGR, True)
    viewer.type("@")
    viewer.key(ALTGR, False)
    viewer.key(DEAD_ACUTE)
    viewer.type("e")
    viewer.key(SHIFT, True)
    viewer.type("E")
    viewer.key(SHIFT, False)
    expect("@éE", "AltGr, a dead key and Shift")
    viewer.key(ord("r"), True)
    wait_until(lambda: typed().endswith("rr"), 5, "repetition")
    viewer.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    viewer.socket.close()
    wait_until(lambda: (LEFT, viewer.number) in ended(zelvo), 1, "the viewer's end")
    expected = wait_until_at_rest(typed, 5, "a key that was let go with its viewer")
    Viewer(zelvo).type("x")
    expect("x", "a new viewer's key")


def seeing(stage, zelvo):
    """Size, cursor and clipboard."""
    env = dict(os.environ, DISPLAY=stage.display)
    viewer = Viewer(zelvo)
    viewer.say(struct.pack(">BBHiii", 2, 0, 3, 0, -223, -239))
    viewer.ask()
    assert {(0, 1024, 768), -239} <= {part if part[0] == 0 else part[0] for part in viewer.next()}
    for words in ("--newmode less 25 800 840 900 1000 600 610 620 640", "--addmode screen less",
                  "--output screen --mode less"):
        subprocess.run(["xrandr", *words.split()], env=env, check=True)
    viewer.ask(True)
    while (-223, 800, 600) not in viewer.next():
        viewer.ask(True)
    clip = ["xclip", "-selection", "clipboard"]
    subprocess.run([*clip, "-i"], env=env, check=True, input="Grüße".encode(), timeout=5,
                   stdout=subprocess.DEVNULL)
    while viewer.next() != "Grüße".encode("latin-1"):
        pass
    viewer.say(struct.pack(">B3xI", 6, 4) + "süß!".encode("latin-1"))
    wait_until(lambda: subprocess.run([*clip, "-o"], env=env, check=False, capture_output=True,
                                      timeout=5).stdout == "süß!".encode(), 5, "the viewer's text")


def ended(zelvo):
    return [(kind, struct.unpack(">I", body[:4])[0]) for kind, body in zelvo.messages if kind == LEFT]


def far_viewer(zelvo, far):
    """A viewer in the network on the other side of a cable."""
    libc = ctypes.CDLL(None, use_errno=True)
    with open("/proc/self/ns/net", "rb") as here, open(f"/proc/{far}/ns/net", "rb") as there:
        assert libc.setns(there.fileno(), 0) == 0
        try:
            return Viewer(zelvo, "10.9.8.1")
        finally:
            assert libc.setns(here.fileno(), 0) == 0


def endings(stage, zelvo):
    """Viewers who babble, stop reading or lose their network are put out, and nobody notices."""
    far = stage.start(["unshare", "-n", "sleep", "600"]).process.pid
    wait_until(lambda: os.readlink(f"/proc/{far}/ns/net") != os.readlink("/proc/self/ns/net"), 5,
               "a network")
    there = ["nsenter", "-t", str(far), "-n"]
    for command in (["ip", "link", "add", "near", "type", "veth", "peer", "name", "far", "netns",
                     str(far)], ["ip", "addr", "add", "10.9.8.1/24", "dev", "near"],
                    ["ip", "link", "set", "near", "up"],
                    [*there, "ip", "addr", "add", "10.9.8.2/24", "dev", "far"],
                    [*there, "ip", "link", "set", "far", "up"]):
        subprocess.run(command, check=True)
    well = Viewer(zelvo)
    babbling = Viewer(zelvo)
    babbling.say(b"\xEE" * 5000)
    wait_until(lambda: (LEFT, babbling.number) in ended(zelvo), 1, "the babbler's end")
    stalled = Viewer(zelvo, room=4096)
    silent, waiting = far_viewer(zelvo, far), far_viewer(zelvo, far)
    segments = subprocess.run(["ss", "-Htin", f"sport = :{PORT}", "dst", "10.9.8.2"], check=True,
                              capture_output=True, text=True).stdout
    assert segments and all(int(size) <= 1220 for size in re.findall(r"\bmss:(\d+)", segments))
    for _ in range(20):
        stalled.ask()
    subprocess.run([*there, "ip", "link", "set", "far", "down"], check=True)
    waiting_since = time.monotonic()
    stage.xdotool("key", "x")
    missing = {stalled.number, silent.number, waiting.number}
    while missing - {number for _, number in ended(zelvo)}:
        assert time.monotonic() - waiting_since < 33, missing
        before = time.monotonic()
        well.ask()
        well.next()
        assert time.monotonic() - before < 2, "one who reads waits for one who does not"
        time.sleep(0.2)
    assert (LEFT, well.number) not in ended(zelvo)
    for viewer in (silent, waiting):
        viewer.socket.close()


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    with Stage(build) as stage:
        stage.start_display()
        zelvo = ZelvoEnd(stage.folder)
        server = stage.start([os.path.join(build, "screensharingd"), "--socket", zelvo.path],
                             dict(os.environ, DISPLAY=stage.display))
        server.wait_for("^listening$")
        for scenario in (typing, seeing, endings):
            scenario(stage, zelvo)
            print(f"{scenario.__name__}: well", flush=True)
        typed = lambda: os.path.getsize(stage.path("typed"))
        before = typed()
        viewer = Viewer(zelvo)
        viewer.key(ord("q"), True)
        wait_until(lambda: typed() > before + 1, 5, "repetition")
        zelvo.close()
        server.wait(1)
        assert not is_listening(PORT)
        wait_until_at_rest(typed, 5, "a key that outlives the server")


if __name__ == "__main__":
    main()
