#!/usr/bin/env python3
"""The road of one link where the router lets nobody in, with the real programs.

usage: relayed_test.py BUILD_FOLDER [KILLS, a multiple of three]
"""

import contextlib
import json
import os
import random
import signal
import socket
import socketserver
import ssl
import subprocess
import sys
import threading
import time

for room in ("support", "relay"):
    sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", room))
from relays import ASK  # noqa: E402
from stage import (VNC_PORT, Stage, enter_own_network, is_listening, processes_named, service_info,  # noqa: E402
                   wait_until, wait_until_off)


def doctor(stage, service, router):
    """What is found of each subject; nothing is left behind."""
    said = subprocess.run([os.path.join(stage.build, "zelvo"), "doctor", "--json"], timeout=30, check=False,
                          env=stage.environment(service.url, router), capture_output=True, text=True)
    assert not said.stderr and not any(os.path.exists(stage.path(name)) for name in ("config", "state", "data", "root"))
    return said.returncode, {found["subject"]: found["standing"] for found in json.loads(said.stdout)["findings"]}


class Proxy(socketserver.ThreadingTCPServer):
    """Passes connections on, as an office's proxy does, and keeps where they went."""
    daemon_threads = True

    def __init__(self):
        super().__init__(("127.0.0.1", 0), self.Tunnel)
        self.url = "http://127.0.0.1:%d" % self.server_address[1]
        self.led_to = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    class Tunnel(socketserver.StreamRequestHandler):
        def handle(self):
            place = self.rfile.readline().split()[1].decode()
            while self.rfile.readline().strip():
                pass
            # Where nobody listens, who asked is hung up on.
            with contextlib.suppress(ConnectionRefusedError):
                there = socket.create_connection(place.rsplit(":", 1))
                self.server.led_to.append(place)
                self.wfile.write(b"HTTP/1.1 200 OK\r\n\r\n")
                threading.Thread(target=pass_on, args=(there, self.connection), daemon=True).start()
                pass_on(self.connection, there)


def pass_on(here, there):
    with contextlib.suppress(OSError):
        while part := here.recv(65536):
            there.sendall(part)
    # The other side hears of the end also where this one was reset, as the kernel does with what nobody had read.
    with contextlib.suppress(OSError):
        there.shutdown(socket.SHUT_WR)


def relayed(stage):
    """Where the router is silent a relay is the way in, through a proxy, and the same one after its restart."""
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
    proxy = Proxy()
    env["HTTPS_PROXY"] = proxy.url
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
    zelvo.wait_for(f"Ana.* wants to see your screen, through a relay, which names the address {address}")
    # What is typed in the first second was meant for something else.
    time.sleep(1.2)
    zelvo.say("help\n")
    opener.wait_for("^State: controlling$")
    zelvo.wait_for(r"^Connection: Connection established\.$", 6)

    # The host's line, and the viewer's two.
    before = len(proxy.led_to)
    assert before >= 3, proxy.led_to
    # It dies with something unread. Of those who had a number before, none has to wait for one.
    relay.send(signal.SIGSTOP)
    stage.xdotool("mousemove", "300", "300")
    time.sleep(0.3)
    relay.end(signal.SIGKILL)
    opener.wait_for("^State: returning$")
    zelvo.wait_for("Ana.* has lost the connection and may come back unasked within a minute")
    # However long it was away, it is found soon.
    time.sleep(20)
    stage.start_relay(address, int(relay.place.rsplit(":", 1)[1]), settle=600)
    opener.wait_for("^State: controlling$", 11)
    assert service_info(service.url, stage.path("ca.pem"), identifier) == facts
    zelvo.say("disconnect\n")
    opener.wait_for("^State: ended disconnected$")
    assert len(proxy.led_to) >= before + 3 and set(proxy.led_to) == {relay.place}, proxy.led_to
    zelvo.quit(5)
    wait_until_off(5)


PROGRAMS = ("zelvo-relay", "zelvo-service", "zelvo", "screensharingd")


def files(stage):
    return {os.path.join(os.path.relpath(folder, stage.folder), name)
            for folder, _, names in os.walk(stage.folder) for name in names}


def kills(stage, count):
    """Relay, service and host are killed in turn, at any moment: the next start works, by the same link, and nothing
    is left behind."""
    stage.start_display()
    stage.make_certificate()
    stage.make_signatures()
    ports = {}
    started = {}

    def start_relay():
        relay = stage.start_relay("127.0.0.1", ports.get("relay", 0))
        ports["relay"] = int(relay.place.rsplit(":", 1)[1])
        return relay

    def start_service():
        service = stage.start_service(ports.get("service", 0), options=[
            "--relays", f"127.0.0.1:{ports['relay']}@127.0.0.1", "--relay-key", stage.path("tickets.key")])
        ports["service"] = service.port
        return service

    def start_host():
        # Nobody is there who could map a port.
        return stage.start([os.path.join(stage.build, "zelvo"), "--ask-in-terminal", "--print-link"],
                           stage.environment(started["service"].url, "127.0.0.1:9"), takes_input=True)

    starts = {"relay": start_relay, "service": start_service, "host": start_host}
    for name, start in starts.items():
        started[name] = start()

    tls = ssl.create_default_context(cafile=stage.path("ca.pem"))

    def answers(number):
        with contextlib.suppress(OSError), \
                tls.wrap_socket(socket.create_connection(("127.0.0.1", ports["relay"]), 5),
                                server_hostname="127.0.0.1") as viewer:
            viewer.sendall(ASK.format(number).encode())
            return viewer.recv(13) == b"HTTP/1.1 101 "
        return False

    def works():
        """The link leads to the host."""
        host = started["host"]
        while not (link := host.wait_for(r"^Link: zelvo://(\S+)$|^Port mapping: .* Error:$", 40).group(1)):
            # The service died while it was asked, and the user is told.
            stage.press("Return")
        wait_until(lambda: answers(service_info(started["service"].url, stage.path("ca.pem"), link).get("Port")), 20,
                   "the host, through the relay")
        return link

    first = works()
    known = files(stage)
    for number in range(count):
        name = list(starts)[number % 3]
        if name != "host" or number % 2:
            # Else amid what the last death has begun.
            time.sleep(random.uniform(0, 1))
        started[name].end(signal.SIGKILL)
        if name == "host":
            wait_until_off(5)
        stage.programs.remove(started[name])
        started[name] = starts[name]()
        # Each of them after a start of the host.
        if number % 21 == 20 or number == count - 1:
            assert works() == first
    started["host"].quit(10)
    wait_until_off(5)
    for name in ("service", "relay"):
        started[name].quit(10)
    wait_until(lambda: not any(processes_named(name) for name in PROGRAMS), 5, "no process")
    assert not any(map(is_listening, (VNC_PORT, *ports.values())))
    assert files(stage) <= known, files(stage) - known


def main():
    enter_own_network()
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        if len(sys.argv) > 2:
            kills(stage, int(sys.argv[2]))
        else:
            relayed(stage)
    print("The road is clear.")


if __name__ == "__main__":
    main()
