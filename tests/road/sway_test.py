#!/usr/bin/env python3
"""Zelvo, installed, in the sway session of an ordinary user.

usage: sway_test.py BUILD_FOLDER
"""

import glob
import os
import signal
import subprocess
import sys
import time

from desktop import USER_ID, enter_own_machine
from stage import is_listening, let_in, processes_named, wait_until
from sway import PROGRAMS, SwayDesktop, SwayViewer

VNC_PORT = 5900
QT_PLATFORMS = "/usr/lib/*/qt6/plugins/platforms"
TEXT = "Zoë: {[@]}~ \\|^ é ß € ñ ł жЩю αΩς 日"
SHIFT, CONTROL, ESCAPE = 0xFFE1, 0xFFE3, 0xFF1B


def help_click(desktop):
    """The user's, on the question."""
    asked = desktop.window("Zelvo", floats=True)
    # The buttons rest at first.
    time.sleep(1.2)
    desktop.tell(f"seat - cursor set {asked['x'] + asked['width'] // 5} "
                 f"{asked['y'] + asked['height'] - 84}")
    for what in ("press", "release"):
        desktop.tell(f"seat - cursor {what} button1")


def viewer_of(desktop, zelvo, answer):
    """From the internet, and the link by which it came."""
    link = zelvo.wait_for_any(r"^Link: zelvo://(\S+)$", 40).group(1)
    viewer = desktop.viewer(link, SwayViewer)
    answer()
    viewer.enter()
    zelvo.wait_for(r"^Connection: Connection established\.$", 10)
    viewer.look()
    return viewer, link


def places_of(desktop):
    """Where the outputs lie, none of which is scaled."""
    return {output["name"]: (output["rect"]["x"], output["rect"]["y"])
            for output in desktop.ask("get_outputs")}


def sees(desktop, viewer, places=None, count=1):
    """The viewer has every output's picture at its place, and no more."""
    def same():
        # They move while the compositor below makes room for another's window.
        now = places or places_of(desktop)
        size = 0, 0
        for output, place in now.items():
            part, pixels = desktop.picture(output)
            size = max(size[0], place[0] + part[0]), max(size[1], place[1] + part[1])
            if not pixels or viewer.part(*place, *part) != pixels:
                break
        else:
            if viewer.size == size and (places or len(now) == count):
                return True
        viewer.look(incremental=True)
        return False
    wait_until(same, 20, f"the picture of {places or count}")


def types(desktop, viewer):
    """Every character arrives, whatever is held or locked, and wheel and buttons where they belong."""
    path = os.path.join(desktop.home, "typed")
    desktop.start_in_session("foot", "sh", "-c", f"stty raw -echo; >{path}; touch {path}.up; exec cat >{path}")
    wait_until(lambda: os.path.exists(path + ".up"), 10, "the terminal")
    desktop.window("foot")
    viewer.type(TEXT)
    viewer.hold(SHIFT, True)
    viewer.type("Eé")
    viewer.hold(SHIFT, False)
    viewer.hold(CONTROL, True)
    viewer.type("a")
    viewer.hold(CONTROL, False)
    expected = TEXT + "Eé\1"
    typed = lambda: open(path, encoding="utf-8", errors="replace").read()
    try:
        wait_until(lambda: typed() == expected, 5, "the text")
    except AssertionError:
        raise AssertionError(f"{typed()!r} instead of {expected!r}") from None


def scrolls(desktop, viewer):
    """The viewer copies what has moved, and has the right picture in the end."""
    lines = "for i in $(seq 1 90); do echo $i$i$i $i; sleep 0.03; done; sleep 100"
    desktop.start_in_session("foot", "sh", "-c", lines)
    desktop.window("foot")
    wait_until(lambda: viewer.look(incremental=True) and viewer.copies > 9, 10, "copies")
    sees(desktop, viewer, {"HEADLESS-1": (0, 0)})


def points(desktop, viewer, scale=1):
    events = desktop.start_in_session("stdbuf", "-oL", "wev", "-f", "wl_pointer")
    at = desktop.window("wev")
    x, y = int((at["x"] + 107) * scale), int((at["y"] + 55) * scale)
    viewer.point(x, y)
    place = events.wait_for(r"(?:motion|enter): .*x, y: +([\d.]+), +([\d.]+)", 5).groups()
    # In the middle of the pixel, as precise as the protocol is.
    for seen, pixel, edge in zip(place, (x, y), (at["x"], at["y"])):
        assert abs(float(seen) + edge - (pixel + 0.5) / scale) < 0.02, (place, x, y, at)
    viewer.point(x, y, 4)
    viewer.point(x, y, 16)
    events.wait_for(r"button: .*button: 273 \(right\), state: 1")
    events.wait_for(r"button: .*button: 273 \(right\), state: 0")
    events.wait_for(r"axis: .*axis: 0 \(vertical\), value: 15\.0")
    events.end()


def copies(desktop, viewer):
    desktop.run("wl-copy", "Grüße")
    assert viewer.copied() == "Grüße"
    viewer.copy("süß!")
    wait_until(lambda: desktop.run("wl-paste", "-n") == "süß!".encode(), 5, "the viewer's text")


