"""A headless sway session of the test's own, and a viewer of it."""

import glob
import json
import os
import struct
import subprocess

from desktop import USER_ID
from rfb import Viewer
from routed import RoutedDesktop
from stage import wait_until

PROGRAMS = ("sway", "swaylock", "foot", "grim", "wl-copy", "wl-paste", "wev", "nft", "miniupnpd")
SETTINGS = """output HEADLESS-1 resolution 1024x768 position 0 0 bg #204060 solid_color
default_border none
"""


class SwayDesktop(RoutedDesktop):
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

    def start_compositor(self, **env):
        """By another backend it runs in a window of the one before."""
        settings = self.path("sway.conf")
        with open(settings, "w", encoding="utf-8") as file:
            file.write(SETTINGS)
        os.chmod(settings, 0o644)
        runtime = f"/run/user/{USER_ID}/"
        before = glob.glob(runtime + "wayland-?")
        self.compositor = self.start_as_user(["sway", "-c", settings], {**self.session, **env})
        display = lambda: set(glob.glob(runtime + "wayland-?")) - set(before)
        self.session["SWAYSOCK"] = f"{runtime}sway-ipc.{USER_ID}.{self.compositor.process.pid}.sock"
        wait_until(lambda: display() and os.path.exists(self.session["SWAYSOCK"]), 10, "sway")
        self.session["WAYLAND_DISPLAY"] = os.path.basename(display().pop())
        wait_until(lambda: self.ask("get_outputs"), 10, "an output")

    def run(self, *command, given=None):
        user = ["setpriv", "--reuid", str(USER_ID), "--regid", str(USER_ID), "--clear-groups"]
        return subprocess.run([*user, *command], env={"PATH": os.environ["PATH"], **self.session},
                              stdout=subprocess.PIPE, input=given, check=False, timeout=20).stdout

    def tell(self, command):
        answers = json.loads(self.run("swaymsg", "-r", command))
        assert all(answer["success"] for answer in answers), (command, answers)

    def ask(self, what):
        return json.loads(self.run("swaymsg", "-r", "-t", what) or "null")

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
        wait_until(lambda: places.extend(search(self.ask("get_tree"))) or places, 20,
                   "the window " + name)
        return places[0]

    def picture(self, output):
        """Its size, and what the compositor itself has for it, as rows of RGB; none for an output that is gone."""
        # Three lines, then the pixels.
        taken = self.run("grim", "-c", "-o", output, "-t", "ppm", "-") or b"\n0 0\n\n"
        _, size, _, pixels = taken.split(b"\n", 3)
        width, height = size.split()
        return (int(width), int(height)), pixels


class SwayViewer(Viewer):
    """Holds keys, copies, and compares."""

    def hold(self, keysym, is_down):
        self.say(struct.pack(">BBHI", 4, is_down, 0, keysym))

    def copy(self, text):
        self.say(struct.pack(">B3xI", 6, len(text)) + text.encode("latin-1"))

    def copied(self):
        """What is copied on the desktop, while no update is asked for."""
        kind, size = struct.unpack(">B3xI", self.hear(8))
        assert kind == 3, kind
        return self.hear(size).decode("latin-1")

    def part(self, x, y, width, height):
        """Its rows, as RGB."""
        rows = b"".join(row[x * 4:(x + width) * 4] for row in (self.picture or [])[y:y + height])
        colours = bytearray(len(rows) // 4 * 3)
        for colour in range(3):
            colours[colour::3] = rows[2 - colour::4]
        return bytes(colours)
