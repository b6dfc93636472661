#!/usr/bin/env python3
"""Zelvo, installed, on the desktop of an ordinary user.

usage: desktop_test.py BUILD_FOLDER sharing|names
"""

import os
import sqlite3
import subprocess
import sys
import time

from desktop import USER_ID, Desktop, enter_own_machine
from stage import (GREETING, VNC_PORT, connect_viewer, is_listening, processes_named, service_info,
                   wait_until, wait_until_off)


def server_process():
    """The one server, which has to be the user's own."""
    found = processes_named("screensharingd")
    assert len(found) == 1, found
    assert os.stat(f"/proc/{found[0]}").st_uid == USER_ID
    return found[0]


def captured(desktop, port, button):
    """The colours of the screen that a real viewer gets, whom the user answers so; 0 for none."""
    picture = desktop.path("screen.png")
    viewer = desktop.start(["gvnccapture", f"127.0.0.1:{port - VNC_PORT}", picture])
    desktop.click(button)
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
    zelvo = desktop.start_application("--print-link")
    link = zelvo.wait_for(r"^Link: zelvo://(\S+)$", 40).group(1)
    process = server_process()
    facts = service_info(desktop.service.url, desktop.path("ca.pem"), link)
    port = int(facts["Port"])

    # The window is on the screen.
    assert captured(desktop, port, "help") > 10
    viewer, greeting = connect_viewer("127.0.0.1", port)
    assert greeting == b"RFB 003.008\n", greeting
    viewer.sendall(GREETING)
    desktop.click("help")
    zelvo.wait_for(r"^Connection: Connection established\.$", 10)
    desktop.press("ctrl+d", 1)
    zelvo.wait_for(r"^Connection: Waiting for connection\.\.\.$", 20)
    viewer.settimeout(1)
    while viewer.recv(4096):
        pass
    assert server_process() == process
    assert service_info(desktop.service.url, desktop.path("ca.pem"), link)["Port"] == str(port)
    assert captured(desktop, port, "refuse") == 0

    desktop.press("ctrl+q", 1)
    assert zelvo.wait(15) == 0
    wait_until_off()
    facts = service_info(desktop.service.url, desktop.path("ca.pem"), link)
    assert int(facts["availabilityStatus"]) == 1, facts


def sharing(desktop):
    """Screen Sharing comes up as the user, asks, disconnects, and goes, also when it has just begun."""
    zelvo = desktop.start_application("--print-link")
    wait_until(lambda: processes_named("screensharingd"), 20, "the server's start")
    zelvo.quit()
    wait_until_off(20)
    share_and_quit(desktop)


def names(desktop):
    """A new name of the computer, and one that a neighbour has taken, reach the service once each."""
    zelvo = desktop.start_application("--print-link")
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
    zelvo.quit()


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
