#!/usr/bin/env python3
"""Zelvo, installed, in a Wayland session: GNOME without a monitor, and its portal's real dialog.

usage: gnome_test.py BUILD_FOLDER sharing|ends|helped, or /usr/bin where a package has installed it
"""

import ctypes
import os
import signal
import sys
import time
from types import SimpleNamespace

from desktop import enter_own_machine
from gnome import PROGRAMS, SIZE, GnomeDesktop
from lab import SERVICE
from sealed import Helper, come_in, picture_is_equal, type_at
from sealed import ends as opener_ends
from stage import is_listening, processes_named, wait_until

VNC_PORT = 5900
TEXT = "aA1!@é ß €"
# Pixels as they are, from the upper left corner, at each movement; then stripes of colour.
CLIENT = r"""stty raw -echo; printf '\033[?1003h\033[?1016h\033[?25l'
for i in $(seq 1 400); do printf '\033[48;5;%dm      ' $((i % 230 + 16)); done; touch {0}.up; exec cat >{0}"""


def start_client(desktop):
    """A program of the desktop, full-screen, whose input is kept in the file."""
    path = os.path.join(desktop.home, "typed")
    desktop.client = desktop.start_in_session("foot", "--fullscreen", "-o", "pad=0x0", "-f", "monospace:size=10", "sh",
                             "-c", CLIENT.format(path))
    wait_until(lambda: os.path.exists(path + ".up"), 60, "the client")

    def typed():
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    return typed


def start_sharing(desktop, **answer):
    zelvo = desktop.start_application("--ask-in-terminal")
    return zelvo, link_of(desktop, zelvo, **answer)


def link_of(desktop, zelvo, **answer):
    desktop.answer_portal(**answer)
    wait_until(lambda: zelvo.row("Link"), 60, "the link")
    link = zelvo.row("Link").removeprefix("zelvo://")
    desktop.port_of(link)
    return link


def let_in(desktop, link, answer="Let them help"):
    """A viewer from the internet."""
    viewer = desktop.viewer(link)
    desktop.windows("Zelvo", 2)

    def answered():
        # The buttons rest at first.
        desktop.press(answer)
        time.sleep(0.3)
        return len(desktop.windows("Zelvo")) == 1
    wait_until(answered, 60, "the end of the question")
    return viewer.enter()


def nothing_is_left(desktop, link):
    wait_until(lambda: not processes_named("screensharingd") and not is_listening(VNC_PORT), 30,
               "the end of the server")
    wait_until(lambda: not desktop.is_shared(), 30, "the end of the desktop's session")
    assert link is None or desktop.is_taken_back(link)


