#!/usr/bin/env python3
"""The page in a real browser, over a real relay, to the real screen server behind it.

usage: page_test.py BUILD_FOLDER [FOLDER_FOR_PICTURES]
"""

import base64
import contextlib
import os
import re
import select
import socket
import ssl
import struct
import subprocess
import sys
import threading
import time
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
for room in ("support", "relay"):
    sys.path.insert(0, os.path.join(HERE, "..", room))
from browser import Browser  # noqa: E402
from gate import LEFT, QUESTION, REPLY, RIGHTS, WATCH, CONTROL, ZelvoEnd  # noqa: E402
from relays import Host, Relays  # noqa: E402
from stage import (  # noqa: E402
    GREETING, Stage, enter_own_network, skip_where_missing, wait_until, wait_until_at_rest)

COMPUTER = "\u2068Zoë’s <b onclick=1>\u2069"
FACTS = ("ComputerName=Zo%C3%AB%E2%80%99s%20%3Cb%20onclick%3D1%3E&LocalHostname=a.local.&vncPort=5900&IPAddress={}&Port={}"
         "&MacAddress=&LastKeyboardLocale=&MappedService=vnc&HotKeys=%7B%2264%22%3A%5B65507%2C113%5D%7D"
         "&permanentSharedLink=")
KEY = bytes(range(16))
RELAY_PORT = 44300
NAME = "  Zoë   Müller "


class RelayedHost:
    """Brings those who come over the relay to the screen server."""

    def __init__(self, relays, lease=""):
        self.host = Host(relays, lease)
        assert self.host.status == 101, self.host.status
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        try:
            while True:
                there = self.host.take(self.host.call()[0])
                here = socket.create_connection(("127.0.0.1", 5900))
                threading.Thread(target=self._copy, args=(here, there), daemon=True).start()
        except (AssertionError, OSError, ValueError):
            pass  # The relay has ended.

    @staticmethod
    def _copy(here, there):
        """In one thread, since a TLS session bears no two at once."""
        with contextlib.suppress(OSError), here, there:
            while True:
                if not there.pending():
                    select.select([here, there], [], [])
                there.setblocking(False)
                with contextlib.suppress(ssl.SSLWantReadError):
                    part = there.recv(65536)
                    if not part:
                        return
                    here.sendall(part)
                there.settimeout(20)
                if select.select([here], [], [], 0)[0]:
                    part = here.recv(65536)
                    if not part:
                        break
                    there.sendall(part)
            # What was said last is on its way.
            socket.socket.shutdown(there, socket.SHUT_WR)
            while there.recv(65536):
                pass


class Scene:
    """What a session needs, from the display to the browser."""

    def __init__(self, stage, pictures):
        self.stage, self.pictures = stage, pictures
        stage.start_display()
        self.env = dict(os.environ, DISPLAY=stage.display)
        subprocess.run(["xsetroot", "-solid", "#3060c0"], env=self.env, check=True)
        self.zelvo = ZelvoEnd(stage.folder, None)
        server = stage.start([os.path.join(stage.build, "screensharingd"), "--socket", self.zelvo.path], self.env)
        server.wait_for("^listening$")
        self.relays = Relays(stage, ["--page", os.path.join(stage.build, "page.html")], f"127.0.0.1:{RELAY_PORT}")
        self.relays.name, self.relays.port = "127.0.0.1", RELAY_PORT
        self.relays.start("--settle", "0")
        self.host = RelayedHost(self.relays)
        self.link = self.register(self.host.host.number)
        self.zelvo.set_link(self.link, KEY)
        self.browser = Browser(stage, "en")

    def register(self, port, address="127.0.0.1"):
        return self.relays.post("create.php", FACTS.format(address, port))["link"].split("#")[0].removeprefix("zelvo://")

    def url(self, link, key=KEY):
        return f"{self.relays.service.url}/{link}#" + base64.urlsafe_b64encode(key).decode().rstrip("=")

    def open(self, link, key=KEY):
        self.browser.open("about:blank")
        self.browser.open(self.url(link, key))

    def ask(self):
        wait_until(lambda: self.browser.text("title") == COMPUTER, 10, "the host's name")
        self.browser.type("#name", NAME)
        self.browser.click("#ask button")

    def reaches(self, stage, seconds=10):
        wait_until(lambda: self.browser.stage() == stage, seconds, f"{stage} instead of {self.browser.stage()}")

    def look(self, name):
        if self.pictures:
            self.browser.picture(os.path.join(self.pictures, name + ".png"))

    def question(self):
        """The number, the name and the digits of who asks last."""
        body = [body for kind, body in self.zelvo.messages if kind == QUESTION][-1]
        name, rest = body[15:15 + body[14]], body[15 + body[14]:]
        return body[:4], name.decode(), rest[1:1 + rest[0]].decode()

    def let_in(self, question=1):
        wait_until(lambda: self.zelvo.count(QUESTION) == question, 10, "the question")
        viewer, name, digits = self.question()
        wait_until(lambda: self.browser.text("numbers") == digits, 5, "the same digits")
        assert name == "Zoë Müller", name
        self.look("asked")
        self.zelvo.send(REPLY, viewer + bytes([CONTROL]))
        self.reaches("inside")
        return viewer

    def pixel(self):
        return self.browser.run("const c = document.querySelector('#screen canvas');"
                                "return c ? [...c.getContext('2d').getImageData(900, 700, 1, 1).data] : []")


