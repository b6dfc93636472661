#!/usr/bin/env python3
"""The road of one link with the real programs, what happens when one of them is missing, when it ends at
any moment, and when strangers come.

usage: road_test.py BUILD_FOLDER [SCENARIO [NUMBER ...]]
"""

import os
import random
import signal
import socket
import string
import struct
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from stage import (GREETING, ROOT, VNC_PORT, Stage, connect_viewer, enter_own_network,  # noqa: E402
                   is_listening, let_in, own_environment, processes_named, service_info,
                   skip_where_missing, wait_until, wait_until_off)


def the_whole_road(stage):
    """scripts/run alone brings the link, a viewer comes and goes, and SIGINT takes everything back."""
    env = dict(own_environment(), ZELVO_BUILD=stage.build, ZELVO_RUN=stage.path("run"),
               ZELVO_DEBUG="all")
    run = stage.start([os.path.join(ROOT, "scripts", "run")], env, takes_input=True)
    url = run.wait_for(r"^Service: (https://\S+)$").group(1)
    run.wait_for(r"^Router: 127\.0\.0\.1:\d+$")
    run.wait_for(r"^Port mapping: Applying Port Mapping\.\.\.$")
    run.wait_for(r"^Port mapping: Port Mapping Successful\.$", 30)
    run.wait_for(r"^Connection: Waiting for connection\.\.\.$")
    link = run.wait_for(r"^Link: zelvo://(\S+)$").group(1)
    run.wait_for(r"^A viewer connects to 127\.0\.0\.1 port \d+")

    facts = service_info(url, stage.path("run/ca.pem"), link)
    assert facts["StatusCode"] == 0, facts
    assert int(facts["availabilityStatus"]) == 0, facts
    assert facts["vncPort"] == str(VNC_PORT) and facts["MappedService"] == "vnc", facts
    assert facts["LocalHostname"].endswith(".local."), facts
    assert '"osVersion"' in facts["HotKeys"], facts
    external = int(facts["Port"])
    assert 10000 <= external <= 65533, facts

    viewer, greeting = connect_viewer(facts["IPAddress"], external)
    assert greeting == b"RFB 003.008\n", greeting
    viewer.sendall(GREETING)
    # Somebody who is asked about is no connection yet, however long that takes.
    time.sleep(4)
    assert run.row("Connection") == "Waiting for connection..."
    run.say("help\n")
    run.wait_for(" is in and can use your screen")
    run.wait_for(r"^Connection: Connection established\.$", 6)
    viewer.close()
    run.wait_for(r"^Connection: Waiting for connection\.\.\.$", 6)

    begun = time.monotonic()
    run.quit(number=signal.SIGINT)
    took = time.monotonic() - begun
    print(f"quit took {took:.2f} s")
    assert took < 5, took
    assert not is_listening(VNC_PORT) and not is_listening(external)
    assert not processes_named("screensharingd")
    with open(stage.path("run/router.out"), encoding="utf-8") as router:
        table = router.read()
    assert table.count("Mapped TCP") == 1 and table.count("Deleted TCP") == 1, table

    # Nor is the key anywhere but in the user's own defaults.
    key = link.split("#")[1].encode()
    files = (os.path.join(folder, name) for folder, _, names in os.walk(stage.path("run"))
             for name in names)
    holders = [name for name in files if os.path.isfile(name) and key in open(name, "rb").read()]
    assert holders == [stage.path("run/config/zelvo/defaults.plist")], holders

    # The service that knows the link again says that it is not available.
    service = stage.start([os.path.join(stage.build, "zelvo-service"),
                           "--database", stage.path("run/links.sqlite"),
                           "--certificate", stage.path("run/service.pem"),
                           "--key", stage.path("run/service.key")])
    url = service.wait_for(r"^Service: (https://\S+)$").group(1)
    facts = service_info(url, stage.path("run/ca.pem"), link)
    assert int(facts["availabilityStatus"]) == 1, facts


def interruptions(stage):
    """A signal at any moment ends scripts/run in order, with nothing left behind."""
    env = dict(own_environment(), ZELVO_BUILD=stage.build, ZELVO_RUN=stage.path("run"))
    # Nobody answers there, so the script brings its own.
    env["DISPLAY"] = ":4242"
    moments = [(r"^Display: ", 0), (r"^Router: ", 0), (r"^Router: ", 0.05),
               (r"^Port mapping: Applying", 0), (r"^Port mapping: Applying", 0.6)]
    for pattern, delay in moments:
        run = stage.start([os.path.join(ROOT, "scripts", "run")], env)
        run.wait_for(pattern)
        time.sleep(delay)
        run.quit()
        for name in ("zelvo", "zelvo-service", "zelvo-router", "screensharingd", "Xvfb"):
            assert not processes_named(name), (pattern, delay, name)