def sees(desktop, viewer):
    viewer.look()
    end = time.monotonic() + 40
    while True:
        rows = b"".join(viewer.picture)
        seen = bytearray(len(rows) // 4 * 3)
        for colour in range(3):
            seen[colour::3] = rows[2 - colour::4]
        expected = desktop.picture()
        if seen == expected:
            return
        assert time.monotonic() < end, (len(seen), len(expected))
        time.sleep(0.2)
        viewer.look(incremental=False)


def screen_hangs(desktop):
    """As on a machine that is busy: what shows the screen gets to nothing for more frames than there are
    buffers for."""
    # Its first thread is the gate's.
    thread = sorted(map(int, os.listdir(f"/proc/{processes_named('screensharingd')[0]}/task")))[1]
    seize, interrupt, detach, any_thread = 0x4206, 0x4207, 17, 0x40000000
    ask = lambda request: ctypes.CDLL(None, use_errno=True).ptrace(request, thread, None, None)
    assert ask(seize) == 0 and ask(interrupt) == 0, os.strerror(ctypes.get_errno())
    os.waitpid(thread, any_thread)
    desktop.fade_in_panel()
    time.sleep(0.6)
    ask(detach)


def compositor_dies(desktop):
    """With it go the window and what shows the screen."""
    zelvo, _ = start_sharing(desktop)
    desktop.shell.end(signal.SIGKILL)
    zelvo.wait(40)
    wait_until(lambda: not processes_named("screensharingd"), 30, "the end of the server")


def sharing(desktop):
    """The desktop's dialog, ours, the picture of two monitors, keys and pointer, and every end leaves
    nothing."""
    zelvo, link = start_sharing(desktop)
    assert desktop.is_shared()
    viewer = let_in(desktop, link)
    for _ in range(2):
        screen_hangs(desktop)
        sees(desktop, viewer)
    typed = start_client(desktop)
    sees(desktop, viewer)
    viewer.click(600, 500)
    wait_until(lambda: "[<0;601;501M" in typed() and "[<0;601;501m" in typed(), 30, "the click")
    viewer.type(TEXT)
    wait_until(lambda: TEXT in typed(), 30, "the text")
    viewer.point(SIZE[0] + 70, 50)
    wait_until(lambda: desktop.evaluate("global.get_pointer()")[:2] == [SIZE[0] + 70, 50], 30,
               "the pointer on the other monitor")
    zelvo.wait_for(r"^Connection: Connection established\.$", 30)
    zelvo.say("disconnect\n")
    zelvo.wait_for(SERVICE + " has left")
    zelvo.wait_for(r"^Connection: Waiting for connection\.\.\.$", 20)
    zelvo.send(signal.SIGTERM)
    assert zelvo.wait(40) == 0
    nothing_is_left(desktop, link)

    zelvo, link = start_sharing(desktop)
    zelvo.send(signal.SIGKILL)
    nothing_is_left(desktop, None)
    compositor_dies(desktop)


def is_withdrawn(desktop, link, words):
    wait_until(lambda: not processes_named("screensharingd"), 30, "the end of the server")
    wait_until(lambda: not desktop.leads_here(link), 30, "the end of the link")
    desktop.wait_for_text(words)


def shares_again(desktop, link):
    desktop.press("Start Over")
    desktop.answer_portal()
    wait_until(lambda: desktop.leads_here(link), 60, "the link")


def ends(desktop):
    """What the desktop refuses or ends is said, and can be started over."""
    zelvo = desktop.start_application("--ask-in-terminal")
    desktop.windows("Remote desktop")
    desktop.wait_for_text("Your desktop asks")
    # Longer than a server has that does not ask.
    time.sleep(11)
    desktop.answer_portal(share=False)
    desktop.wait_for_text("not allowed to show your screen")
    assert not processes_named("screensharingd")
    desktop.press("Start Over")
    link = link_of(desktop, zelvo, interaction=False)
    desktop.wait_for_text("was off when your desktop asked")
    viewer = let_in(desktop, link, "Only watch")
    zelvo.wait_for(SERVICE + " is in and only watches")
    typed = start_client(desktop)
    sees(desktop, viewer)
    viewer.click(600, 500)
    viewer.type(TEXT)
    sees(desktop, viewer)
    assert typed() == ""
    viewer.leave()
    desktop.client.end()

    desktop.stop_sharing()
    is_withdrawn(desktop, link, "in its top bar")
    shares_again(desktop, link)
    desktop.pipewire.end(signal.SIGKILL)
    is_withdrawn(desktop, link, "Screen Sharing has ended")
    desktop.start_pipewire()
    shares_again(desktop, link)
    desktop.remove_portal()
    is_withdrawn(desktop, link, "Screen Sharing has ended")
    desktop.press("Start Over")
    desktop.wait_for_text("“xdg-desktop-portal”")
    assert not processes_named("screensharingd")


def helped(desktop):
    """Somebody out in the internet opens the link, is let in, sees every pixel and types; the end leaves nothing."""
    zelvo, link = start_sharing(desktop)
    desktop.port_of(link)
    helper = Helper(desktop.lab)
    opener = helper.open(link)
    come_in(zelvo, opener)
    typed = start_client(desktop)
    desktop.lab.screen = SimpleNamespace(picture=lambda: (desktop.size, desktop.picture()))
    wait_until(lambda: picture_is_equal(desktop.lab, helper), 40, "the same picture")
    type_at(helper, TEXT)
    wait_until(lambda: TEXT in typed(), 30, "the text")
    zelvo.say("disconnect\n")
    opener_ends(opener, "disconnected", 0)
    zelvo.send(signal.SIGTERM)
    assert zelvo.wait(40) == 0
    nothing_is_left(desktop, link)


def main():
    build = os.path.abspath(sys.argv[1])
    scenarios = {"sharing": (sharing, SIZE, (800, 768)), "ends": (ends,), "helped": (helped,)}
    scenario, *sizes = scenarios[sys.argv[2]]
    enter_own_machine(build, PROGRAMS)
    print(scenario.__doc__, flush=True)
    with GnomeDesktop(build, *sizes) as desktop:
        scenario(desktop)
    print("At home in Wayland.")


if __name__ == "__main__":
    main()
