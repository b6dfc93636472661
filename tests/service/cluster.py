#!/usr/bin/env python3
"""Two services on one PostgreSQL and two relays, behind HAProxy, all on this machine's loopback.

usage: cluster.py BUILD_FOLDER               runs it until Ctrl-C
       cluster.py BUILD_FOLDER test [KILLS]  kills what can be killed, and looks what is lost
"""

import http.client
import os
import signal
import socket
import ssl
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
for folder in ("support", "relay"):
    sys.path.insert(0, os.path.join(HERE, "..", folder))
from relay_test import ASK, Host, read_exactly  # noqa: E402
from service_test import FACTS, Caller  # noqa: E402
from stage import Stage, enter_own_network, skip_where_missing, wait_until  # noqa: E402

PORT = 8443
PROXY = """
defaults
    mode tcp
    timeout connect 2s
    timeout client 120s
    timeout server 120s
    option redispatch
    option httpchk GET /health
    default-server check inter 500ms fall 2 rise 1 send-proxy-v2 tcp-ut 5s
frontend services
    bind 127.0.0.1:{port}
    use_backend unwell if {{ nbsrv(well) eq 0 }}
    default_backend well
backend well
    balance leastconn
    server one 127.0.0.1:8441 port 9441
    server two 127.0.0.1:8442 port 9442
# Where none has its database, whoever is there says so to the client.
backend unwell
    option tcp-check
    server one 127.0.0.1:8441 check-send-proxy
    server two 127.0.0.1:8442 check-send-proxy
"""
RELAY = """
listen relay{number}
    bind 127.0.0.{number}:{port}
    timeout tunnel 25h
    server relay 127.0.0.1:{inner} port {operators}
"""


class Cluster:
    def __init__(self, stage, options=()):
        self.stage, self.options = stage, list(options)
        # Who holds nothing but the certificate finds the service and both relays by their addresses.
        stage.make_certificate("127.0.0.1,IP:127.0.0.2,IP:127.0.0.3")
        stage.make_signatures()
        self.tls = ssl.create_default_context(cafile=stage.path("ca.pem"))
        self.database = f"postgresql://zelvo@/postgres?host={stage.path('postgres')}"
        self.postgres = self.proxy = None
        self.services, self.relays = {}, {}

    def start_postgres(self, options=()):
        os.chmod(self.stage.folder, 0o711)
        self.postgres = self.stage.start([os.path.join(HERE, "..", "support", "postgres"),
                                          self.stage.path("postgres"), *options])
        self.postgres.wait_for("database system is ready", 60)

    def end_postgres(self):
        # Asked by SIGTERM it waits for the services to go.
        self.postgres.end(signal.SIGINT)

    def start_service(self, number, waits=True):
        path = self.stage.path
        service = self.stage.start(
            [os.path.join(self.stage.build, "zelvo-service"), "--database", self.database,
             "--certificate", path("service.pem"), "--key", path("service.key"),
             "--port", str(8440 + number), "--operators", f"127.0.0.1:{9440 + number}",
             "--proxies", "127.0.0.1", "--relay-key", path("tickets.key"), "--relays",
             ",".join(f"127.0.0.{relay}:{PORT}@127.0.0.{relay}" for relay in (2, 3)), *self.options])
        if waits:
            service.wait_for("^Service: ")
        self.services[number] = service

    def start_relay(self, number, settle=0):
        path = self.stage.path
        self.relays[number] = self.stage.start(
            [os.path.join(self.stage.build, "zelvo-relay"), "--name", f"127.0.0.{number}", "--port",
             str(8450 + number), "--operators", f"127.0.0.1:{9450 + number}", "--proxies", "127.0.0.1",
             "--certificate", path("service.pem"), "--key", path("service.key"), "--service-keys",
             path("tickets.pub"), "--lease-key", path("leases.key"), "--settle", str(settle)])
        self.relays[number].wait_for("^Relay: ")

    def start_proxy(self):
        config = self.stage.path("haproxy.cfg")
        with open(config, "w", encoding="utf-8") as file:
            file.write(PROXY.format(port=PORT) + "".join(
                RELAY.format(number=number, port=PORT, inner=8450 + number, operators=9450 + number)
                for number in (2, 3)))
        self.proxy = self.stage.start(["haproxy", "-db", "-f", config])
        wait_until(lambda: socket.socket().connect_ex(("127.0.0.1", PORT)) == 0, 10, "HAProxy")

    def start(self):
        self.start_postgres()
        for number in (1, 2):
            self.start_service(number)
        for number in (2, 3):
            self.start_relay(number)
        self.start_proxy()
        wait_until(self.is_well, 10, "a service behind HAProxy")
        return self

    def is_well(self):
        try:
            return Caller(self.stage, PORT).status("get.php", "link=a") == 5
        except (OSError, http.client.HTTPException):
            return False


