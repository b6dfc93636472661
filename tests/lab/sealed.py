"""Somebody helps with nothing but the link, and others sit on the way."""

import base64
import collections
import contextlib
import glob
import os
import re
import signal
import sys
import threading
import time
import zlib
from importlib.util import find_spec

from lab import HERE, HOST, OUTSIDE, SERVICE
from stage import GREETING, VNC_PORT, own_environment, processes_named, skip_where_missing, wait_until

import tap
import websocket

HELPER = "Zoë Müller"
QUESTION = f"{HELPER}.?, who has your link, wants to see your screen"
ENDED = r"^State: ended (\S+)$"


def split(link):
    """The identifier, and the key as it is written and as it is."""
    identifier, text = link.split("#")
    return identifier, text, base64.urlsafe_b64decode(text + "==")


class Helper:
    """Out there, with a display of their own and the program that opens links."""

    def __init__(self, lab, place="internet", size="1280x1024x24"):
        self.lab = lab
        self.prefix = lab.within(place)
        self.screen = lab.start_screen(self.prefix, size)
        # It has é, ß and €, so that nobody changes the keyboard while it is typed on.
        self.screen.ask("setxkbmap", "-layout", "us", "-variant", "altgr-intl")

    def start(self, link, service=None):
        lab = self.lab
        environment = {**own_environment(), "DISPLAY": self.screen.display,
                       "ZELVO_SERVICE": (service or lab.service).url,
                       "SSL_CERT_FILE": lab.path("ca.pem"), "HOME": lab.path("helper"),
                       "XDG_CONFIG_HOME": lab.path("helper/config"),
                       "XDG_RUNTIME_DIR": lab.path("runtime")}
        return lab.start([os.path.join(lab.build, "zelvo-open"), "--say", "--once", "--name",
                          HELPER, link], environment, self.prefix, takes_input=True)

    def open(self, link, service=None):
        """From standard input, where nobody else can read it."""
        opener = self.start("-", service)
        opener.say(f"zelvo://{link}\n")
        return opener


def ends(opener, word, status):
    assert opener.wait_for(ENDED, 25).group(1) == word, opener.lines
    assert opener.wait(10) == status, opener.process.returncode


def digits(zelvo, opener):
    """As the question and the program that asks it show them."""
    zelvo.wait_for(QUESTION)
    asked = zelvo.wait_for(r"refuse if they differ: ([\d ]{15})").group(1)
    return asked, opener.wait_for("^Digits: (.+)$").group(1)


def come_in(zelvo, opener):
    asked, shown = digits(zelvo, opener)
    assert asked == shown and re.fullmatch(r"\d{3}( \d{3}){3}", asked), (asked, shown)
    # What is typed in the first second was meant for something else.
    time.sleep(1.2)
    zelvo.say("help\n")
    zelvo.wait_for(" is in and can use your screen. The connection is sealed")
    opener.wait_for("^State: controlling$")


class KeyHunt:
    """Looks at every process's arguments and environment for as long as it goes on."""

    def __init__(self, key_text):
        self.key_text, self.found, self.goes_on = key_text.encode(), set(), True
        self.thread = threading.Thread(target=self._look, daemon=True)
        self.thread.start()

    def _look(self):
        while self.goes_on:
            for path in glob.glob("/proc/[0-9]*/cmdline") + glob.glob("/proc/[0-9]*/environ"):
                with contextlib.suppress(OSError), open(path, "rb") as file:
                    if self.key_text in file.read():
                        self.found.add(path)
            time.sleep(0.1)

    def end(self):
        self.goes_on = False
        self.thread.join()
        return self.found


def look_for_key(lab, key_text, key):
    """In everything that anybody has written, but the user's defaults."""
    def holds(data):
        return key in data or key_text.encode() in data
    defaults = []
    for folder, _, names in os.walk(lab.folder):
        for path in (os.path.join(folder, name) for name in names):
            with contextlib.suppress(OSError), open(path, "rb") as file:
                if holds(file.read()):
                    defaults.append(path)
    assert [os.path.dirname(path) for path in defaults] == [lab.path("config/zelvo")], defaults
    assert os.stat(defaults[0]).st_mode & 0o777 == 0o600
    for program in lab.programs:
        # What the test itself has asked for.
        lines = [line for line in program.lines if not line.startswith("Link: ")]
        assert not holds("\n".join(lines).encode()), program.name


