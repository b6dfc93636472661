#!/usr/bin/env python3
"""The road of one link where the router lets nobody in, with the real programs.

usage: relayed_test.py BUILD_FOLDER
"""

import json
import os
import signal
import socket
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from stage import Stage, enter_own_network, service_info, wait_until_off  # noqa: E402


def doctor(stage, service, router):
    """What is found of each subject; nothing is left behind."""
    said = subprocess.run([os.path.join(stage.build, "zelvo"), "doctor", "--json"], timeout=30, check=False,
                          env=stage.environment(service.url, router), capture_output=True, text=True)
    assert not said.stderr and not any(os.path.exists(stage.path(name)) for name in ("config", "state", "data", "root"))
    return said.returncode, {found["subject"]: found["standing"] for found in json.loads(said.stdout)["findings"]}


def relayed(stage):
    """Where the router is silent a relay is the way in, and the same one after its restart."""
    address = "192.0.2.9"
    subprocess.run(["ip", "address", "add", address + "/32", "dev", "lo"], check=True)
    stage.start_display()
    stage.make_certificate(f"127.0.0.1,IP:{address}")
    stage.make_signatures()
    relay = stage.start_relay(address)
    service = stage.start_service(options=["--relays", f"{relay.place}@{address}", "--relay-key",
                                           stage.path("tickets.key")])
    # Somebody is there who never answers.
    router = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    router.bind(("127.0.0.1", 0))
    env = stage.environment(service.url, f"127.0.0.1:{router.getsockname()[1]}")
    status, found = doctor(stage, service, env["ZELVO_ROUTER"])
    assert found.pop("clock") != "unknown" and status == 0
    assert found == {"session": "works", "server": "works", "router": "limits", "certificates": "limits",
                     "service": "works", "relay": "works"}, found
    other = stage.start_router()
    status, found = doctor(stage, service, other.place)
    assert status == 0 and found["router"] == found["second-router"] == "works", found
    assert len(other.lines) == 1, other.lines
    other.quit(5)
    begun = time.monotonic()
    zelvo = stage.start([os.path.join(stage.build, "zelvo"), "--ask-in-terminal", "--print-link"],
                        env, takes_input=True)
    link = zelvo.wait_for(r"^Link: (\S+)$").group(1)
    print(f"a link after {time.monotonic() - begun:.1f} s")
    identifier = link[len("zelvo://"):]
    facts = service_info(service.url, stage.path("ca.pem"), identifier)
    assert facts["IPAddress"] == address and facts["Relay"] == relay.place, facts

    shown = subprocess.run([os.path.join(stage.build, "zelvo-open"), "--print-facts", "-"], env=env, text=True,
                           input=link + "\n", capture_output=True, check=True).stdout
    assert f"\nRelay: {relay.place}\n" in shown, shown
    opener = stage.start([os.path.join(stage.build, "zelvo-open"), "--say", "--once", "--name",
                          "Ana", "-"], env, takes_input=True)
    opener.process.stdin.write(link + "\n")
    opener.process.stdin.close()
    zelvo.wait_for(f"Ana.* wants to see your screen, from the address {address}")
    # What is typed in the first second was meant for something else.
    time.sleep(1.2)
    zelvo.say("help\n")
    opener.wait_for("^State: controlling$")
    zelvo.wait_for(r"^Connection: Connection established\.$", 6)

    # Of those who had one before, none has to wait for a number.
    relay.end(signal.SIGKILL)
    opener.wait_for("^State: returning$")
    stage.start_relay(address, int(relay.place.rsplit(":", 1)[1]), settle=600)
    opener.wait_for("^State: controlling$", 30)
    assert service_info(service.url, stage.path("ca.pem"), identifier) == facts
    zelvo.say("disconnect\n")
    opener.wait_for("^State: ended disconnected$")
    zelvo.quit(5)
    wait_until_off(5)


def main():
    enter_own_network()
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        relayed(stage)
    print("The road is clear.")


if __name__ == "__main__":
    main()