class Owner(threading.Thread):
    """Creates, changes, ends and looks, one thing after the other, and knows what has to be there."""

    def __init__(self, stage, number):
        super().__init__(daemon=True)
        self.stage, self.number = stage, number
        self.caller = None
        # By link: its computer's name, None where it was ended. What broke off may be as before or after.
        self.known = {}
        self.answered = self.refused = self.broken = 0
        self.last = time.monotonic()
        self.longest = 0
        self.wrong = []
        self.stopping = threading.Event()

    def run(self):
        for turn in range(10**9):
            if self.stopping.is_set():
                return
            link = next(iter(self.known), None)
            expected = self.known.pop(link, None)
            try:
                self.caller = self.caller or Caller(self.stage, PORT)
                self.step(turn, link, expected)
            except (OSError, http.client.HTTPException):
                self.broken += 1
                self.caller_is_gone()
            except AssertionError as wrong:
                self.wrong.append(str(wrong))

    def caller_is_gone(self):
        cookie, self.caller = self.caller and self.caller.cookie, None
        time.sleep(0.05)
        fresh = Caller(self.stage, PORT)
        fresh.cookie = cookie
        self.caller = fresh

    def step(self, turn, link, expected):
        name = f"N{self.number}-{turn}"
        if link is None or turn % 4 == 0:
            if link:
                self.known[link] = expected
            status, reply = self.caller.ask("create.php", FACTS.format(name) + "&permanentSharedLink=")
            if self.judge(status, reply, 0):
                self.known[reply["link"]] = name
            return
        if turn % 4 == 1:
            form, wanted = FACTS.format(name) + f"&sharedLink={link}&availabilityStatus=0", name
            status, reply = self.caller.ask("update.php", form)
        elif turn % 4 == 2 and len(self.known) > 20:
            wanted = None
            status, reply = self.caller.ask("delete.php", "link=" + link)
        else:
            wanted = expected
            status, reply = self.caller.ask("get.php", "link=" + link)
            assert status == 503 or reply.get("ComputerName") == expected, (link, expected, reply)
        if self.judge(status, reply, 0 if expected else 5):
            self.known[link] = wanted if expected else None

    def judge(self, status, reply, code):
        """Whether it was done; else it was refused with the one code that there is for that."""
        if status == 503:
            assert reply["StatusCode"] == 6, reply
            self.refused += 1
            time.sleep(0.05)
            return False
        assert status == 200 and reply["StatusCode"] == code, (status, reply, code)
        self.answered += 1
        now = time.monotonic()
        self.longest, self.last = max(self.longest, now - self.last), now
        return True


class Crowd:
    """Owners at work; at the end everything that they were told has to be there."""

    def __init__(self, stage, count=6):
        self.stage = stage
        self.owners = [Owner(stage, number) for number in range(count)]

    def __enter__(self):
        for owner in self.owners:
            owner.last = time.monotonic()
            owner.start()
        return self

    def __exit__(self, kind, *_):
        for owner in self.owners:
            owner.stopping.set()
        for owner in self.owners:
            owner.join(30)
        if kind:
            return
        caller = Caller(self.stage, PORT)
        for owner in self.owners:
            assert not owner.wrong, owner.wrong[:3]
            for link, name in owner.known.items():
                reply = caller.ask("get.php", "link=" + link)[1]
                assert reply.get("ComputerName") == name, (link, name, reply)
        print(f"{self.total('answered')} answers, {self.total('refused')} refused with 503 and 6, "
              f"{self.total('broken')} connections broken, {sum(len(it.known) for it in self.owners)} "
              f"links looked at, longest without an answer {self.longest():.1f} s", flush=True)

    def total(self, what):
        return sum(getattr(owner, what) for owner in self.owners)

    def longest(self):
        return max(owner.longest for owner in self.owners)


class RelayEnd:
    """What the relay's test asks of a relay, of one behind HAProxy."""

    def __init__(self, cluster, number):
        self.cluster, self.address = cluster, f"127.0.0.{number}"

    def connect(self, text=b"", source="127.0.0.1"):
        line = socket.create_connection((self.address, PORT), 20, source_address=(source, 0))
        line = self.cluster.tls.wrap_socket(line, server_hostname=self.address)
        line.sendall(text)
        return line

    def ticket(self, _=""):
        reply = Caller(self.cluster.stage, PORT).ask("relay.php", f"Relay={self.address}:{PORT}")[1]
        assert reply["Relay"] == f"{self.address}:{PORT}", reply
        return reply["Ticket"]

    def viewer(self, number):
        return self.connect(ASK.format(number).encode())