def command_lines(stage):
    """Every program answers the usual options, and names what it does not know."""
    for program in ("zelvo", "zelvo-service", "zelvo-router"):
        for option, status, output, error in [("-h", 0, "sage: " + program, ""),
                                              ("--help", 0, "sage: " + program, ""),
                                              ("--version", 0, program + " 1.", ""),
                                              ("--prot", 2, "", "unknown option: --prot\n")]:
            said = subprocess.run([os.path.join(stage.build, program), option],
                                  capture_output=True, text=True, timeout=10, check=False)
            assert said.returncode == status and output in said.stdout and error in said.stderr, said
            assert bool(said.stdout) == bool(output) and bool(said.stderr) == bool(error), said


def failures(stage):
    """Service or router missing asks the user; trying again and quitting work all the same."""
    command_lines(stage)
    service, router = stage.set_up()

    # A router that is not there.
    router.end()
    zelvo = stage.start_application(service, router)
    zelvo.wait_for(r"^Port mapping: Port Mapping Error:$", 30)
    router = stage.start_router(router.port)
    stage.press("Return")
    zelvo.wait_for(r"^Port mapping: Port Mapping Successful\.$")
    link = zelvo.wait_for(r"^Link: zelvo://\S+$").group(0)

    # Killed as soon as it knows its link, it still owns it.
    zelvo.send(signal.SIGKILL)
    zelvo.wait(10)
    zelvo = stage.start_application(service, router)
    assert zelvo.wait_for(r"^Link: zelvo://\S+$", 30).group(0) == link

    # A second one would take the link back under the first when it quits.
    second = stage.start_application(service, router)
    assert second.wait(10) == 1

    # A service that has gone does not hold the quit, and the mapping goes all the same.
    service.end(signal.SIGKILL)
    zelvo.quit(5)
    router.wait_for(r"^Deleted TCP")
    wait_until_off(5)

    # A service that is not there.
    zelvo = stage.start_application(service, router)
    zelvo.wait_for(r"^Port mapping: Port Mapping Error:$", 30)
    service = stage.start_service(service.port)
    stage.press("Return")
    zelvo.wait_for(r"^Link: zelvo://\S+$")

    # Nobody who takes over the port of a server that has ended is published.
    for server in processes_named("screensharingd"):
        os.kill(server, signal.SIGKILL)
    zelvo.wait_for(r"^Port mapping: Applying Port Mapping\.\.\.$")
    zelvo.quit(number=signal.SIGINT)
    wait_until_off(5)


class Viewers(threading.Thread):
    """Come as soon as somebody listens; the first is let in, if any."""

    def __init__(self, application, let_in_one):
        super().__init__(daemon=True)
        self.application = application
        self.let_in_one = let_in_one
        self.stays = True
        self.came = 0

    def run(self):
        viewers = []
        while self.stays and self.came < 3:
            try:
                viewer, _ = connect_viewer("127.0.0.1", VNC_PORT)
                viewer.sendall(GREETING)
            except OSError:
                time.sleep(0.02)
                continue
            viewers.append(viewer)
            self.came += 1
            if self.came == 1 and self.let_in_one:
                threading.Thread(target=self.answer, daemon=True).start()
        while self.stays:
            time.sleep(0.02)

    def answer(self):
        try:
            let_in(self.application, random.choice(("help", "watch")))
        except (AssertionError, OSError, ValueError):
            # It has ended before.
            pass


def one_end(stage, service, router, number, delay):
    application = stage.start_application(service, router)
    # With somebody inside, a quit would ask.
    viewers = Viewers(application, number == signal.SIGKILL)
    viewers.start()
    time.sleep(delay)
    was_on = is_listening(VNC_PORT)
    application.send(number)
    # What is taken back at a quit, is asked for within the limits that a quit has.
    application.wait(15)
    ended = time.monotonic()
    wait_until_off(ended + 1 - time.monotonic())
    viewers.stays = False
    viewers.join()
    # The tool may have been about to start it.
    wait_until(lambda: not tools_at_work(), 10, "the end of the tools")
    assert not is_listening(VNC_PORT) and not processes_named("screensharingd"), delay
    application.end()
    return was_on, viewers.came


def tools_at_work():
    return subprocess.run(["pgrep", "-f", "screen-sharing-and-guess-access.tool"],
                          capture_output=True, check=False).returncode == 0


def ends(stage, kills=6, quits=6):
    """However and whenever the application ends, nothing listens a second later."""
    service, router = stage.set_up()
    # How long it takes here until somebody listens.
    begun = time.monotonic()
    application = stage.start_application(service, router)
    wait_until(lambda: is_listening(VNC_PORT), 20, "a listener")
    up = time.monotonic() - begun
    application.end()
    seen = [one_end(stage, service, router, signal.SIGKILL, random.uniform(0, up + 2.5))
            for _ in range(kills)]
    seen += [one_end(stage, service, router, signal.SIGTERM,
                     random.choice((random.uniform(0, 2), random.gauss(up, 0.05),
                                    random.gauss(up, 0.05))) % 3)
             for _ in range(quits)]
    print(f"{kills} kills, {quits} quits; {sum(on for on, _ in seen)} times somebody listened, "
          f"{sum(came > 0 for _, came in seen)} times viewers had come")
    assert any(came for _, came in seen)