def look_at_wires(lab, port, key_text, key):
    """All that was said to the host and by it, sealed or not, and nothing in clear but the upgrade."""
    heads = collections.defaultdict(bytes)
    for (wire, source, to), text in tap.streams(lab.path("wires")):
        assert key not in text and key_text.encode() not in text, (wire, source, to)
        if (HOST, VNC_PORT) not in (source, to) and (OUTSIDE, port) not in (source, to):
            continue
        # The service looks whether somebody answers there, and hangs up.
        if text in (b"", GREETING[:12]):
            continue
        reader = websocket.Reader(iter([text, b""]).__next__)
        is_opener = to[1] in (VNC_PORT, port)
        head = reader.head()
        assert head.startswith(b"GET / HTTP/1.1\r\n" if is_opener else b"HTTP/1.1 101 "), head
        messages = []
        with contextlib.suppress(EOFError):
            while True:
                messages.append(reader.message())
        assert len(messages[0][1]) == 80, messages[0]
        heads[wire] += b"".join(message[:24] for opcode, message in messages
                                if opcode == websocket.BINARY)
    assert {"wan", "lan", "port1"} <= set(heads), heads.keys()
    for begin in heads.values():
        # What begins with a kind, a type, an x and a y would give way.
        assert len(begin) > 2000 and len(zlib.compress(begin, 9)) >= len(begin), len(begin)
    for _, packet in tap.packets(lab.path("wires")):
        assert key not in packet and key_text.encode() not in packet


