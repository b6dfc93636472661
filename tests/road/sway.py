"""A headless sway session of the test's own, and a viewer of it."""

import glob
import json
import os
import shutil
import struct
import subprocess

from desktop import USER_ID, Desktop
from stage import connect_viewer, wait_until

PROGRAMS = ("sway", "foot", "grim", "wl-copy", "wl-paste", "wev")
SETTINGS = """output HEADLESS-1 resolution 1024x768 position 0 0 bg #204060 solid_color
default_border none
"""


class SwayDesktop(Desktop):
    """In a Wayland session without an X server."""

    def start_session(self):
        runtime = f"/run/user/{USER_ID}"
        self.session = {
            "HOME": self.home, "USER": "zelvo-road", "LOGNAME": "zelvo-road", "LC_ALL": "C.UTF-8",
            "XDG_RUNTIME_DIR": runtime, "XDG_SESSION_TYPE": "wayland", "XDG_CURRENT_DESKTOP": "sway",
            "WLR_BACKENDS": "headless", "WLR_LIBINPUT_NO_DEVICES": "1", "WLR_RENDERER": "pixman"}
        self.session["DBUS_SESSION_BUS_ADDRESS"] = self.start_as_user(
            ["dbus-daemon", "--session", "--nofork", "--print-address=1"],
            self.session).wait_for("^unix:.*").group(0)
        self.start_compositor()

    def start_compositor(self):
        settings = self.path("sway.conf")
        with open(settings, "w", encoding="utf-8") as file:
            file.write(SETTINGS)
        os.chmod(settings, 0o644)
        self.compositor = self.start_as_user(["sway", "-c", settings], self.session)
        found = lambda name: glob.glob(f"/run/user/{USER_ID}/{name}")
        wait_until(lambda: found("wayland-?") and found("sway-ipc.*"), 10, "sway")
        self.session["WAYLAND_DISPLAY"] = os.path.basename(found("wayland-?")[0])
        self.session["SWAYSOCK"] = found("sway-ipc.*")[0]
        wait_until(lambda: self.tell("get_outputs", kind=True), 10, "an output")

    def run(self, *command, given=None):
        user = ["setpriv", "--reuid", str(USER_ID), "--regid", str(USER_ID), "--clear-groups"]
        return subprocess.run([*user, *command], env={"PATH": os.environ["PATH"], **self.session},
                              stdout=subprocess.PIPE, input=given, check=False, timeout=20).stdout

    def tell(self, command, kind=False):
        """A command to the compositor, or what it knows of something."""
        words = ["-t", command] if kind else [command]
        return json.loads(self.run("swaymsg", "-r", *words) or "null")

    def start_in_session(self, *command):
        return self.start_as_user(list(command), self.session)

    def window(self, name, floats=False):
        """Where the compositor has the window of that name, once it is there and has the focus."""
        def search(node):
            kind = "floating_con" if floats else "con"
            is_it = (node["type"], node["name"], node["focused"]) == (kind, name, True)
            here = [node["rect"]] if is_it else []
            return here + [found for child in node["nodes"] + node["floating_nodes"]
                           for found in search(child)]
        places = []
        wait_until(lambda: places.extend(search(self.tell("get_tree", kind=True))) or places, 20,
                   "the window " + name)
        return places[0]

    def picture(self, output):
        """Its size, and what the compositor itself has for it, as rows of RGB."""
        # Three lines, then the pixels.
        _, size, _, pixels = self.run("grim", "-c", "-o", output, "-t", "ppm", "-").split(b"\n", 3)
        width, height = size.split()
        return (int(width), int(height)), pixels


class SwayViewer:
    """RFB 3.8 in clear, whose user presses and looks."""

    def __init__(self, port, answer):
        self.socket, greeting = connect_viewer("127.0.0.1", port)
        self.say(greeting + b"\1\1")
        answer()
        # The forms of security, of which there are two, and the result; then the desktop.
        self.hear(1 + 2 + 4)
        self.resize(*struct.unpack(">HH", self.hear(4)))
        self.hear(struct.unpack(">16xI", self.hear(20))[0])
        self.say(struct.pack(">BBHii", 2, 0, 2, 0, -223))
        self.copied = []

    def resize(self, width, height):
        self.size = width, height
        self.pixels = bytearray(width * height * 4)

    def say(self, data):
        self.socket.sendall(data)

    def hear(self, size):
        data = bytearray()
        while len(data) < size:
            part = self.socket.recv(size - len(data))
            assert part, "the server has hung up"
            data += part
        return bytes(data)

    def key(self, keysym, *is_down):
        for down in is_down or (True, False):
            self.say(struct.pack(">BBHI", 4, down, 0, keysym))

    def type(self, text):
        for character in text:
            code = ord(character)
            self.key(code if code < 256 else 0x1000000 + code)

    def point(self, x, y, buttons=0):
        self.say(struct.pack(">BBHH", 5, buttons, x, y))

    def copy(self, text):
        self.say(struct.pack(">B3xI", 6, len(text)) + text.encode("latin-1"))

    def update(self, incremental=True):
        self.say(struct.pack(">BBHHHH", 3, incremental, 0, 0, *self.size))
        while self.next():
            pass

    def next(self):
        """Takes the next message, whose kind is 0 for an update."""
        kind = self.hear(1)[0]
        if kind:
            assert kind == 3, kind
            self.copied.append(self.hear(struct.unpack(">3xI", self.hear(7))[0]).decode("latin-1"))
            return kind
        for _ in range(struct.unpack(">xH", self.hear(3))[0]):
            x, y, width, height, encoding = struct.unpack(">HHHHi", self.hear(12))
            if encoding == -223:
                self.resize(width, height)
                continue
            rows = self.hear(width * height * 4)
            for row in range(height):
                at = ((y + row) * self.size[0] + x) * 4
                self.pixels[at:at + width * 4] = rows[row * width * 4:(row + 1) * width * 4]
        return kind

    def part(self, x, y, width, height):
        """Its rows, as RGB."""
        rows = b"".join(self.pixels[((y + row) * self.size[0] + x) * 4:][:width * 4]
                        for row in range(height))
        colours = bytearray(width * height * 3)
        for colour in range(3):
            colours[colour::3] = rows[2 - colour::4]
        return bytes(colours)


def missing():
    return next((program for program in PROGRAMS if not shutil.which(program)), None)