class Stranger:
    """From an address of its own, which so is asked about whatever became of the others."""

    def __init__(self, number):
        self.socket = socket.create_connection(("127.0.0.1", VNC_PORT), 10,
                                               (f"127.0.{number + 1}.1", 0))
        self.socket.sendall(GREETING)
        self.heard = b""

    def is_in(self):
        """Four zeros behind the version and the kinds of security (sections 7.1.2 and 7.1.3)."""
        self.socket.setblocking(False)
        try:
            self.heard += self.socket.recv(4096)
        except (BlockingIOError, ConnectionError):
            pass
        kinds = self.heard[12] if len(self.heard) > 12 else 0
        return self.heard[13 + kinds:17 + kinds] == bytes(4)


class Typist(threading.Thread):
    """Types without end, now in haste, now with a pause in which the buttons come to life."""

    def __init__(self, stage):
        super().__init__(daemon=True)
        self.stage = stage
        self.types = True

    def run(self):
        while self.types:
            letter = random.choice(string.ascii_lowercase)
            key = random.choice((letter, letter, letter, "Return", "space", "Tab", "alt+" + letter,
                                 "alt+Tab"))
            self.stage.xdotool("key", key)
            time.sleep(1.2 if random.random() < 0.03 else random.uniform(0.01, 0.15))


def say_yes_from_within(stage, inside, yes):
    """Has the question shown, and clicks on "yes" behind so many pictures that its buttons are live."""
    def click(x, y):
        return b"".join(struct.pack(">BBHH", 5, down, x, y) for down in (0, 1, 0))
    window = stage.windows("^Zelvo$")[0]
    stage.xdotool("windowraise", window)
    x, y, width, height = stage.place(window)
    inside.socket.settimeout(1.5)
    # Zlib, as thorough and slow as it gets (registry of section 8.4).
    inside.socket.sendall(struct.pack(">BBHii", 2, 0, 2, 6, -247) +
                          click(x + width - 87, y + height - 113) +
                          struct.pack(">BBHHHH", 3, 0, 0, 0, 1024, 768) * 50 + click(*yes))
    try:
        while inside.socket.recv(65536):
            pass
    except TimeoutError:
        pass


def strangers(stage, number=8):
    """Strangers come while the user types into a terminal: nobody gets in before the mouse says so."""
    skip_where_missing("openbox", "xterm", "xdotool", "Xvfb")
    service, router = stage.set_up()
    env = dict(os.environ, DISPLAY=stage.display)
    stage.start(["openbox"], env)
    zelvo = stage.start_application(service, router)
    zelvo.wait_for("^Link: ")
    stage.start(["xterm", "-e", "cat"], env)
    wait_until(lambda: stage.xdotool("search", "--onlyvisible", "--class", "xterm"), 10, "a terminal")
    terminal = stage.xdotool("search", "--onlyvisible", "--class", "xterm").split()[-1]
    stage.xdotool("windowactivate", "--sync", terminal)

    # Nor does a window that the user has put away come back with the question, and take the keys.
    window = stage.windows("^Zelvo$")[0]
    stage.xdotool("windowminimize", window, "windowactivate", "--sync", terminal)
    first = Stranger(number + 2)
    wait_until(lambda: stage.windows("^Zelvo$"), 5, "the question")
    time.sleep(0.3)
    assert window not in stage.windows() and stage.xdotool("getwindowfocus").strip() == terminal
    first.socket.close()
    stage.xdotool("windowmap", window, "windowactivate", "--sync", terminal)

    typist = Typist(stage)
    typist.start()
    asked = 0
    for each in range(number):
        stranger = Stranger(each)
        end = time.monotonic() + random.choice((0.5, 1.0, 2.5))
        while time.monotonic() < end:
            assert not stranger.is_in(), f"stranger {each}"
            asked += stage.question() is not None
            time.sleep(0.05)
        stranger.socket.close()
    assert asked > number, "the question was hardly ever seen"
    typist.types = False
    typist.join()
    # Where the typing has hit "Refuse everybody", nobody is asked about any more.
    assert not [line for line in zelvo.lines if " is in and " in line]

    stage.xdotool("windowactivate", "--sync", terminal)
    friend = Stranger(number)
    other = Stranger(number + 1)
    yes = stage.click("help")
    wait_until(friend.is_in, 5, "the one who was let in")
    time.sleep(0.5)
    assert not other.is_in()
    say_yes_from_within(stage, friend, yes)
    assert stage.question() and not other.is_in()
    print(f"{number} strangers, the question was seen {asked} times; one was let in")


def main():
    enter_own_network()
    scenarios = {"road": the_whole_road, "interruptions": interruptions, "failures": failures,
                 "ends": ends, "strangers": strangers}
    for name in sys.argv[2:3] or scenarios:
        print(f"=== {name}: {scenarios[name].__doc__.splitlines()[0]}", flush=True)
        with Stage(os.path.abspath(sys.argv[1])) as stage:
            scenarios[name](stage, *map(int, sys.argv[3:]))
    print("The road is clear.")


if __name__ == "__main__":
    main()
