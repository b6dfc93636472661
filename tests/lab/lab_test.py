#!/usr/bin/env python3
"""The application at home behind a real router, with a viewer out in the internet.

usage: lab_test.py BUILD_FOLDER SCENARIO
       lab_test.py --list
"""

import os
import signal
import sys
import time

from lab import WIRELESS, Lab, leave_out_where_impossible
from relayed import second_nat, second_nat_browser
from sealed import line_cut, man_in_the_middle, sealed
from stage import wait_until


def whole_lab(lab, speaks="all"):
    lab.start_router(speaks=speaks)
    lab.start_internet()
    lab.start_host()


def one_protocol(lab, protocol, name):
    whole_lab(lab, protocol)
    zelvo = lab.start_zelvo()
    link, _ = lab.link_of(zelvo)
    zelvo.wait_for_any(rf"^Port mapping: {name} maps TCP")
    lab.view(zelvo, link)
    lab.quit(zelvo)
    assert int(lab.published(link)["availabilityStatus"]) == 1


def pcp(lab):
    """PCP alone: a viewer comes through the router and leaves, and nothing stays behind."""
    one_protocol(lab, "pcp", "PCP")


def nat_pmp(lab):
    """NAT-PMP alone: a viewer comes through the router and leaves, and nothing stays behind."""
    one_protocol(lab, "nat-pmp", "NAT-PMP")


def upnp(lab):
    """UPnP alone: a viewer comes through the router and leaves, and nothing stays behind."""
    one_protocol(lab, "upnp", "UPnP")


def killed(lab):
    """Killed while mapped, by UPnP: the next start takes the old rule back and has its own."""
    whole_lab(lab, "upnp")
    zelvo = lab.start_zelvo()
    link, old = lab.link_of(zelvo)
    zelvo.end(signal.SIGKILL)
    assert lab.mapped() == {old}
    zelvo = lab.start_zelvo()
    again, new = lab.link_of(zelvo)
    assert again == link and new != old
    zelvo.wait_for_any(r"^Port mapping: UPnP has withdrawn what was left for port 5900$")
    lab.quit(zelvo)
    assert not lab.journals()


def router_restarted(lab):
    """The router, by NAT-PMP, forgets the port and has it for nobody: that is said to whom a viewer
    looks at, too. When it can be had again the link leads here."""
    whole_lab(lab, "nat-pmp")
    zelvo = lab.start_zelvo(in_terminal=True)
    link, port = lab.link_of(zelvo)
    viewer = lab.hold_connection(zelvo, port)
    lab.lose_router()
    assert lab.table_is_empty()
    lab.start_router(f"deny {port} 0.0.0.0/0 0-65535", speaks="nat-pmp")
    zelvo.wait_for("^The way to this computer has changed")
    assert port not in lab.mapped()
    lab.lose_router()
    lab.start_router(speaks="nat-pmp")
    lab.wait_until_mapped(port)
    viewer.end()
    zelvo.wait_for(r"^Connection: Waiting for connection\.\.\.$", 10)
    lab.view(zelvo, link)
    lab.quit(zelvo)


def addresses(lab):
    """The router's address outside changes, then the host's inside: the mapping follows."""
    whole_lab(lab)
    zelvo = lab.start_zelvo(in_terminal=True)
    link, port = lab.link_of(zelvo)
    lab.run("router", "ip", "addr", "add", "44.128.7.9/32", "dev", "wan")
    lab.run("router", "ip", "addr", "del", "44.128.7.1/24", "dev", "wan")
    lab.run("router", "ip", "addr", "add", "44.128.7.9/24", "dev", "wan")
    zelvo.wait_for_any(rf"maps TCP and UDP port {port} of 44\.128\.7\.9 to port 5900")
    zelvo.wait_for("^The way to this computer has changed")
    lab.run("host", "ip", "addr", "flush", "dev", "eth0")
    lab.run("host", "ip", "addr", "add", "192.168.77.21/24", "dev", "eth0")
    lab.run("host", "ip", "route", "add", "default", "via", "192.168.77.1")
    wait_until(lambda: lab.mapped("192.168.77.21"), 10, "the mapping to the new address")
    zelvo.quit(5)

    # Starting again is what the user is told to do.
    zelvo = lab.start_zelvo(in_terminal=True)
    zelvo.wait_for(f"^Link: zelvo://{link}$")
    facts = lab.published(link)
    assert facts["IPAddress"] == "44.128.7.9", facts
    wait_until(lambda: lab.mapped("192.168.77.21") == {int(facts["Port"])}, 5, f"{facts} in the router's table")