def locks(desktop, viewer):
    """The viewer has the lock's picture, and types into nothing below it, until it is opened."""
    lock = desktop.start_in_session("swaylock", "-c", "a0207f", "--ring-clear-color", "20a07f")
    is_locked = lambda: viewer.look() and viewer.pixel(9, 9) == (0xA0, 0x20, 0x7F)
    wait_until(is_locked, 10, "the lock")
    viewer.type("secret")
    viewer.click(500, 500)
    viewer.hold(ESCAPE, True)
    viewer.hold(ESCAPE, False)
    # On the ring that the lock shows once it has heard all of it.
    wait_until(lambda: viewer.look() and viewer.pixel(562, 384) == (0x20, 0xA0, 0x7F), 10, "the keys")
    sees(desktop, viewer, {"HEADLESS-1": (0, 0)})
    lock.send(signal.SIGUSR1)
    wait_until(lambda: not is_locked(), 10, "the end of the lock")
    sees(desktop, viewer, {"HEADLESS-1": (0, 0)})
    viewer.type("z")
    with open(os.path.join(desktop.home, "typed"), "rb") as file:
        wait_until(lambda: file.seek(0) or file.read().endswith(b"\1z"), 5, "what follows the lock")


def outputs(desktop, viewer):
    """However the outputs change, the picture is theirs."""
    first = {"HEADLESS-1": (0, 0)}
    for change in ("resolution 1280x800", "transform 90", "transform flipped-270", "transform 180",
                   "transform normal scale 1.25"):
        desktop.tell("output HEADLESS-1 " + change)
        sees(desktop, viewer, first)
    points(desktop, viewer, 1.25)
    desktop.tell("create_output")
    desktop.tell("output HEADLESS-2 resolution 640x480 position 1024 100")
    sees(desktop, viewer, {**first, "HEADLESS-2": (1280, 125)})


def the_desktop(desktop):
    """A viewer sees, types, points and copies; disconnecting, quitting and dying leave nothing."""
    zelvo = desktop.start_application()
    viewer, link = viewer_of(desktop, zelvo, lambda: help_click(desktop))
    sees(desktop, viewer, {"HEADLESS-1": (0, 0)})
    types(desktop, viewer)
    locks(desktop, viewer)
    scrolls(desktop, viewer)
    points(desktop, viewer)
    copies(desktop, viewer)
    outputs(desktop, viewer)
    desktop.tell("[title=Zelvo] focus")
    # Qt takes shortcuts only once it has heard that its window is the active one.
    desktop.window("Zelvo")
    time.sleep(1)
    viewer.hold(CONTROL, True)
    viewer.type("d")
    zelvo.wait_for(r"^Connection: Waiting for connection\.\.\.$", 20)
    zelvo.send(signal.SIGTERM)
    assert zelvo.wait(15) == 0
    nothing_left()
    assert desktop.is_taken_back(link)


def the_ends(desktop):
    """Outputs that are unplugged are gone; so is Screen Sharing with the compositor, or with Zelvo."""
    outer = dict(desktop.session)
    # In windows of the compositor before, which unplugs them.
    desktop.start_compositor(WLR_BACKENDS="wayland")
    # The window would end with the compositor, and with it Zelvo, which without this part has none.
    for plugins in glob.glob(QT_PLATFORMS):
        subprocess.run(["mount", "-t", "tmpfs", "none", plugins], check=True)
    zelvo = desktop.start_application("--ask-in-terminal")
    viewer, link = viewer_of(desktop, zelvo, lambda: let_in(zelvo))
    desktop.tell("create_output")
    sees(desktop, viewer, count=2)
    inner, desktop.session = desktop.session, outer
    # The picture of a new output is there before its window.
    desktop.window("wlroots - WL-2")
    desktop.tell('[title="^wlroots - WL-2$"] kill')
    desktop.session = inner
    sees(desktop, viewer)
    desktop.compositor.send(signal.SIGKILL)
    zelvo.wait_for("^Screen Sharing has ended")
    nothing_left()
    wait_until(lambda: desktop.is_taken_back(link), 10, "the end of the link")
    for left in glob.glob(f"/run/user/{USER_ID}/{inner['WAYLAND_DISPLAY']}*"):
        os.remove(left)
    desktop.session = outer
    desktop.start_compositor(WLR_BACKENDS="wayland")
    assert desktop.session["WAYLAND_DISPLAY"] == inner["WAYLAND_DISPLAY"]
    # "Start Over".
    zelvo.say("o")
    zelvo.wait_for(r"^Connection: Waiting for connection\.\.\.$", 40)
    zelvo.send(signal.SIGKILL)
    zelvo.wait(5)
    nothing_left()


def nothing_left():
    wait_until(lambda: not is_listening(VNC_PORT), 10, "Screen Sharing off")
    wait_until(lambda: not processes_named("screensharingd"), 10, "the server's end")


def main():
    build = os.path.abspath(sys.argv[1])
    enter_own_machine(build, PROGRAMS)
    with SwayDesktop(build) as desktop:
        for scenario in (the_desktop, the_ends):
            print(scenario.__doc__, flush=True)
            scenario(desktop)
    print("At home.")


if __name__ == "__main__":
    main()
