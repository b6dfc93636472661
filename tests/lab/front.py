#!/usr/bin/env python3
"""Stands before the sharing service and spoils its answers in the way that standard input says.

usage: front.py ADDRESS UPSTREAM AUTHORITY CERTIFICATE KEY

The ways: pass; slow SECONDS; reset; garbage; noise (not even TLS); elsewhere ADDRESS PORT (in place of
the computer's own, also of one that the service has forgotten since).
"""

import http.server
import os
import plistlib
import socket
import ssl
import struct
import sys
import threading
import time
import urllib.request

way = ["pass"]
heard = {}


def read_ways():
    for line in sys.stdin:
        way[:] = line.split()


class Front(http.server.BaseHTTPRequestHandler):
    # Connections stay open, as those of most services do.
    protocol_version = "HTTP/1.1"

    def setup(self):
        if way[0] == "noise":
            # What is left unread would make the end a reset, before the noise has been read.
            self.request.settimeout(5)
            self.request.recv(16384)
            self.request.sendall(b"noise" + os.urandom(507))
            self.request.shutdown(socket.SHUT_WR)
            while self.request.recv(16384):
                pass
            raise ConnectionAbortedError
        self.request.settimeout(120)
        self.request = self.server.known.wrap_socket(self.request, server_side=True)
        super().setup()

    def do_POST(self):  # pylint: disable=invalid-name
        body = self.rfile.read(int(self.headers["Content-Length"]))
        print(f"Front: {os.path.basename(self.path)} {' '.join(way)}", flush=True)
        if way[0] == "reset":
            self.request.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            # Whoever still holds the socket's files would keep a mere close from happening.
            os.close(self.request.detach())
            return
        if way[0] == "slow":
            time.sleep(float(way[1]))
        answer = os.urandom(4096)
        if way[0] == "elsewhere" and body in heard:
            answer = heard[body]
        elif way[0] != "garbage":
            request = urllib.request.Request(self.server.upstream + self.path, body)
            with urllib.request.urlopen(request, context=self.server.trust) as reply:
                heard[body] = answer = reply.read()
        if way[0] == "elsewhere":
            answer = plistlib.dumps({**plistlib.loads(answer), "IPAddress": way[1],
                                     "Port": int(way[2])})
        self.send_response(200)
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    def handle_error(self, *_):
        # A client that does not take what it gets is what this is for.
        pass


def main():
    address, upstream, authority, *pair = sys.argv[1:]
    server = Server((address, 0), Front)
    server.upstream = upstream
    server.trust = ssl.create_default_context(cafile=authority)
    server.known = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    server.known.load_cert_chain(*pair)
    threading.Thread(target=read_ways, daemon=True).start()
    print(f"Service: https://{address}:{server.server_address[1]}", flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
