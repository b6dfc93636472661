#!/usr/bin/env python3
"""Kills what can be killed of several services and relays, and looks what is lost.

usage: cluster_test.py BUILD_FOLDER [KILLS]
"""

import http.client
import os
import signal
import socket
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor

HERE = os.path.dirname(os.path.abspath(__file__))
for folder in ("tests/support", "tests/relay", "tools"):
    sys.path.insert(0, os.path.join(HERE, "..", "..", folder))
from cluster import PORT, Cluster  # noqa: E402
from relays import ASK, Host, read_exactly  # noqa: E402
from service_test import FACTS, Caller  # noqa: E402
from stage import Stage, enter_own_network, wait_until  # noqa: E402

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
        self.longest = self.slowest = 0
        self.wrong = []
        self.stopping = threading.Event()

    def run(self):
        for turn in range(10**9):
            if self.stopping.is_set():
                return
            link = next(iter(self.known), None)
            expected = self.known.pop(link, None)
            begun = time.monotonic()
            try:
                self.caller = self.caller or Caller(self.stage, PORT)
                self.step(turn, link, expected)
                self.slowest = max(self.slowest, time.monotonic() - begun)
            except (OSError, http.client.HTTPException):
                self.broken += 1
                self.caller_is_gone()
            # Also what is no reply at all: nobody would hear of a thread that it ends.
            except Exception as wrong:
                self.wrong.append(repr(wrong))

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
        assert not any(owner.is_alive() for owner in self.owners)
        caller = Caller(self.stage, PORT)
        for owner in self.owners:
            assert not owner.wrong, owner.wrong[:3]
            for link, name in owner.known.items():
                reply = caller.ask("get.php", "link=" + link)[1]
                assert reply.get("ComputerName") == name, (link, name, reply)
        print(f"{self.total('answered')} answers, {self.total('refused')} refused with 503 and 6, "
              f"{self.total('broken')} connections broken, {sum(len(it.known) for it in self.owners)} "
              f"links looked at, longest without an answer {self.longest():.1f} s, slowest reply "
              f"{max(owner.slowest for owner in self.owners):.1f} s", flush=True)

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
    """As hosts do, with the lease, and sooner."""
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
        assert max(owner.slowest for owner in crowd.owners) < 7, "a refusal that let somebody wait"
        cluster.start_postgres()
        begun = time.monotonic()
        wait_until(lambda: all(owner.last > begun for owner in crowd.owners), 10, "everybody's answers")
        print(f"everybody is answered after {time.monotonic() - begun:.1f} s", flush=True)
        time.sleep(1)
    assert Host(relay).status == 101


HOLD = """CREATE FUNCTION hold() RETURNS trigger LANGUAGE plpgsql AS $$BEGIN PERFORM pg_sleep(60); RETURN NULL; END$$;
CREATE CONSTRAINT TRIGGER hold AFTER INSERT ON links DEFERRABLE INITIALLY DEFERRED FOR EACH ROW
WHEN (NEW.ComputerName = 'Held') EXECUTE FUNCTION hold()"""


def cut_a_commit_off(cluster):
    print("PostgreSQL dies with a commit on its way, and gives the transaction's number out again", flush=True)
    psql = lambda sql: subprocess.run(["psql", "-h", cluster.stage.path("postgres"), "-U", "zelvo", "-Atc", sql,
                                       "postgres"], check=True, capture_output=True, text=True).stdout
    psql(HOLD)
    cluster.end_postgres()
    # What is lost in a crash is what nobody has flushed.
    cluster.start_postgres(("-c", "wal_writer_delay=10s"))
    cluster.options += ["--database-connections", "2"]
    cluster.start_service(4)
    create = lambda name: Caller(cluster.stage, 8444, "127.0.0.9").ask(
        "create.php", FACTS.format(name) + "&permanentSharedLink=")[0]
    with ThreadPoolExecutor() as pool:
        held = pool.submit(create, "Held")
        wait_until(lambda: psql("SELECT 1 FROM pg_stat_activity WHERE wait_event = 'PgSleep'"), 10, "a commit")
        cluster.postgres.end(signal.SIGQUIT)
        begun = time.monotonic()
        assert create("B") == 503 and time.monotonic() < begun + 2, "who is in no doubt has waited"
        cluster.start_postgres()
        psql("DO $$ BEGIN FOR i IN 1..50 LOOP PERFORM pg_current_xact_id(); COMMIT; END LOOP; END $$")
        assert held.result() == 503


FREE = ("--creates-per-client", "0", "--creates-per-owner", "0", "--requests-per-client", "0")


def main():
    enter_own_network()
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        cluster = Cluster(stage, FREE)
        try:
            cluster.start()
            kill_services(cluster, int(sys.argv[2]) if len(sys.argv) > 2 else 300)
            kill_relay(cluster)
            take_database_away(cluster)
            cut_a_commit_off(cluster)
        finally:
            cluster.end_postgres()


if __name__ == "__main__":
    main()