def served(scene):
    """The same bytes for everybody, which let in nothing of others."""
    answers = []
    for link in (scene.link, "0" * 32):
        with urllib.request.urlopen(f"{scene.relays.service.url}/{link}", context=scene.relays.tls) as answer:
            answers.append((answer.read(), {k: v for k, v in answer.headers.items() if k != "Date"}))
    assert answers[0] == answers[1]
    body, fields = answers[0]
    assert f"connect-src 'self' wss://127.0.0.1:{RELAY_PORT}" in fields["Content-Security-Policy"]
    assert fields["Referrer-Policy"] == "no-referrer" and "Set-Cookie" not in fields
    assert b"default-src 'none'; script-src 'sha256-" in body
    assert len(open(os.path.join(scene.stage.build, "page.html.gz"), "rb").read()) < 130 * 1024


def refused(scene):
    """No question where the key is another, and no attempt where nothing leads to the host."""
    browser = scene.browser
    direct = scene.register(5900, "127.0.0.2")
    for link, key, ending in ((scene.link, bytes(16), "key-refused"), (direct, KEY, "no-relay"),
                              ("0" * 32, KEY, "unknown-link")):
        scene.open(link, key)
        if ending == "key-refused":
            scene.ask()
        scene.reaches("ended " + ending)
        scene.look(ending)
        assert browser.run("return document.getElementById('open').href").startswith(f"zelvo://{link}#")
    assert scene.zelvo.count(QUESTION) == 0
    scene.open(scene.link, b"short")
    assert browser.text("title") == "This is no whole link"


def inside(scene):
    browser, stage = scene.browser, scene.stage
    scene.open(scene.link)
    assert browser.run("return location.hash + document.cookie + history.length") == str(
        browser.run("return history.length"))
    begun = time.monotonic()
    scene.ask()
    wait_until(lambda: scene.zelvo.count(QUESTION), 10, "the question")
    print(f"from the button to the question: {(time.monotonic() - begun) * 1000:.0f} ms")
    viewer = scene.let_in()
    blue = lambda: len(p := scene.pixel()) == 4 and all(abs(a - b) < 12 for a, b in zip(p, (0x30, 0x60, 0xC0)))
    wait_until(blue, 10, "the picture")

    path = stage.path("typed")
    stage.start(["xterm", "-u8", "-e", f"stty raw -echo; touch {path}; exec cat >{path}"],
                dict(scene.env, LC_ALL="C.UTF-8"))
    wait_until(lambda: os.path.exists(path), 10, "the terminal")
    stage.xdotool("mousemove", "100", "100")
    time.sleep(0.5)
    browser.type("#screen canvas", "Hello {you}")
    wait_until(lambda: open(path, encoding="utf-8").read() == "Hello {you}", 5, "what was typed")
    scene.look("inside")
    # What the service calls the host's keys: Ctrl+Q, and what every host has.
    browser.click("#keys summary")
    browser.click("#key-list button")
    wait_until(lambda: open(path, encoding="utf-8").read().endswith("\x11"), 5, "the host's keys")
    # A finger is a mouse, and a telephone's keyboard writes into a field.
    left, top, width = browser.run("const r = document.querySelector('#screen canvas').getBoundingClientRect();"
                                   "return [r.left, r.top, r.width / document.querySelector('#screen canvas').width]")
    browser.tap(round(left + 700 * width), round(top + 600 * width))
    place = lambda: subprocess.run(["xdotool", "getmouselocation"], env=scene.env, capture_output=True, text=True).stdout
    wait_until(lambda: re.match(r"x:(69[89]|70[012]) y:(59[89]|60[012]) ", place()), 5, "the finger")
    # Down and up follow the move, each with its place.
    time.sleep(0.5)
    stage.xdotool("mousemove", "100", "100")
    browser.run("const f = document.getElementById('typing'); f.value = f.value.slice(1) + 'ж';"
                "f.dispatchEvent(new InputEvent('input'))")
    wait_until(lambda: open(path, encoding="utf-8").read().endswith("\x7fж"), 5, "what a telephone types")
    browser.click("#clipboard summary")
    browser.type("#clipboard-text", "from here ü")
    clipboard = ["xclip", "-selection", "clipboard"]
    paste = lambda: subprocess.run([*clipboard, "-o"], env=scene.env, capture_output=True, text=True).stdout
    wait_until(lambda: paste() == "from here ü", 5, "the clipboard")
    subprocess.run(clipboard, env=scene.env, input="from there é", text=True, check=True)
    wait_until(lambda: browser.run("return document.getElementById('clipboard-text').value") == "from there é", 5,
               "what was copied there")
    browser.click("#clipboard summary")

    # A key that is down when the keys are taken back.
    browser.run("""const c = document.querySelector("#screen canvas"); c.focus();
        const down = (key, more) => c.dispatchEvent(new KeyboardEvent("keydown", {key, bubbles: true, ...more}));
        down("r", {code: "KeyR"}); down("Escape", {ctrlKey: true, altKey: true, shiftKey: true})""")
    assert browser.run("return document.activeElement.id") == "disconnect"
    before = wait_until_at_rest(lambda: os.path.getsize(path), 5, "a key that outlives the focus")

    scene.zelvo.send(RIGHTS, viewer + bytes([WATCH]))
    wait_until(lambda: browser.text("standing").startswith("You can only watch"), 5, "the rights")
    browser.type("#screen canvas", "no")
    time.sleep(0.5)
    assert os.path.getsize(path) == before
    scene.zelvo.send(RIGHTS, viewer + bytes([CONTROL]))

    # The relay dies, and is back with the host's number: nobody is asked again.
    scene.relays.relay.end(9)
    scene.reaches("returning")
    # They may still be typing.
    browser.strike(" \n")
    scene.look("returning")
    scene.relays.start("--settle", "0")
    scene.host = RelayedHost(scene.relays, scene.host.host.lease)
    scene.reaches("inside", 20)
    assert scene.zelvo.count(QUESTION) == 1
    assert not browser.run("return !document.getElementById('bar-note').hidden"), "the host has proven itself"
    wait_until(blue, 10, "the picture again")
    scene.zelvo.disconnect()
    scene.reaches("ended disconnected")
    scene.look("disconnected")
    scene.open(scene.link)
    scene.ask()
    viewer = scene.let_in(2)
    asked = browser.run("return performance.getEntriesByType('resource').map((e) => e.name)")
    assert all(name.startswith((scene.relays.service.url, "data:")) for name in asked), asked
    # The relay's death is one; anything else would be a fault, or a break of the policy.
    complaints = [line for line in browser.complaints() if "wss://" not in line]
    assert not complaints, complaints
    # The page does not come to say goodbye, so what the browser says has to do. It would end with its last tab.
    browser.run("WebSocket.prototype.send = WebSocket.prototype.close = () => undefined")
    browser.say("/window/new", {"type": "tab"})
    browser.say("/window", method="DELETE")
    wait_until(lambda: (LEFT, viewer + b"\1\0") in scene.zelvo.messages, 2, "that the viewer has gone, and for good")