def picture_is_equal(lab, helper):
    """Whether the helper's screen shows the host's, pixel by pixel."""
    (width, height), ours = lab.screen.picture()
    (shown_width, _), shown = helper.screen.picture()
    rows = [ours[at:at + width * 3] for at in range(0, len(ours), width * 3)]
    begins, at = [], -1
    # Other rows may look the same.
    while (at := shown.find(rows[height // 2], at + 1)) >= 0:
        begins.append(at - height // 2 * shown_width * 3)
    return any(begin >= 0 and all(shown.startswith(row, begin + y * shown_width * 3) for y, row in enumerate(rows))
               for begin in begins)


def wait_for_picture(lab, helper):
    """Something turns in the host's window until that has noticed the viewer, which it looks for every 3 s, and while
    it turns nothing is sharpened; what is no larger than a pointer is sharpened after 10 s."""
    wait_until(lambda: picture_is_equal(lab, helper), 20, "the same picture")


def type_at(helper, text):
    window = helper.screen.xdotool("search", "--onlyvisible", "--name", ".*Zelvo.*").split()[-1]
    helper.screen.xdotool("windowfocus", "--sync", window, "type", "--delay", "30", text)


def start(lab):
    lab.start_router()
    lab.start_internet()
    lab.start_host()
    # Below the pointer the picture may stay as it came, which is JPEG where it is not plain.
    lab.xdotool("mousemove", "900", "700")


def sealed(lab):
    """Somebody out there helps with nothing but the link: sealed, asked by name, the same digits on
    both sides; typing, the picture, and every end. Nobody else ever sees the key."""
    start(lab)
    recorder = lab.start([sys.executable, os.path.join(HERE, "tap.py"), lab.path("wires")],
                         prefix=lab.within("router"))
    recorder.wait_for("^Tap: listens")
    zelvo = lab.start_zelvo()
    link, port = lab.link_of(zelvo)
    _, key_text, key = split(link)
    hunt = KeyHunt(key_text)
    helper = Helper(lab)
    terminal = lab.type_into_terminal(lab.path("typed"))

    opener = helper.open(link)
    come_in(zelvo, opener)
    wait_for_picture(lab, helper)
    type_at(helper, "Zoë: é ß €\n")
    wait_until(lambda: os.path.getsize(lab.path("typed")) > 0, 10, "the text")
    with open(lab.path("typed"), encoding="utf-8") as typed:
        assert (text := typed.read()) == "Zoë: é ß €\n", text
    wait_for_picture(lab, helper)
    servers = processes_named("screensharingd", zelvo.process.pid)
    for pid in (opener.process.pid, zelvo.process.pid, *servers):
        with open(f"/proc/{pid}/limits", encoding="ascii") as limits:
            assert re.search(r"^Max core file size +1 ", limits.read(), re.M), pid
    terminal.end()
    zelvo.say("disconnect\n")
    ends(opener, "disconnected", 0)

    opener = helper.open(link)
    come_in(zelvo, opener)
    zelvo.send(signal.SIGTERM)
    lab.press("Return")
    ends(opener, "link-ended", 7)
    assert zelvo.wait(10) == 0
    ends(helper.open(link), "not-shared", 7)

    recorder.send(signal.SIGTERM)
    assert recorder.wait_for(r"^Tap: (\d+) lost").group(1) == "0"
    assert not hunt.end()
    look_for_key(lab, key_text, key)
    look_at_wires(lab, port, key_text, key)


def line_cut(lab):
    """The line of somebody who is inside is silent for three seconds, and then broken: they come back
    as they were, and nobody is asked. Whoever was disconnected does not."""
    start(lab)
    zelvo = lab.start_zelvo()
    link, _ = lab.link_of(zelvo)
    helper = Helper(lab)
    terminal = lab.type_into_terminal(lab.path("typed"))
    opener = helper.open(link)
    come_in(zelvo, opener)
    questions = sum("wants to see" in line for line in zelvo.lines)

    for what in ("drop", "reject with tcp reset"):
        lab.run("router", "nft", "add table inet cut { chain forward { type filter hook forward "
                f"priority -10; tcp dport {VNC_PORT} {what}; tcp sport {VNC_PORT} {what}; }}; }}")
        type_at(helper, "a")
        time.sleep(3)
        lab.run("router", "nft", "delete table inet cut")
        if what != "drop":
            opener.wait_for("^State: returning$")
            opener.wait_for("^State: controlling$")
    wait_for_picture(lab, helper)
    type_at(helper, "c\n")
    wait_until(lambda: os.path.getsize(lab.path("typed")) > 0, 10, "what is typed afterwards")
    with open(lab.path("typed"), encoding="utf-8") as typed:
        assert typed.read().endswith("c\n")
    assert questions == sum("wants to see" in line for line in zelvo.lines)
    terminal.end()

    zelvo.say("disconnect\n")
    ends(opener, "disconnected", 0)
    lab.quit(zelvo)


# With nothing that the link holds: what the one in between does, what that is to the opener (a word
# and an exit status), and what is heard of whom one plays a part to.
WITHOUT_THE_LINK = (
    ("answer", "not-the-host", 8, "4002"),
    ("greet", "not-ours", 4, "nothing more"),
    ("flip host 1", "key-refused", 7, None),
    ("flip opener 1", "not-the-host", 8, None),
    ("flip host 2", "cut", 9, None),
    ("cut opener 1", "silent", 4, None),
    ("cut host 2", "cut", 9, None),
)


def man_in_the_middle(lab):
    """Somebody sits at the router: without the link they raise no question and are found out, with it
    the digits differ. Nor does a service that lies, or an old link, open anything."""
    skip_where_missing(reason="" if find_spec("cryptography") else "missing: python3-cryptography")
    start(lab)
    front = lab.start_front()
    zelvo = lab.start_zelvo(in_terminal=True)
    link, port = lab.link_of(zelvo)
    helper = Helper(lab)
    lab.run("router", "ip", "route", "add", "local", "192.168.77.128/25", "dev", "lan")
    lab.run("router", "nft", "add table ip middle { chain prerouting { type nat hook prerouting "
            f"priority -150; iifname wan tcp dport {port} redirect to :7900; }}; }}")
    between = lab.start([sys.executable, os.path.join(HERE, "middle.py"), "7900", HOST],
                        {**os.environ, "PYTHONPATH": os.path.join(HERE, "../../tools/sealing")},
                        prefix=lab.within("router"), takes_input=True)
    between.wait_for("is ready")

    def do(way):
        between.say(way + "\n")
        between.wait_for("is ready")

    def asked():
        return [line for line in zelvo.lines if "wants to see" in line]

    for way, word, status, heard in WITHOUT_THE_LINK:
        do(way)
        ends(helper.open(link), word, status)
        if heard:
            between.wait_for("^Middle: heard " + heard)
    # What it replays is the last that it has handed on.
    between.say("replay\n")
    between.wait_for("^Middle: heard 4001")
    assert not asked()
    # What is changed once the host has heard who asks is noticed in time, too.
    do("flip opener 2")
    ends(helper.open(link), "broken", 8)
    zelvo.wait_for("^The question is over")

    do("both " + " ".join(link.split("#")))
    opener = helper.open(link)
    there, here = between.wait_for(r"^Middle: digits (.+) and (.+)$").groups()
    assert digits(zelvo, opener) == (here, there) and here != there
    time.sleep(1.2)
    zelvo.say("refuse\n")
    ends(opener, "refused", 5)
    lab.run("router", "nft", "delete table ip middle")

    front.say(f"elsewhere {OUTSIDE} 7900\n")
    do("answer")
    ends(helper.open(link, front), "not-the-host", 8)
    lab.make_certificate(SERVICE, "false")
    false = lab.start_front("false")
    ends(helper.open(link, false), "service-certificate-untrusted", 3)

    zelvo.say("l")
    _, port = lab.link_of(zelvo)
    ends(helper.open(link), "unknown-link", 7)
    front.say(f"elsewhere {OUTSIDE} {port}\n")
    ends(helper.open(link, front), "key-refused", 7)
    assert len(asked()) == 2
    zelvo.say("q")
    assert zelvo.wait(5) == 0