def cable(lab):
    """The cable is pulled for 15 s, and the link goes on, also after a while on the wireless network;
    pulled once more, it does not hold quitting."""
    whole_lab(lab)
    zelvo = lab.start_zelvo(lab.start_front())
    link, port = lab.link_of(zelvo)
    # The last that the enable tool says.
    zelvo.wait_for_any("the screen is shared")
    shown = list(zelvo.lines)
    lab.run("router", "ip", "link", "set", "port1", "down")
    # Nothing is to happen meanwhile, so there is nothing to wait for.
    time.sleep(15)
    assert zelvo.lines == shown, zelvo.lines
    lab.run("router", "ip", "link", "set", "port1", "up")
    lab.view(zelvo, link)
    assert lab.mapped() == {port}

    lab.namespaces("wireless")
    lab.plug(False)
    wait_until(lambda: lab.mapped(WIRELESS), 10, "a mapping to the wireless address")
    assert lab.mapped() == {port}
    lab.plug(True)
    lab.wait_until_mapped(host=WIRELESS)
    lab.wait_until_mapped(port)
    lab.view(zelvo, link)
    lab.quit(zelvo)
    assert not lab.journals()

    zelvo = lab.start_zelvo(lab.start_front())
    lab.link_of(zelvo)
    lab.run("router", "ip", "link", "set", "port1", "down")
    begun = time.monotonic()
    # The service's open connection is given up, a new one is not made, the router is silent.
    zelvo.quit(20)
    print(f"quit without a cable: {time.monotonic() - begun:.1f} s")


def lossy(lab):
    """Every fifth packet is lost between host and router: there is a link all the same."""
    whole_lab(lab)
    lab.namespaces("lossy")
    zelvo = lab.start_zelvo()
    row = r"^Port mapping: (Port Mapping Successful\.|Port Mapping Error:)$"
    tries = 1
    while zelvo.wait_for(row, 60).group(1) == "Port Mapping Error:":
        # It happens that the service's packets get lost again and again.
        tries += 1
        assert tries <= 3
        lab.press("Return")
    zelvo.wait_for(r"^Link: ")
    print(f"a link after {tries} tries")
    zelvo.quit(20)
    # The router may not have heard of the end. Then the next start tells it.
    assert lab.table_is_empty() or lab.journals()


def routers(lab):
    """Routers that do not answer, that refuse, and that stand behind another one."""
    lab.start_router(speaks="none")
    lab.start_internet()
    lab.start_host()
    zelvo = lab.start_zelvo(in_terminal=True)

    def fails(reason, within):
        zelvo.wait_for(r"^Port mapping: Applying Port Mapping\.\.\.$")
        zelvo.wait_for(f"^{reason}", within + 0.5)
        zelvo.wait_for(r"^Port mapping: Port Mapping Error:$")
        zelvo.wait_for(r"\[t\] Try Again   \[q\] Quit")

    fails("Your router did not answer", 10)
    zelvo.wait_for_any("^Port mapping: PCP: the router does not answer$")
    zelvo.wait_for_any("^Port mapping: NAT-PMP: the router does not answer$")
    zelvo.wait_for_any("^Port mapping: UPnP: no gateway answers the search$")

    lab.lose_router()
    # By the other protocols this daemon looks for a port that it may grant, for a long time.
    lab.start_router("deny 0-65535 0.0.0.0/0 0-65535", speaks="upnp")
    zelvo.say("t")
    fails("Your router answered, but", 10)

    lab.lose_router()
    for command in ("addr del 44.128.7.1/24 dev wan", "addr add 10.44.7.1/24 dev wan",
                    "route add 44.128.7.0/24 dev wan"):
        lab.run("router", "ip", *command.split())
    lab.run("internet", "ip", "route", "add", "10.44.7.0/24", "dev", "eth0")
    lab.start_router()
    zelvo.say("t")
    fails("Your router has no address on the internet", 5)

    lab.lose_router()
    # Some grant what is of no use.
    lab.start([os.path.join(lab.build, "zelvo-router"), "--address", "192.168.77.1", "--port",
               "5351", "--external", "10.44.7.1"], prefix=lab.within("router")).wait_for("Router: ")
    zelvo.say("t")
    zelvo.wait_for(r"^Port mapping: the router's own address 10\.44\.7\.1 is not a public one")
    zelvo.wait_for("^There is a second router")
    zelvo.wait_for("Port mapping: Port Mapping Successful")
    zelvo.wait_for("^Link: ")
    zelvo.say("q")
    assert zelvo.wait(5) == 0


