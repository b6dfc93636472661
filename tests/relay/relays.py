"""A relay, the service that sends hosts to it, and hosts and viewers of the test's own."""

import base64
import contextlib
import os
import plistlib
import socket
import ssl
import subprocess
import urllib.request

FOLDER = "/app/4.8.1/sharing/"
KEY = base64.b64encode(bytes(range(16))).decode()
ASK = ("GET /{} HTTP/1.1\r\nHost: r\r\nOrigin: https://x\r\nCookie: secret\r\nConnection: keep-alive, Upgrade\r\n"
       f"Upgrade: websocket\r\nSec-WebSocket-Key: {KEY}\r\nSec-WebSocket-Version: 13\r\n"
       "Sec-WebSocket-Protocol: other, zelvo.1\r\n\r\n")
HEARD = ("GET / HTTP/1.1\r\nHost: zelvo\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
         f"Sec-WebSocket-Key: {KEY}\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: zelvo.1\r\n\r\n").encode()
UPGRADE = "Host: r\r\nConnection: Upgrade\r\nUpgrade: zelvo-relay.1\r\n"


class Relays:
    """A service, and a relay to which it sends hosts."""

    def __init__(self, stage, service_options=(), name="relay.test"):
        self.stage = stage
        stage.make_certificate()
        self.make_key("service-sign")
        self.make_key("lease")
        self.name = name
        self.tls = ssl.create_default_context(cafile=stage.path("ca.pem"))
        self.service = stage.start_service(options=["--relays", name + "@127.0.0.1", "--relay-key",
                                                    stage.path("service-sign.key"), *service_options])
        self.relay = None
        self.port = 0

    def make_key(self, name):
        path = self.stage.path(name)
        for words in (["genpkey", "-algorithm", "ed25519", "-out", path + ".key"],
                      ["pkey", "-in", path + ".key", "-pubout", "-out", path + ".pub"]):
            subprocess.run(["openssl", *words], check=True, capture_output=True)

    def start(self, *options):
        path = self.stage.path
        self.relay = self.stage.start([os.path.join(self.stage.build, "zelvo-relay"), "--name", self.name,
                                       "--certificate", path("service.pem"), "--key", path("service.key"),
                                       "--service-keys", path("service-sign.pub"), "--lease-key",
                                       path("lease.key"), "--port", str(self.port), *options])
        self.port = int(self.relay.wait_for(r"^Relay: 127\.0\.0\.1:(\d+)$").group(1))

    def post(self, endpoint, form, cookie=""):
        request = urllib.request.Request(self.service.url + FOLDER + endpoint, form.encode(),
                                         {"Content-Type": "application/x-www-form-urlencoded",
                                          "Cookie": "owner=" + cookie})
        with urllib.request.urlopen(request, context=self.tls) as answer:
            return plistlib.loads(answer.read())

    def ticket(self, cookie=""):
        return self.post("relay.php", "Relay=", cookie)["Ticket"]

    def connect(self, text=b"", source="127.0.0.1"):
        line = socket.create_connection(("127.0.0.1", self.port), 20, source_address=(source, 0))
        line = self.tls.wrap_socket(line, server_hostname="127.0.0.1")
        line.sendall(text)
        return line

    def status(self, text, source="127.0.0.1"):
        """What is answered to a request that is refused, and that nothing follows."""
        with self.connect(text.encode(), source) as line:
            head = read_all(line)
        return int(head.split()[1]) if head else 0

    def viewer(self, number, source="127.0.0.1", more=b""):
        return self.connect(ASK.format(number).encode() + more, source)


def read_all(line):
    got = b""
    with contextlib.suppress(ConnectionError):
        while part := line.recv(65536):
            got += part
    return got


def send_all(line, data):
    with contextlib.suppress(OSError):
        line.sendall(data)


def read_until(line, end):
    got = b""
    while not got.endswith(end):
        part = line.recv(1)
        assert part, got
        got += part
    return got


def read_exactly(line, count):
    got = bytearray()
    while len(got) < count:
        part = line.recv(min(65536, count - len(got)))
        assert part, len(got)
        got += part
    return bytes(got)


class Host:
    """A computer that shares, as far as the relay has to do with it."""

    def __init__(self, relays, lease="", source="127.0.0.1", cookie="", ticket=None):
        self.relays = relays
        ticket = ticket or relays.ticket(cookie)
        self.line = relays.connect((f"GET /host HTTP/1.1\r\n{UPGRADE}Zelvo-Ticket: {ticket}\r\n" +
                                    (f"Zelvo-Lease: {lease}\r\n" if lease else "") + "\r\n").encode(), source)
        head = read_until(self.line, b"\r\n\r\n").decode()
        self.status = int(head.split()[1])
        fields = dict(row.split(": ") for row in head.split("\r\n")[1:] if row)
        self.number = int(fields.get("Zelvo-Number", 0))
        self.lease = fields.get("Zelvo-Lease")
        self.retry_after = fields.get("Retry-After")

    def call(self):
        """The token and the address of who wants in."""
        word, token, address = read_until(self.line, b"\n").decode().split()
        assert word == "viewer"
        return token, address

    def take(self, token):
        line = self.relays.connect(f"GET /viewer HTTP/1.1\r\n{UPGRADE}Zelvo-Token: {token}\r\n\r\n".encode())
        assert read_until(line, b"\r\n\r\n").startswith(b"HTTP/1.1 101 ")
        return line

    def take_next(self):
        line = self.take(self.call()[0])
        assert read_exactly(line, len(HEARD)) == HEARD
        return line
