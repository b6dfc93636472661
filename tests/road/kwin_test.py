#!/usr/bin/env python3
"""KDE's compositor and portal, which give input and, without a graphics card, no picture.

usage: kwin_test.py BUILD_FOLDER
"""

import glob
import os
import shutil
import signal
import subprocess
import sys

import portal
from desktop import USER_ID, enter_own_machine
from portal import PortalDesktop
from stage import is_listening, processes_named, wait_until

PORTAL = "/usr/lib/*/libexec/xdg-desktop-portal-kde"
PROGRAMS = (*portal.PROGRAMS, "kwin_wayland", "wev", PORTAL,
            "/usr/lib/*/qt5/plugins/platforms/libqwayland-generic.so")
TEXT = "aZ@é ß €"


class KwinDesktop(PortalDesktop):
    def start_session(self):
        self.start_buses("KDE", KWIN_XKB_DEFAULT_KEYMAP="1", XKB_DEFAULT_LAYOUT="us",
                         XKB_DEFAULT_VARIANT="altgr-intl")
        # Without the capability of the file, which containers do not have.
        compositor = self.path("kwin_wayland")
        shutil.copy("/usr/bin/kwin_wayland", compositor)
        self.start_in_session(compositor, "--virtual", "--no-lockscreen", "--width", "1024", "--height",
                              "768", "--socket", "wayland-0", KWIN_WAYLAND_NO_PERMISSION_CHECKS="1")
        display = f"/run/user/{USER_ID}/wayland-0"
        wait_until(lambda: os.path.exists(display) and self.owns("org.kde.KWin"), 60, "the compositor")
        self.start_in_session(glob.glob(PORTAL)[0])
        wait_until(lambda: self.owns("org.freedesktop.impl.portal.desktop.kde"), 60, "its portal")
        self.start_portal()


def uses(desktop):
    """A session of ours is granted without a dialog, and its keys and clicks arrive."""
    session = desktop.start_in_session(os.path.join(desktop.build, "tests/road/zelvo-portal-input"),
                                       takes_input=True)
    session.wait_for("^Granted: 1024 x 768 and input$", 30)
    window = desktop.start_in_session("stdbuf", "-oL", "wev")
    window.wait_for("wl_keyboard. enter", 30)
    # Where the compositor has put it is not known.
    places = []
    for x, y in ((400, 300), (470, 355)):
        session.say(f"{x} {y} 273\n")
        places.append([float(word) for word in window.wait_for(
            r"wl_pointer. motion: .* x, y: ([\d.]+), ([\d.]+)", 10).groups()])
        window.wait_for(r"button: 273 \(right\), state: 1", 10)
        window.wait_for(r"button: 273 \(right\), state: 0", 10)
    assert [b - a for a, b in zip(*places)] == [70, 55], places
    for character in TEXT:
        session.say(f"{ord(character)}\n")
        window.wait_for(f"sym: .*, utf8: '{character}'", 10)
    session.end()


def shows_nothing(desktop):
    """Where no picture comes there is a sentence and no link, and "Start Over" tries again."""
    # In the terminal, whose keys are easier to press.
    for plugins in glob.glob("/usr/lib/*/qt6/plugins/platforms"):
        subprocess.run(["mount", "-t", "tmpfs", "none", plugins], check=True)
    zelvo = desktop.start_application("--ask-in-terminal")
    for _ in range(2):
        zelvo.wait_for("Your desktop could not show your screen", 40)
        wait_until(lambda: not processes_named("screensharingd") and not is_listening(5900), 10,
                   "the end of the server")
        assert zelvo.row("Link") is None and desktop.lab.table_is_empty()
        zelvo.say("o")
        wait_until(lambda: processes_named("screensharingd"), 10, "another server")
    zelvo.send(signal.SIGTERM)
    assert zelvo.wait(40) == 0
    wait_until(lambda: not processes_named("screensharingd"), 10, "the end of the server")


def main():
    build = os.path.abspath(sys.argv[1])
    enter_own_machine(build, PROGRAMS)
    with KwinDesktop(build) as desktop:
        for scenario in (uses, shows_nothing):
            print(scenario.__doc__, flush=True)
            scenario(desktop)
    print("At home.")


if __name__ == "__main__":
    main()