def barred(lab):
    """The computer's own firewall lets nobody to the port that the router has opened."""
    whole_lab(lab)
    lab.run("host", "nft", "add table inet wall { chain in { type filter hook input priority 0; "
            "iifname eth0 tcp dport 5900 drop; }; }")
    zelvo = lab.start_zelvo(in_terminal=True)
    lab.link_of(zelvo)
    zelvo.wait_for(r"Nobody gets through .*port 5900 \(TCP\)", 15)
    lab.run("host", "nft", "delete table inet wall")
    zelvo.say("l")
    zelvo.wait_for("^Link: ")
    time.sleep(8)
    assert sum("Nobody gets through" in line for line in zelvo.lines) == 1, zelvo.lines
    lab.quit(zelvo)


def service(lab):
    """The service cannot be reached, spoils its answers, or is slow: the user may try again."""
    whole_lab(lab)
    front = lab.start_front()
    port = front.url.rsplit(":", 1)[1]
    lab.run("router", "nft", "add table inet cut { chain forward { type filter hook forward "
            f"priority -10; tcp dport {port} reject with tcp reset; }}; }}")
    zelvo = lab.start_zelvo(front)

    def fails(reason):
        zelvo.wait_for(r"^Port mapping: Applying Port Mapping\.\.\.$")
        zelvo.wait_for(reason)
        zelvo.wait_for(r"^Port mapping: Port Mapping Error:$")

    def try_again(way):
        front.say(way + "\n")
        lab.press("Return")

    fails("Failed to connect to .* Couldn.t connect to server")
    lab.run("router", "nft", "delete table inet cut")
    for way, reason in (("noise", "wrong version number"), ("garbage", "^"),
                        ("reset", "reset by peer")):
        try_again(way)
        fails(reason)
    try_again("slow 40")
    front.wait_for("create.php slow")
    front.say("pass\n")
    lab.link_of(zelvo, 55)
    lab.quit(zelvo)

    # Quitting does not wait for a link that is only being made.
    front.say("slow 40\n")
    zelvo = lab.start_zelvo(front)
    front.wait_for("create.php slow")
    lab.quit(zelvo)


SCENARIOS = (pcp, nat_pmp, upnp, killed, router_restarted, addresses, cable, lossy, routers,
             barred, service, sealed, line_cut, man_in_the_middle, second_nat, second_nat_browser)


def main():
    if sys.argv[1:] == ["--list"]:
        print("\n".join(scenario.__name__ for scenario in SCENARIOS))
        return
    build, name = os.path.abspath(sys.argv[1]), sys.argv[2]
    scenario = next(each for each in SCENARIOS if each.__name__ == name)
    others = ("xterm", "import", "setxkbmap", os.path.join(build, "zelvo-open"))
    leave_out_where_impossible(*others if scenario.__module__ != "__main__" else ())
    print(f"=== {name}: {scenario.__doc__.splitlines()[0]}", flush=True)
    # Whoever stops the test gets the machine back without its namespaces.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    begun = time.monotonic()
    with Lab(build) as lab:
        scenario(lab)
    print(f"{name}: {time.monotonic() - begun:.1f} s")


if __name__ == "__main__":
    main()
