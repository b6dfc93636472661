"""A headless Wayland session of the test's own, whose screen is the portal's to show."""

import json
import os
import socket
import subprocess

from desktop import USER_ID
from routed import RoutedDesktop
from stage import ROOT, wait_until

PORTAL = "/usr/libexec/xdg-desktop-portal"
PROGRAMS = ("pipewire", "wireplumber", "gdbus", "foot", "nft", "miniupnpd", PORTAL)


class PortalDesktop(RoutedDesktop):
    """Without an X server."""

    def start_buses(self, name, **env):
        """The session's and PipeWire, on the desktop of that name."""
        # WirePlumber ends itself without them.
        for folder in ("seats", "sessions", "users", "machines"):
            os.makedirs("/run/systemd/" + folder, exist_ok=True)
        self.session = {
            "HOME": self.home, "USER": "zelvo-road", "LOGNAME": "zelvo-road",
            "XDG_RUNTIME_DIR": f"/run/user/{USER_ID}", "XDG_SESSION_TYPE": "wayland",
            "XDG_CURRENT_DESKTOP": name, "WAYLAND_DISPLAY": "wayland-0",
            "LIBGL_ALWAYS_SOFTWARE": "1", "LC_ALL": "C.UTF-8", **env}
        bus = lambda: self.start_in_session("dbus-daemon", "--session", "--nofork",
                                            "--print-address=1").wait_for("^unix:.*").group(0)
        self.session["DBUS_SESSION_BUS_ADDRESS"] = bus()
        # There is no logind, which the compositor would wait for.
        self.session["DBUS_SYSTEM_BUS_ADDRESS"] = bus()
        self.start_pipewire()

    def start_portal(self):
        # The bus starts the desktop's own, which by itself would wait for this one.
        self.portal = self.start_in_session(PORTAL)
        wait_until(lambda: self.owns("org.freedesktop.portal.Desktop"), 60, "the portal")

    def start_pipewire(self):
        self.pipewire = self.start_in_session("pipewire")
        # Which ends itself where it cannot connect, and then nobody connects streams.
        wait_until(self.answers_pipewire, 60, "PipeWire")
        self.start_in_session("wireplumber")

    def answers_pipewire(self):
        with socket.socket(socket.AF_UNIX) as pipewire:
            return pipewire.connect_ex(self.session["XDG_RUNTIME_DIR"] + "/pipewire-0") == 0

    def start_in_session(self, *command, takes_input=False, **env):
        return self.start_as_user(list(command), {**self.session, **env}, takes_input=takes_input)

    def call(self, service, path, method, *arguments):
        """What the service on the session's bus answers, as gdbus prints it; None for an error."""
        answer = self.run("gdbus", "call", "--session", "--dest", service, "--object-path", path,
                          "--method", method, *arguments)
        return answer.stdout.strip() if answer.returncode == 0 else None

    def run(self, *command):
        user = ["setpriv", "--reuid", str(USER_ID), "--regid", str(USER_ID), "--clear-groups"]
        return subprocess.run([*user, *command], env={"PATH": os.environ["PATH"], **self.session},
                              capture_output=True, text=True, check=False, timeout=60)

    def owns(self, name):
        answer = self.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus.NameHasOwner", name)
        return answer == "(true,)"

    def shown(self):
        """Zelvo's windows, as a screen reader hears of them; none while they change."""
        with open(os.path.join(ROOT, "tests", "road", "accessible.py"), encoding="utf-8") as script:
            answer = self.run("/usr/bin/python3", "-c", script.read(), "zelvo")
        return json.loads(answer.stdout) if answer.returncode == 0 else []

    def wait_for_text(self, words):
        """In one of Zelvo's windows."""
        def says():
            return any(words in control[0] for window in self.shown() for control in window)
        wait_until(says, 60, f"the words {words!r}")
