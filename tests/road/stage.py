"""Starts the real programs on one machine, in a network of their own, and watches what they print."""

import os
import plistlib
import re
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import urllib.request

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SKIPPED = 77


def enter_own_network():
    """Goes on in a network namespace that has nothing but loopback, so that every port is free."""
    if os.environ.get("ZELVO_OWN_NETWORK") == "1":
        return
    possible = subprocess.run(["unshare", "-n", "true"], capture_output=True, check=False)
    if possible.returncode != 0:
        print("SKIPPED: no right to make a network namespace")
        sys.exit(SKIPPED)
    os.environ["ZELVO_OWN_NETWORK"] = "1"
    command = 'ip link set lo up && exec "$@"'
    os.execvp("unshare", ["unshare", "-n", "sh", "-c", command, "sh", sys.executable, *sys.argv])


class Program:
    """A child in a session of its own, whose output is read line by line."""

    def __init__(self, command, env=None, log=None, prefix=()):
        self.name = os.path.basename(command[0])
        self.lines = []
        self._seen = 0
        self._ended = False
        self._news = threading.Condition()
        self.process = subprocess.Popen(
            [*prefix, *command], env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=log or sys.stderr, text=True, start_new_session=True)
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            print(f"{self.name}: {line}", end="", flush=True)
            with self._news:
                self.lines.append(line.rstrip("\n"))
                self._news.notify()
        with self._news:
            self._ended = True
            self._news.notify()

    def wait_for(self, pattern, seconds=20):
        """The first line, after those already waited for, that matches; fails loudly otherwise."""
        end = time.monotonic() + seconds
        with self._news:
            while True:
                while self._seen < len(self.lines):
                    match = re.search(pattern, self.lines[self._seen])
                    self._seen += 1
                    if match:
                        return match
                left = end - time.monotonic()
                if self._ended or left <= 0:
                    raise AssertionError(
                        f"{self.name} never printed {pattern!r}; it printed {self.lines!r}")
                self._news.wait(left)

    def row(self, label):
        """What the row shows now; it has then been waited for."""
        with self._news:
            self._seen = len(self.lines)
            shown = [line for line in self.lines if line.startswith(label + ": ")]
            return shown[-1][len(label) + 2:] if shown else None

    def send(self, number):
        self.process.send_signal(number)

    def wait(self, seconds):
        return self.process.wait(timeout=seconds)

    def end(self, number=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(number)
            try:
                self.process.wait(timeout=15)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


class Stage:
    """Folder, display, certificate, service and router; what was started ends with it."""

    def __init__(self, build):
        self.build = build
        self.folder = tempfile.mkdtemp(prefix="zelvo-road-")
        self.log = open(os.path.join(self.folder, "log.txt"), "w", encoding="utf-8")
        self.programs = []
        self.display = None

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        for program in reversed(self.programs):
            program.end()
        self.log.close()
        if kind:
            with open(os.path.join(self.folder, "log.txt"), encoding="utf-8") as log:
                print("--- log ---\n" + log.read()[-8000:])
        shutil.rmtree(self.folder, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def start(self, command, env=None, prefix=()):
        """The prefix is a program that becomes the command."""
        program = Program(command, env or dict(os.environ), self.log, prefix)
        self.programs.append(program)
        return program

    def start_display(self):
        server = self.start(["Xvfb", "-displayfd", "1", "-screen", "0", "1024x768x24", "-nolisten",
                             "tcp", "-noreset"])
        self.display = ":" + server.wait_for(r"^\d+$").group(0)

    def make_certificate(self):
        run = lambda *words: subprocess.run(["openssl", *words], check=True, capture_output=True,
                                            cwd=self.folder)
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
        run("req", "-x509", *key, "-subj", "/CN=Test authority", "-addext",
            "basicConstraints=critical,CA:TRUE", "-keyout", "ca.key", "-out", "ca.pem")
        run("req", *key, "-subj", "/CN=127.0.0.1", "-keyout", "service.key", "-out", "service.csr")
        with open(self.path("names"), "w", encoding="utf-8") as names:
            names.write("subjectAltName=IP:127.0.0.1")
        run("x509", "-req", "-in", "service.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
            "-CAcreateserial", "-extfile", "names", "-out", "service.pem")

    def start_service(self, port=0):
        service = self.start([os.path.join(self.build, "zelvo-service"), "--database",
                              self.path("links.sqlite"), "--certificate", self.path("service.pem"),
                              "--key", self.path("service.key"), "--port", str(port)])
        service.url = service.wait_for(r"^Service: (https://\S+)$").group(1)
        service.port = int(service.url.rsplit(":", 1)[1])
        return service

    def start_router(self, port=0):
        router = self.start([os.path.join(self.build, "zelvo-router"), "--port", str(port)])
        router.port = int(router.wait_for(r"^Router: 127\.0\.0\.1:(\d+)$").group(1))
        return router

    def environment(self, service_port, router_port):
        env = dict(os.environ)
        env.pop("WAYLAND_DISPLAY", None)
        env.update({
            "DISPLAY": self.display,
            "ZELVO_SERVICE": f"https://127.0.0.1:{service_port}",
            "ZELVO_ROUTER": f"127.0.0.1:{router_port}",
            "ZELVO_AUTHORIZATION": "self",
            "ZELVO_ROOT": self.path("root"),
            "SSL_CERT_FILE": self.path("ca.pem"),
            "XDG_CONFIG_HOME": self.path("config"),
            "XDG_DATA_HOME": self.path("data"),
            "XDG_STATE_HOME": self.path("state"),
            "LC_ALL": "C.UTF-8",
        })
        return env

    def start_application(self, service_port, router_port):
        return self.start([os.path.join(self.build, "zelvo")],
                          self.environment(service_port, router_port))

    def press_in_sheet(self, key):
        """A key for the sheet on the window, once it is up."""
        env = dict(os.environ, DISPLAY=self.display)

        def windows():
            return subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "."], env=env,
                                  capture_output=True, text=True, check=False).stdout.split()
        wait_until(lambda: len(windows()) > 1, 10, "a sheet")
        # Nobody manages windows here, so the focus has to be given.
        subprocess.run(["xdotool", "windowfocus", "--sync", windows()[-1], "key", key], env=env,
                       check=True, capture_output=True, timeout=10)


def service_info(url, authority, link):
    """What the service answers to a viewer that asks for the link."""
    context = ssl.create_default_context(cafile=authority)
    request = urllib.request.Request(url + "/app/4.8.1/sharing/get.php",
                                     data=urllib.parse.urlencode({"link": link}).encode())
    with urllib.request.urlopen(request, context=context, timeout=10) as reply:
        return plistlib.loads(reply.read())


def connect_viewer(address, port):
    """A connection as a viewer makes it, and the server's greeting (RFC 6143, section 7.1.1)."""
    viewer = socket.create_connection((address, port), timeout=10)
    greeting = b""
    while len(greeting) < 12:
        part = viewer.recv(12 - len(greeting))
        if not part:
            break
        greeting += part
    return viewer, greeting


def is_listening(port):
    sockets = subprocess.run(["ss", "-Hltn", f"sport = :{port}"], capture_output=True, text=True,
                             check=True).stdout
    return bool(sockets.strip())


def processes_named(name):
    """The processes of that name in this network namespace, so that others' do not count."""
    found = []
    mine = os.readlink("/proc/self/ns/net")
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/comm", encoding="utf-8") as comm:
                if comm.read().strip() == name and os.readlink(f"/proc/{pid}/ns/net") == mine:
                    found.append(int(pid))
        except OSError:
            continue
    return found


def wait_until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {seconds} s")
        time.sleep(0.02)
