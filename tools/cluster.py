#!/usr/bin/env python3
"""Two services on one PostgreSQL and two relays, behind HAProxy, on this machine's loopback, until Ctrl-C.

usage: cluster.py BUILD_FOLDER
"""

import http.client
import os
import signal
import socket
import ssl
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = os.path.join(HERE, "..", "tests")
for folder in ("support", "service"):
    sys.path.insert(0, os.path.join(TESTS, folder))
from service_test import Caller  # noqa: E402
from stage import Stage, skip_where_missing, wait_until  # noqa: E402

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
    """What is needed for it skips a test that starts one, where it is missing."""

    def __init__(self, stage, options=()):
        skip_where_missing("haproxy", "/usr/lib/postgresql/*/bin/postgres")
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
        self.postgres = self.stage.start([os.path.join(TESTS, "support", "postgres"),
                                          self.stage.path("postgres"), *options])
        self.postgres.wait_for("database system is ready", 60)

    def end_postgres(self):
        # Asked by SIGTERM it waits for the services to go.
        if self.postgres:
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


def main():
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        signal.signal(signal.SIGTERM, signal.default_int_handler)
        cluster = Cluster(stage)
        try:
            cluster.start()
            print(f"Service: https://127.0.0.1:{PORT}\nRelays: 127.0.0.2:{PORT} 127.0.0.3:{PORT}\n"
                  f"Authority: {stage.path('ca.pem')}\nDatabase: {cluster.database}", flush=True)
            signal.pause()
        except KeyboardInterrupt:
            cluster.end_postgres()


if __name__ == "__main__":
    main()
