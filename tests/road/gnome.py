"""A headless GNOME session of the test's own, whose desktop is real: compositor, portal, PipeWire."""

import json
import os
import signal
import subprocess

import portal
from desktop import USER_ID, append
from portal import PORTAL, PortalDesktop
from stage import wait_until

PROGRAMS = (*portal.PROGRAMS, "gnome-shell", "convert",
            "/usr/libexec/at-spi-bus-launcher", "/usr/lib/python3/dist-packages/gi", PORTAL + "-gnome",
            "/usr/lib/*/qt6/plugins/platforms/libqwayland-generic.so")
SIZE = (1024, 768)
# A layout that has é, ß and €, by AltGr.
SETTINGS = """[org/gnome/desktop/input-sources]
sources=[('xkb', 'us+altgr-intl')]
[org/gnome/desktop/interface]
enable-animations=false
[org/gnome/shell]
welcome-dialog-last-shown-version='99'
"""


class GnomeDesktop(PortalDesktop):
    """With a compositor that can be told what to do."""

    def __init__(self, build, *sizes):
        """With a monitor for each size, beside one another."""
        super().__init__(build)
        self.sizes = sizes or (SIZE,)

    @property
    def size(self):
        return sum(width for width, _ in self.sizes), max(height for _, height in self.sizes)

    def start_session(self):
        settings = os.path.join(self.home, ".config", "glib-2.0", "settings")
        subprocess.run(["install", "-d", "-o", str(USER_ID), "-g", str(USER_ID), settings], check=True)
        append(os.path.join(settings, "keyfile"), SETTINGS)
        subprocess.run(["chown", "-R", str(USER_ID), self.home], check=True)
        self.start_buses("GNOME", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", GSETTINGS_BACKEND="keyfile")
        monitors = [word for size in self.sizes for word in ("--virtual-monitor", "%dx%d" % size)]
        self.shell = self.start_in_session("gnome-shell", "--headless", "--wayland", "--no-x11",
                                           "--unsafe-mode", *monitors)
        wait_until(lambda: self.owns("org.gnome.Shell"), 60, "the shell")
        self.start_portal()
        # The first event of a device is lost.
        self.evaluate("imports.ui.main.overview.hide(); const C = imports.gi.Clutter; global.mouse ="
                      "C.get_default_backend().get_default_seat().create_virtual_device("
                      "C.InputDeviceType.POINTER_DEVICE); 1")
        self.click(1, self.size[1] - 1)

    def evaluate(self, script):
        """What the expression is in the compositor."""
        answer = self.call("org.gnome.Shell", "/org/gnome/Shell", "org.gnome.Shell.Eval", script)
        assert answer and answer.startswith("(true, "), (script, answer)
        return json.loads(answer[len("(true, '"):-len("')")] or "null")

    def click(self, x, y):
        self.evaluate(f"const t = imports.gi.GLib.get_monotonic_time(); "
                      f"global.mouse.notify_absolute_motion(t, {x}, {y}); "
                      f"global.mouse.notify_button(t, 1, 1); global.mouse.notify_button(t, 1, 0); 1")

    def fade_in_panel(self):
        """In half a second."""
        self.evaluate("let steps = 0; imports.gi.GLib.timeout_add(0, 16, () => { "
                      "imports.ui.main.panel.opacity = 8.5 * ++steps; return steps < 30; }); 1")

    def windows(self, title, count=1):
        """Left, top, width and height of the windows of that title, the upmost last, once they are so
        many."""
        found = []

        def search():
            found[:] = self.evaluate(
                "global.get_window_actors().map(a => a.meta_window)"
                f".filter(w => w.get_title() == '{title}').map(w => w.get_frame_rect())"
                ".filter(r => r.width).map(r => [r.x, r.y, r.width, r.height])")
            return len(found) >= count
        wait_until(search, 60, f"{count} windows {title}")
        return found

    def press(self, name):
        """The button of that name in one of Zelvo's windows; without effect where it is gone."""
        for window in self.shown():
            _, _, _, *size = window[0]
            for title, left, top, width, height in window[1:]:
                if title != name:
                    continue
                # Around what a program knows of its window lies what it is moved by, of even width.
                frame = min(self.windows("Zelvo"), key=lambda frame: sum(
                    abs(outer - inner) for outer, inner in zip(frame[2:], size)))
                edge = (frame[2] - size[0]) // 2
                self.click(frame[0] + edge + left + width // 2,
                           frame[1] + frame[3] - size[1] - edge + top + height // 2)

    def click_in(self, window, right, down):
        self.click(*place_in(window, right, down))

    def answer_portal(self, share=True, interaction=True):
        """In the desktop's own dialog."""
        def is_lit(*place):
            x, y = place_in(self.windows("Remote desktop")[-1], *place)
            red, _, blue = self.picture()[(y * self.size[0] + x) * 3:][:3]
            return blue > red + 100
        # Before its button is, it is not drawn, or has no monitor yet.
        wait_until(lambda: is_lit(-82, 22), 60, "the dialog")
        window = self.windows("Remote desktop")[-1]
        # The first is chosen already; the switch is below their list.
        others = range(len(self.sizes))[1:]
        for row in others:
            self.click_in(window, 260, 136 + 55 * row)
        if interaction:
            down = 222 + 55 * len(others)
            self.click_in(window, 450, down)
            wait_until(lambda: is_lit(432, down), 30, "the switch")
        self.click_in(window, -48 if share else 48, 22)
        wait_until(lambda: not self.evaluate("global.get_window_actors().map(a => a.meta_window)"
                                             ".some(w => w.get_title() == 'Remote desktop')"), 30,
                   "the end of the dialog")

    def is_shared(self):
        """As the top bar tells."""
        return self.evaluate("imports.ui.main.panel.statusArea.screenSharing.visible")

    def remove_portal(self):
        """As if it were not installed."""
        subprocess.run(["mount", "--bind", "/dev/null", PORTAL], check=True)
        self.portal.end(signal.SIGKILL)

    def stop_sharing(self):
        """By the button in the top bar."""
        x, y = self.evaluate("const button = imports.ui.main.panel.statusArea.screenSharing;"
                             "const [x, y] = button.get_transformed_position();"
                             "[x + button.width / 2, y + button.height / 2]")
        self.click(x, y)

    def picture(self):
        """The compositor's own, as bytes of red, green and blue."""
        file = os.path.join(self.home, "screen.png")
        assert self.call("org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot",
                         "org.gnome.Shell.Screenshot.Screenshot", "false", "false", file)
        return subprocess.run(["convert", file, "-background", "black", "-alpha", "remove", "-depth", "8", "rgb:-"], capture_output=True,
                              check=True).stdout


def place_in(window, right, down):
    """On the screen; from the window's right and lower edges where it is negative."""
    left, top, width, height = window
    return left + right + (width if right < 0 else 0), top + down + (height if down < 0 else 0)
