#!/usr/bin/env python3
"""Zelvo, installed, on the desktop of an ordinary user.

usage: desktop_test.py BUILD_FOLDER sharing|names
"""

import os
import signal
import sqlite3
import subprocess
import sys
import time

from desktop import USER_ID, Desktop, enter_own_machine
from stage import connect_viewer, is_listening, processes_named, service_info, wait_until

VNC_PORT = 5900
# A viewer's version, and no security (RFC 6143, sections 7.1.1 and 7.1.2).
GREETING = b"RFB 003.008\n\1\1"


def server_process():
    """The one server, which has to be the user's own."""
    found = processes_named("screensharingd")
    assert len(found) == 1, found
    assert os.stat(f"/proc/{found[0]}").st_uid == USER_ID
    return found[0]


def click(desktop, button):
    """On "help" or "refuse" in the question, which lies above the window."""
    asked = desktop.windows("Zelvo", 2)[-1]
    # The buttons rest at first.
    time.sleep(1.2)
    place = dict(line.split("=") for line in desktop.xdotool(
        "getwindowgeometry", "--shell", asked).split())
    across = 0.2 if button == "help" else 0.8
    desktop.xdotool("mousemove", str(int(place["X"]) + int(int(place["WIDTH"]) * across)),
                    str(int(place["Y"]) + int(place["HEIGHT"]) - 84), "click", "1")


def captured(desktop, port, button):
    """The colours of the screen that a real viewer gets, whom the user answers so; 0 for none."""
    picture = desktop.path("screen.png")
    viewer = desktop.start(["gvnccapture", f"127.0.0.1:{port - VNC_PORT}", picture])
    click(desktop, button)
    if viewer.wait(20) != 0:
        assert not os.path.exists(picture)
        return 0
    facts = subprocess.run(["identify", "-format", "%w %h %k", picture], capture_output=True,
                           text=True, check=True).stdout.split()
    os.remove(picture)
    assert facts[:2] == ["1024", "768"], facts
    return int(facts[2])


def share_and_quit(desktop):
    assert not is_listening(VNC_PORT)
    zelvo = desktop.start_application()
    link = zelvo.wait_for(r"^Link: zelvo://(\S+)$", 40).group(1)
    process = server_process()
    facts = service_info(desktop.service.url, desktop.path("ca.pem"), link)
    port = int(facts["Port"])

    # The window is on the screen.
    assert captured(desktop, port, "help") > 10
    viewer, greeting = connect_viewer("127.0.0.1", port)
    assert greeting == b"RFB 003.008\n", greeting
    viewer.sendall(GREETING)
    click(desktop, "help")
    zelvo.wait_for(r"^Connection: Connection established\.$", 10)
    desktop.press("Zelvo", "ctrl+d")
    zelvo.wait_for(r"^Connection: Waiting for connection\.\.\.$", 20)
    viewer.settimeout(1)
    while viewer.recv(4096):
        pass
    assert server_process() == process
    assert service_info(desktop.service.url, desktop.path("ca.pem"), link)["Port"] == str(port)
    assert captured(desktop, port, "refuse") == 0

    desktop.press("Zelvo", "ctrl+q")
    assert zelvo.wait(15) == 0
    wait_until(lambda: not is_listening(VNC_PORT), 10, "Screen Sharing off")
    wait_until(lambda: not processes_named("screensharingd"), 10, "the server's end")
    facts = service_info(desktop.service.url, desktop.path("ca.pem"), link)
    assert int(facts["availabilityStatus"]) == 1, facts


def quit_too_early(desktop):
    zelvo = desktop.start_application()
    wait_until(lambda: processes_named("screensharingd"), 20, "the server's start")
    zelvo.send(signal.SIGTERM)
    assert zelvo.wait(15) == 0
    wait_until(lambda: not processes_named("screensharingd"), 20, "the server's end")


def sharing(desktop):
    """Screen Sharing comes up as the user, asks, disconnects, and goes."""
    quit_too_early(desktop)
    share_and_quit(desktop)


def names(desktop):
    """A new name of the computer, and one that a neighbour has taken, reach the service once each."""
    zelvo = desktop.start_application()
    zelvo.wait_for(r"^Link: zelvo://(\S+)$", 40)
    # The database itself writes down what every request changes.
    database = sqlite3.connect(desktop.path("links.sqlite"), isolation_level=None)
    database.execute("CREATE TABLE updates (computer, host, availability)")
    database.execute("CREATE TRIGGER note AFTER UPDATE ON links BEGIN INSERT INTO updates VALUES "
                     "(new.ComputerName, new.LocalHostname, new.availabilityStatus); END")
    expected = []

    def expect_update(what, computer, host):
        expected.append((computer, host, 0))
        wait_until(lambda: updates() == expected, 20, what)

    def updates():
        return database.execute("SELECT * FROM updates").fetchall()
    kernel = os.uname().nodename.split(".")[0] + ".local."
    subprocess.run(["hostnamectl", "set-hostname", "--pretty", "Bob's Desk"], check=True)
    expect_update("a new computer name", "Bob's Desk", kernel)

    plug_in = desktop.join_neighbour()
    avahi = desktop.start_avahi()
    expect_update("Avahi's name", "Bob's Desk", "desk.local.")
    plug_in()
    expect_update("the name that is free", "Bob's Desk", "desk-2.local.")
    avahi.end()
    expect_update("the kernel's name again", "Bob's Desk", kernel)
    # Longer than a second request would take.
    time.sleep(1)
    assert updates() == expected
    zelvo.send(signal.SIGTERM)
    assert zelvo.wait(15) == 0


def main():
    build = os.path.abspath(sys.argv[1])
    scenario = {"sharing": sharing, "names": names}[sys.argv[2]]
    enter_own_machine(build)
    print(scenario.__doc__, flush=True)
    with Desktop(build) as desktop:
        scenario(desktop)
    print("At home.")


if __name__ == "__main__":
    main()
