#!/usr/bin/env python3
"""The sharing service under load, beside a web server that answers the same bytes without a thought.

usage: service_figures.py BUILD_FOLDER [LINKS]
"""

import json
import os
import secrets
import shutil
import socket
import sqlite3
import ssl
import statistics
import subprocess
import sys
import time

from measuring import finish, missed, resident_megabytes, show
from stage import Stage, enter_own_network, wait_until

SECONDS = 10
# Each of the 64 clients does what a thousand real ones do, so their budgets are off. Where strangers
# come from many addresses, budgets are as they are.
FREE = ("--requests-per-client", "0", "--creates-per-client", "0", "--creates-per-owner", "0")
FACTS = ("Anna's Computer", "annas-computer.local.", "5900", "203.0.113.77", "23456", "0011aabbccdd",
         "com.apple.keylayout.German", "vnc", '{"32":[65507,65362],"33":[65507,65364],"36":[65480],'
         '"62":[65481],"64":[65513,32],"originalKeys":[126,125,103,111,49],"osVersion":"12.4.0",'
         '"hotCorners":{"wvous-bl-corner":{"value":1,"modifiers":[]},"wvous-br-corner":{"value":4,'
         '"modifiers":[65505]},"wvous-tl-corner":{"value":2,"modifiers":[]},"wvous-tr-corner":{'
         '"value":12,"modifiers":[]}}}')


def fill(stage, count):
    """As many links as if they had been registered; their names go into a file."""
    stage.start_service().end()
    database = sqlite3.connect(stage.path("links.sqlite"))
    database.execute("PRAGMA synchronous = OFF")
    now = int(time.time())
    with open(stage.path("names"), "w", encoding="ascii") as names:
        def rows():
            for _ in range(count):
                name = secrets.token_bytes(16)
                names.write(name.hex())
                yield (name, secrets.token_bytes(32), 0, 1, now, *FACTS)
        database.executemany(f"INSERT INTO links VALUES (NULL{', ?' * 14})", rows())
    database.commit()
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    database.close()
    return os.path.getsize(stage.path("links.sqlite")) / max(count, 1)


def load(stage, port, kind, clients=64, seconds=SECONDS):
    said = subprocess.run([os.path.join(stage.build, "zelvo-bench-service"), str(port), kind,
                           str(clients), str(seconds), stage.path("names")], check=True,
                          capture_output=True, text=True)
    figures = json.loads(said.stdout)
    if figures["wrong"]:
        missed.append(f"{kind}: {figures['wrong']} wrong answers")
    return figures


def crowd(stage, port, kind, count):
    return stage.start([os.path.join(stage.build, "zelvo-bench-service"), str(port), kind,
                        str(count)], takes_input=True)


def start_nginx(stage, workers=2):
    """The bytes of a get's reply, from memory."""
    body = "x" * 1600
    config = stage.path("nginx.conf")
    with open(config, "w", encoding="utf-8") as file:
        file.write(f"""daemon off; master_process on; worker_processes {workers};
            pid {stage.path("nginx.pid")}; error_log /dev/null; worker_rlimit_nofile 20000;
            events {{ worker_connections 9000; }}
            http {{ access_log off; keepalive_requests 100000000; client_body_temp_path {stage.folder};
            proxy_temp_path {stage.folder}; fastcgi_temp_path {stage.folder};
            uwsgi_temp_path {stage.folder}; scgi_temp_path {stage.folder};
            server {{ listen 127.0.0.1:8444 ssl backlog=1024; ssl_protocols TLSv1.3;
            ssl_ecdh_curve X25519; ssl_conf_command Ciphersuites TLS_AES_128_GCM_SHA256;
            ssl_certificate {stage.path("service.pem")};
            ssl_certificate_key {stage.path("service.key")}; default_type text/xml;
            location / {{ error_page 405 =200 $uri; return 200 "{body}"; }} }} }}""")
    stage.start(["nginx", "-p", stage.folder, "-c", config])
    wait_until(lambda: socket.socket().connect_ex(("127.0.0.1", 8444)) == 0, 10, "nginx")
    return 8444


def show_rate(label, figures, least, beside=None):
    reached = figures["rate"] >= least
    print(f"{label:36} {figures['rate']:8.0f} /s       (at least {least} /s)  p50 {figures['p50']:.2f} "
          f"ms, p99 {figures['p99']:.2f} ms, max {figures['max']:.1f} ms"
          f"{f', nginx {beside:.0f} /s' if beside else ''}{'' if reached else '  MISSED'}", flush=True)
    if not reached:
        missed.append(label)


def time_of_gets(stage, port, count=60):
    """Milliseconds of each of some gets, over a connection of its own."""
    tls = ssl.create_default_context(cafile=stage.path("ca.pem"))
    request = (b"POST /app/4.8.1/sharing/get.php HTTP/1.1\r\nHost: x\r\nContent-Length: 6\r\n"
               b"Content-Type: application/x-www-form-urlencoded\r\nConnection: close\r\n\r\nlink=a")
    took = []
    for _ in range(count):
        begun = time.monotonic()
        with tls.wrap_socket(socket.create_connection(("127.0.0.1", port), 30),
                             server_hostname="127.0.0.1") as connection:
            connection.sendall(request)
            answer = b""
            while b"</plist>" not in answer:
                part = connection.recv(4096)
                assert part, answer
                answer += part
            assert b"<integer>5<" in answer
        took.append((time.monotonic() - begun) * 1000)
        time.sleep(0.1)
    return sorted(took)


def main():
    enter_own_network()
    links = int(sys.argv[2]) if len(sys.argv) > 2 else 1_000_000
    print(f"load of the machine before: {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores")
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        stage.make_certificate()
        show(f"size of each of {links} links", fill(stage, links), "bytes", 1200)
        begins = []
        for _ in range(5):
            begun = time.monotonic()
            service = stage.start_service(options=FREE)
            begins.append((time.monotonic() - begun) * 1000)
            service.end()
        show("start", statistics.median(begins), "ms", 200)

        nginx = start_nginx(stage) if shutil.which("nginx") else None
        beside = lambda kind: load(stage, nginx, kind)["rate"] if nginx else None
        service = stage.start_service(options=FREE)
        for label, kind, least in (("creates, kept alive", "create", 3000),
                                   ("gets, kept alive", "get", 8000),
                                   ("gets, a connection each", "fresh", 1500),
                                   ("gets, a session taken up each", "resumed", 1500)):
            figures = load(stage, service.port, kind)
            show_rate(label, figures, least, None if kind == "create" else beside(kind))
            if kind in ("create", "get"):
                show(f"{label}: p99", figures["p99"], "ms", 50)
        service.end()

        service = stage.start_service()
        idle = crowd(stage, service.port, "idle", 15000)
        opened = json.loads(idle.wait_for(r"^{.*}$", 55).group(0))
        show(f"memory at {opened['open']} idle connections",
             resident_megabytes(service.process.pid), "MB", 400)
        show("a get beside them: median", statistics.median(time_of_gets(stage, service.port, 10)),
             "ms", 100)
        if opened["open"] < 15000:
            missed.append("15000 idle connections")
        idle.end()

        silent = crowd(stage, service.port, "strangers", 5000)
        silent.wait_for("^{}$")
        took = time_of_gets(stage, service.port)
        show("a get beside 5000 strangers: median", statistics.median(took), "ms", 100)
        show("a get beside 5000 strangers: worst", took[-1], "ms", 100)
    print(f"load of the machine after: {os.getloadavg()[0]:.1f}")
    finish()


if __name__ == "__main__":
    main()