MARKUP = "<img src='x:' onerror='stolen=1'><script>stolen=1</script>"


def hostile(scene):
    """Within a sealed line, a host that has been made evil shows a wrong picture at most."""
    browser = scene.browser
    scene.open(scene.link)
    wait_until(lambda: browser.text("title") == COMPUTER, 10, "a host's name with markup in it")
    bundled = subprocess.run(["esbuild", os.path.join(HERE, "meetHost.js"), "--bundle", "--format=iife"], check=True,
                             capture_output=True, text=True, env=dict(os.environ, NODE_PATH="/usr/share")).stdout
    browser.run(bundled)
    images = browser.run("return document.images.length")
    browser.complaints()
    begin = GREETING + bytes(4) + struct.pack(">HH16sI", 16, 16, bytes([32, 24, 0, 1, 0, 255, 0, 255, 0, 255, 16, 8]),
                                              len(MARKUP)) + MARKUP.encode()
    rectangle = lambda x, y, width, height, kind: struct.pack(">BxHHHHHi", 0, 1, x, y, width, height, kind)
    for words, fate in (
            (struct.pack(">B3xI", 3, len(MARKUP)) + MARKUP.encode(), "shown"),
            (rectangle(9, 9, 65535, 65535, 7) + b"\x80abc", "shown"),
            (rectangle(0, 0, 65535, 65535, -223), "shown"),
            (rectangle(0, 0, 2, 2, 0x12345678), "failed"),
            (rectangle(0, 0, 2, 2, 7) + b"\x00\x09no zlib !", "failed"),
            (bytes([99]), "failed")):
        said = [base64.b64encode(part).decode() for part in (begin, words)]
        ended = browser.run("return meetHost(arguments[0])", said)
        assert ended == fate, (words, ended)
    assert browser.run("return document.getElementById('clipboard-text').value") == MARKUP
    assert browser.run("return typeof stolen + document.images.length") == f"undefined{images}"
    complaints = [line for line in browser.complaints() if "Security Policy" in line]
    assert not complaints, complaints


def main():
    skip_where_missing("chromium", "chromedriver", "esbuild", "xclip", "xterm", "xsetroot")
    enter_own_network()
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        scene = Scene(stage, sys.argv[2] if len(sys.argv) > 2 else None)
        for scenario in (served, refused, hostile, inside):
            scenario(scene)
            print(f"{scenario.__name__}: well", flush=True)
        scene.browser.quit()


if __name__ == "__main__":
    main()