def meet(host, relay):
    """A host's and a viewer's end of one channel."""
    viewer = relay.viewer(host.number)
    return host.take_next(), viewer


def say(pair, text):
    pair[0].sendall(text)
    assert read_exactly(pair[1], len(text)) == text


def come_back(relay, lease):
    """As hosts do: again and again, with the lease."""
    begun = time.monotonic()
    while time.monotonic() < begun + 10:
        try:
            host = Host(relay, lease)
            if host.status == 101:
                return host
        except (OSError, AssertionError, IndexError):
            pass
        time.sleep(0.3)
    raise AssertionError("a host did not come back within 10 s")


def kill_services(cluster, kills):
    print(f"one of two services killed {kills} times", flush=True)
    with Crowd(cluster.stage) as crowd:
        for number in range(kills):
            victim = number % 2 + 1
            before = crowd.total("answered")
            cluster.services[victim].end(signal.SIGKILL)
            cluster.start_service(victim)
            wait_until(lambda: crowd.total("answered") > before + 10, 10, "answers beside a kill")
    assert crowd.longest() < 10, crowd.longest()
    assert crowd.total("refused") == 0, "the other one had its database"


def kill_relay(cluster, hosts=20):
    print(f"one relay killed with {hosts} hosts on it, and as many on the other", flush=True)
    first, second = RelayEnd(cluster, 2), RelayEnd(cluster, 3)
    lost = [Host(first) for _ in range(hosts)]
    others = [Host(second) for _ in range(hosts)]
    assert all(host.status == 101 for host in lost + others)
    gone, stays = meet(lost[0], first), meet(others[0], second)
    for pair in (gone, stays):
        say(pair, b"before")
    with Crowd(cluster.stage, 2):
        cluster.relays[2].end(signal.SIGKILL)
        say(stays, b"after")
        gone[1].settimeout(5)
        try:
            assert not gone[1].recv(1)
        except ConnectionError:
            pass
        cluster.start_relay(2, settle=20)
        begun = time.monotonic()
        for host in lost:
            # Nobody else has got the number meanwhile.
            assert come_back(first, host.lease).number == host.number
        print(f"all back after {time.monotonic() - begun:.1f} s", flush=True)
        say(stays, b"at the end")
        for host in others[1:]:
            say(meet(host, second), b"here")


def take_database_away(cluster, seconds=20):
    print(f"PostgreSQL away for {seconds} s", flush=True)
    relay = RelayEnd(cluster, 3)
    host = Host(relay)
    pair = meet(host, relay)
    with Crowd(cluster.stage) as crowd:
        time.sleep(1)
        cluster.postgres.end(signal.SIGQUIT)
        time.sleep(2)
        before = crowd.total("answered"), crowd.total("refused")
        end = time.monotonic() + seconds - 2
        while time.monotonic() < end:
            say(pair, b"on")
            time.sleep(0.5)
        assert crowd.total("answered") == before[0], "answers without a database"
        assert crowd.total("refused") > before[1] + seconds, "no status that says so"
        cluster.start_postgres()
        begun = time.monotonic()
        wait_until(lambda: all(owner.last > begun for owner in crowd.owners), 10, "everybody's answers")
        print(f"everybody is answered after {time.monotonic() - begun:.1f} s", flush=True)
        time.sleep(1)
    assert Host(relay).status == 101


FREE = ("--creates-per-client", "0", "--creates-per-owner", "0", "--requests-per-client", "0")


def main():
    is_test = sys.argv[2:3] == ["test"]
    skip_where_missing("haproxy", "/usr/lib/postgresql/*/bin/postgres")
    if is_test:
        enter_own_network()
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        cluster = Cluster(stage, FREE if is_test else ()).start()
        if is_test:
            try:
                kill_services(cluster, int(sys.argv[3]) if len(sys.argv) > 3 else 300)
                kill_relay(cluster)
                take_database_away(cluster)
            finally:
                cluster.end_postgres()
            return
        print(f"Service: https://127.0.0.1:{PORT}\nRelays: 127.0.0.2:{PORT} 127.0.0.3:{PORT}\n"
              f"Authority: {stage.path('ca.pem')}\nDatabase: {cluster.database}", flush=True)
        signal.signal(signal.SIGTERM, signal.default_int_handler)
        try:
            signal.pause()
        except KeyboardInterrupt:
            cluster.end_postgres()


if __name__ == "__main__":
    main()
