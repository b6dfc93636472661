#!/usr/bin/env python3
"""The three Screen Sharing tools with the real server, of which the test plays the application.

usage: tools_test.py BUILD_FOLDER
"""

import os
import plistlib
import socket
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from gate import HELLO, VERSION  # noqa: E402
from stage import (Stage, connect_viewer, enter_own_network, is_listening,  # noqa: E402
                   processes_named, wait_until)

GREETING = bytes([VERSION, HELLO])
VNC_PORT = 5900


class Application:
    """Listens where the server looks for the application."""

    def __init__(self, folder):
        os.makedirs(folder, mode=0o700)
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.listener.bind(os.path.join(folder, "screen-sharing"))
        self.listener.listen()
        self.line = None

    def take(self):
        """In the background: the server waits for the greeting."""
        self.line = self.listener.accept()[0]
        self.line.send(GREETING)

    def end(self):
        self.line.close()


class Tools:
    def __init__(self, stage):
        self.folder = os.path.join(stage.build, "resources")
        self.env = dict(stage.environment(""), XDG_RUNTIME_DIR=stage.path("session"))
        self.root = self.env["ZELVO_ROOT"]

    def start(self, name, **changes):
        env = {key: value for key, value in {**self.env, **changes}.items() if value is not None}
        name += "" if name.startswith("disconnect") else "-screen-sharing-and-guess-access"
        return subprocess.Popen(["sh", os.path.join(self.folder, name + ".tool")], env=env)

    def run(self, name, **changes):
        return self.start(name, **changes).wait(30)

    def is_on(self):
        path = self.root + "/Library/Preferences/com.apple.RemoteManagement.plist"
        with open(path, "rb") as file:
            return plistlib.load(file)["ScreenSharingReqPermEnabled"]

    def fails(self, reason, servers=(), **changes):
        """The enable tool gives the reason, and leaves things as they were."""
        assert self.run("enable", **changes) == 1
        self.gave(reason, servers)

    def gave(self, reason, servers=()):
        with open(self.root + "/run/reason", encoding="utf-8") as file:
            said = file.read()
        assert said == reason + "\n", (reason, said)
        assert processes_named("screensharingd") == list(servers)


def switch_on(tools, application):
    tool = tools.start("enable")
    application.take()
    assert tool.wait(10) == 0
    assert tools.is_on() and is_listening(VNC_PORT)
    assert not os.path.exists(tools.root + "/run/reason")
    return processes_named("screensharingd")


def fails_with(tools, application, reason, **changes):
    tool = tools.start("enable", **changes)
    application.take()
    assert tool.wait(10) == 1
    tools.gave(reason)


def scenario(stage):
    stage.start_display()
    tools = Tools(stage)
    tools.fails("no-runtime-folder")
    os.mkdir(tools.env["XDG_RUNTIME_DIR"])
    # Nobody is there who could be asked.
    tools.fails("no-runtime-folder")
    application = Application(tools.env["XDG_RUNTIME_DIR"] + "/zelvo")
    application.listener.settimeout(10)
    tools.fails("no-display", DISPLAY=None)
    other = socket.create_server(("127.0.0.1", VNC_PORT))
    fails_with(tools, application, "port-taken")
    other.close()
    fails_with(tools, application, "display-refused", DISPLAY=":77")
    # Without a message bus.
    has_portals = os.path.exists(os.path.join(stage.build, "screen-portal.so"))
    fails_with(tools, application, "portal-missing" if has_portals else "wayland-no-server",
               WAYLAND_DISPLAY="wayland-0")

    first = switch_on(tools, application)
    assert tools.run("enable") == 0 and processes_named("screensharingd") == first
    if os.geteuid() == 0:
        tools.fails("other-session", first, ZELVO_USER="nobody")
        assert tools.run("disable", ZELVO_USER="nobody") == 1
    viewer, greeting = connect_viewer("127.0.0.1", VNC_PORT)
    assert greeting == b"RFB 003.008\n", greeting
    viewer.sendall(b"RFB 003.008\n\1")
    assert tools.run("disconnect-screen-sharing") == 0
    viewer.settimeout(5)
    while viewer.recv(100):
        pass
    assert processes_named("screensharingd") == first
    assert tools.run("disable") == 0
    assert not tools.is_on() and not processes_named("screensharingd")
    assert tools.run("disable") == 0
    assert tools.run("disconnect-screen-sharing") == 1

    # What was switched on ends with who had it switched on.
    switch_on(tools, application)
    application.end()
    wait_until(lambda: not is_listening(VNC_PORT), 1, "the end of the server")
    # Also one that was stopped, as soon as the next one is wanted.
    stopped = switch_on(tools, application)[0]
    os.kill(stopped, 19)
    application.end()
    time.sleep(0.1)
    assert processes_named("screensharingd") == [stopped]
    assert switch_on(tools, application) != [stopped]
    application.end()

    # The setting cannot be written: nothing stays on.
    os.remove(tools.root + "/Library/Preferences/com.apple.RemoteManagement.plist")
    os.rmdir(tools.root + "/Library/Preferences")
    with open(tools.root + "/Library/Preferences", "w", encoding="utf-8"):
        pass
    tools.fails("cannot-write")


def main():
    enter_own_network()
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        scenario(stage)
    print("The tools work.")


if __name__ == "__main__":
    main()
