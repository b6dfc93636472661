"""At home behind a provider's NAT, so that the way in is a relay out in the internet."""

import contextlib
import os
import re
import signal
import sys
import time

from lab import HERE, SERVICE
from stage import skip_where_missing, wait_until

sys.path.insert(0, os.path.join(HERE, "..", "page"))
import tap  # noqa: E402
from browser import Browser  # noqa: E402
from sealed import HELPER, QUESTION, Helper, come_in, ends, split, type_at, wait_for_picture  # noqa: E402

OTHER_HOME = "192.168.78"
PASTED = "Only for those two, once"
# What a viewer says when somebody types the currency's sign, and what both sides begin with.
EURO_KEY = b"\4\1\0\0\0\0\x20\xac"
CLEAR = (EURO_KEY, b"RFB 003", PASTED.encode(), HELPER.encode())


def start(lab):
    lab.namespaces("carrier")
    lab.start_router()
    lab.make_certificate(SERVICE)
    lab.make_signatures()
    page = os.path.join(lab.build, "page.html")
    lab.service = lab.start_service(address=SERVICE, prefix=lab.within("internet"), options=[
        "--relays", f"{SERVICE}@{SERVICE}", "--relay-key", lab.path("tickets.key"),
        *(["--page", page] if os.path.exists(page) else [])])
    relay = start_relay(lab)
    lab.start_host()
    lab.xdotool("mousemove", "900", "700")
    zelvo = lab.start_zelvo()
    begun = time.monotonic()
    zelvo.wait_for(r"^Port mapping: Port Mapping Successful\.$")
    link = zelvo.wait_for(r"^Link: zelvo://(\S+)$").group(1)
    print(f"a link through the relay after {time.monotonic() - begun:.1f} s")
    assert lab.published(link)["Relay"] == SERVICE
    assert lab.table_is_empty()
    return relay, zelvo, link


def start_relay(lab, settle=0):
    return lab.start_relay(SERVICE, 443, settle, prefix=lab.within("internet"))


def restart_relay(lab, relay, link):
    """It knows nothing, and still gives no number to anybody who has had none."""
    before = lab.published(link)["Port"]
    relay.end(signal.SIGKILL)
    relay = start_relay(lab, settle=600)
    assert lab.published(link)["Port"] == before
    return relay


def move_house(lab):
    """The same computer at another network, as its network manager brings it there."""
    lab.run("router", "ip", "addr", "add", OTHER_HOME + ".1/24", "dev", "lan")
    lab.plug(False)
    time.sleep(1)
    lab.plug(True, OTHER_HOME)


def memory_of(pid):
    """All that a process has written, and what it reads."""
    with open(f"/proc/{pid}/maps", encoding="ascii") as maps, open(f"/proc/{pid}/mem", "rb", 0) as memory:
        for row in maps:
            begin, end, rights = re.match("([0-9a-f]+)-([0-9a-f]+) (\\S+)", row).groups()
            begin, size = int(begin, 16), int(end, 16) - int(begin, 16)
            # The sanitizers reserve terabytes for notes of their own.
            if rights[1] != "w" or size > 1 << 30:
                continue
            memory.seek(begin)
            with contextlib.suppress(OSError):
                yield memory.read(size)


def copy(lab, helper):
    """At the helper's, and it is there at the host's."""
    with open(lab.path("copied"), "w", encoding="ascii") as copied:
        copied.write(PASTED)
    lab.start(["xclip", "-selection", "clipboard", "-quiet", lab.path("copied")],
              {**os.environ, "DISPLAY": helper.screen.display}, helper.prefix)
    wait_until(lambda: lab.screen.ask("xclip", "-selection", "clipboard", "-o", text=True) == PASTED, 10,
               "the copied text")


def look_at_relay(relay, link):
    """Neither what is said through it nor the key is anywhere in what the relay has."""
    _, key_text, key = split(link)
    parts = list(memory_of(relay.process.pid))
    assert any(b"Sec-WebSocket-Protocol: zelvo.1" in part for part in parts)
    for clear in (key, key_text.encode(), *CLEAR):
        assert not any(clear in part for part in parts), clear


def look_at_wires(lab, link):
    _, key_text, key = split(link)
    said = 0
    for (_, source, to), text in tap.streams(lab.path("wires")):
        if (SERVICE, 443) in (source, to):
            said += len(text)
            # TLS begins with a handshake, and so does everybody.
            assert text[:1] in (b"", b"\x16"), text[:9]
    assert said > 100_000
    for _, packet in tap.packets(lab.path("wires")):
        assert not any(clear in packet for clear in (key, key_text.encode(), *CLEAR))


def arrives(lab, strike, text):
    """What is typed before the picture moves again is lost."""
    def has_arrived():
        strike(text)
        time.sleep(0.5)
        with open(lab.path("typed"), encoding="utf-8") as typed:
            return typed.read().endswith(text)
    wait_until(has_arrived, 10, text)


def second_nat(lab):
    """Behind a provider's NAT: somebody helps through a relay, which dies and comes back; so does the
    host's network. Neither the relay's wires nor its memory have what is said."""
    recorder = lab.start([sys.executable, os.path.join(HERE, "tap.py"), lab.path("wires")],
                         prefix=lab.within("internet"))
    recorder.wait_for("^Tap: listens")
    relay, zelvo, link = start(lab)
    helper = Helper(lab)
    terminal = lab.type_into_terminal(lab.path("typed"))

    stranger = helper.open(link.split("#")[0] + "#" + "A" * 22)
    ends(stranger, "key-refused", 7)
    assert not any("wants to see" in line for line in zelvo.lines)
    opener = helper.open(link)
    come_in(zelvo, opener)
    wait_for_picture(lab, helper)
    copy(lab, helper)
    arrives(lab, lambda text: type_at(helper, text), "Zoë: é ß €\n")
    look_at_relay(relay, link)

    relay = restart_relay(lab, relay, link)
    begun = time.monotonic()
    opener.wait_for("^State: returning$")
    # They may be typing still, and press nothing by that.
    type_at(helper, " \n")
    opener.wait_for("^State: controlling$", 30)
    print(f"back {time.monotonic() - begun:.1f} s after the relay's death")
    arrives(lab, lambda text: type_at(helper, text), "€ again\n")

    move_house(lab)
    begun = time.monotonic()
    opener.wait_for("^State: returning$", 30)
    opener.wait_for("^State: controlling$", 60)
    print(f"back {time.monotonic() - begun:.1f} s after the host's move")
    arrives(lab, lambda text: type_at(helper, text), "€ elsewhere\n")
    wait_for_picture(lab, helper)
    assert sum("wants to see" in line for line in zelvo.lines) == 1
    look_at_relay(relay, link)
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
    look_at_wires(lab, link)


def second_nat_browser(lab):
    """Behind a provider's NAT: somebody helps with nothing but a browser, over the relay's death, and
    over the host's way to another network."""
    skip_where_missing("chromium", "chromedriver", os.path.join(lab.build, "page.html"))
    relay, zelvo, link = start(lab)
    browser = Browser(lab, "en", prefix=lab.within("internet"), network=lambda: lab.connecting_from("internet"))
    terminal = lab.type_into_terminal(lab.path("typed"))

    def reaches(stage, seconds=10):
        wait_until(lambda: browser.stage() == stage, seconds, f"{stage} instead of {browser.stage()}")

    def ask(key=""):
        browser.open("about:blank")
        browser.open(f"{lab.service.url}/{key or link}")
        wait_until(lambda: browser.text("title") == "\u2068vm\u2069", 10, "the host's name")
        browser.type("#name", HELPER)
        browser.click("#ask button")

    def let_in():
        zelvo.wait_for(QUESTION)
        asked = zelvo.wait_for(r"refuse if they differ: ([\d ]{15})").group(1)
        wait_until(lambda: browser.text("numbers") == asked, 5, "the same digits")
        time.sleep(1.2)
        zelvo.say("help\n")
        reaches("inside")

    def types(text):
        arrives(lab, browser.strike, text)

    ask(link.split("#")[0] + "#" + "A" * 22)
    reaches("ended key-refused")
    assert not any("wants to see" in line for line in zelvo.lines)
    ask()
    let_in()
    types("Zoë: é ß €\n")
    relay = restart_relay(lab, relay, link)
    reaches("returning")
    reaches("inside", 30)
    types("€ again\n")
    move_house(lab)
    reaches("returning", 40)
    reaches("inside", 30)
    types("€ elsewhere\n")
    look_at_relay(relay, link)
    assert sum("wants to see" in line for line in zelvo.lines) == 1
    terminal.end()
    zelvo.say("disconnect\n")
    reaches("ended disconnected")

    ask()
    let_in()
    zelvo.send(signal.SIGTERM)
    lab.press("Return")
    reaches("ended link-ended")
    assert zelvo.wait(10) == 0
    browser.quit()
