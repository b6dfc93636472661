"""Starts the real programs on one machine, in a network of their own, and watches what they print."""

import glob
import os
import plistlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SKIPPED = 77
VNC_PORT = 5900
# A viewer's version, no security, and that others may stay (RFC 6143, sections 7.1.1, 7.1.2, 7.3.1).
GREETING = b"RFB 003.008\n\1\1"


def skip_where_missing(*programs, reason=""):
    """Ends a test that cannot be where these programs, or files, are missing, or for that reason."""
    missing = [name for name in programs if not shutil.which(name) and not glob.glob(name)]
    if missing or reason:
        print("SKIPPED: " + (reason or "missing: " + " ".join(missing)))
        sys.exit(SKIPPED)


def enter_own_network():
    """Goes on in a network namespace that has nothing but loopback, so that every port is free. The namespace of
    processes ends with the test, also with one that is killed, and takes along what programs have started
    in turn, such as a browser's many processes."""
    if os.environ.get("ZELVO_OWN_NETWORK") == "1":
        return
    own = ["unshare", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
    possible = subprocess.run([*own, "true"], capture_output=True, check=False)
    if possible.returncode != 0:
        skip_where_missing(reason="no right to make a network namespace")
    os.environ["ZELVO_OWN_NETWORK"] = "1"
    # The shell stays, since the first process of a namespace has to clear orphans away.
    command = 'ip link set lo up && "$@"; exit $?'
    os.execvp(own[0], [*own, "sh", "-c", command, "sh", sys.executable, *sys.argv])


def own_environment():
    """What is left of the machine's own display, proxies and message bus: no bus is there, and none is
    to be started."""
    env = {name: value for name, value in os.environ.items()
           if not name.lower().endswith("_proxy") and name not in ("DISPLAY", "WAYLAND_DISPLAY")}
    return {**env, "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent", "LC_ALL": "C.UTF-8"}


class Program:
    """A child in a session of its own, whose output is read line by line."""

    def __init__(self, command, env=None, log=None, prefix=(), takes_input=False):
        self.name = os.path.basename(command[0])
        self.lines = []
        self._seen = 0
        self._ended = False
        self._news = threading.Condition()
        self.process = subprocess.Popen(
            [*prefix, *command], env=env, stdin=subprocess.PIPE if takes_input else
            subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log or sys.stderr, text=True,
            errors="replace", start_new_session=True)
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            print(f"{self.name}: {line}", end="", flush=True)
            with self._news:
                self.lines.append(line.rstrip("\n"))
                self._news.notify_all()
        with self._news:
            self._ended = True
            self._news.notify_all()

    def wait_for(self, pattern, seconds=20):
        """The first line, after those already waited for, that matches; fails loudly otherwise."""
        at, match = self._find(pattern, self._seen, seconds)
        self._seen = at + 1
        return match

    def wait_for_any(self, pattern, seconds=20):
        """The same among all lines, wherever others have been waited for."""
        return self._find(pattern, 0, seconds)[1]

    def _find(self, pattern, at, seconds):
        end = time.monotonic() + seconds
        with self._news:
            while True:
                for at in range(at, len(self.lines)):
                    match = re.search(pattern, self.lines[at])
                    if match:
                        return at, match
                at = len(self.lines)
                if self._ended or not self._news.wait(end - time.monotonic()):
                    when = "before it ended" if self._ended else f"within {seconds} s"
                    raise AssertionError(f"{self.name} did not print {pattern!r} {when}; it printed "
                                         f"{self.lines!r}")

    def row(self, label):
        """What the row shows now; it has then been waited for."""
        with self._news:
            self._seen = len(self.lines)
            shown = [line for line in self.lines if line.startswith(label + ": ")]
            return shown[-1][len(label) + 2:] if shown else None

    def say(self, text):
        self.process.stdin.write(text)
        self.process.stdin.flush()

    def send(self, number):
        self.process.send_signal(number)

    def wait(self, seconds):
        return self.process.wait(timeout=seconds)

    def quit(self, seconds=15, number=signal.SIGTERM):
        """In order, and within the time."""
        self.send(number)
        assert self.wait(seconds) == 0, self.process.returncode

    def end(self, number=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(number)
            try:
                self.process.wait(timeout=15)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


def own_display():
    """X servers hand their keymaps over in a file of the machine that has the display's number, whatever network
    they are in: two of one number take each other's, or find none and do not start."""
    return f":{random.randrange(1000, 50000)}"


class Screen:
    """An X server's. Servers in several networks may have the same number; who asks from within gets
    the right one."""

    def __init__(self, display, prefix=()):
        self.display, self.prefix = display, prefix

    def ask(self, *command, **how):
        return subprocess.run([*self.prefix, *command], timeout=10, capture_output=True, check=False,
                              env=dict(os.environ, DISPLAY=self.display), **how).stdout

    def xdotool(self, *words):
        return self.ask("xdotool", *words, text=True)

    def picture(self):
        """Width and height, and what is there but the pointer: red, green and blue of each pixel."""
        kind, size, _, pixels = self.ask("import", "-window", "root", "-depth", "8",
                                         "ppm:-").split(b"\n", 3)
        assert kind == b"P6", kind
        return [int(number) for number in size.split()], pixels


class Stage:
    """Folder, display, certificate, service and router; what was started ends with it."""

    def __init__(self, build):
        self.build = build
        self.folder = tempfile.mkdtemp(prefix="zelvo-road-")
        self.log = open(os.path.join(self.folder, "log.txt"), "w", encoding="utf-8")
        self.programs = []
        os.mkdir(self.path("runtime"), 0o700)
        self.display = None
        self.screen = None

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

    def start(self, command, env=None, prefix=(), log=None, **how):
        """The prefix is a program that becomes the command."""
        program = Program(command, env or dict(os.environ), log or self.log, prefix, **how)
        self.programs.append(program)
        return program

    def start_screen(self, prefix=(), size="1024x768x24"):
        server = self.start(["Xvfb", own_display(), "-displayfd", "1", "-screen", "0", size, "-nolisten", "tcp",
                             "-noreset"], prefix=prefix)
        return Screen(":" + server.wait_for(r"^\d+$").group(0), prefix)

    def start_display(self, prefix=(), size="1024x768x24"):
        self.screen = self.start_screen(prefix, size)
        self.display = self.screen.display

    def xdotool(self, *words):
        return self.screen.xdotool(*words)

    def make_certificate(self, address="127.0.0.1", folder=""):
        """In that folder, which is new, inside of ours."""
        os.makedirs(self.path(folder), exist_ok=True)
        run = lambda *words: subprocess.run(["openssl", *words], check=True, capture_output=True,
                                            cwd=self.path(folder))
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
        run("req", "-x509", *key, "-subj", "/CN=Test authority", "-addext",
            "basicConstraints=critical,CA:TRUE", "-keyout", "ca.key", "-out", "ca.pem")
        run("req", *key, "-subj", f"/CN={address}", "-keyout", "service.key", "-out", "service.csr")
        with open(self.path(os.path.join(folder, "names")), "w", encoding="utf-8") as names:
            names.write(f"subjectAltName=IP:{address}")
        run("x509", "-req", "-in", "service.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
            "-CAcreateserial", "-extfile", "names", "-out", "service.pem")

    def start_service(self, port=0, address="127.0.0.1", options=(), **how):
        service = self.start([os.path.join(self.build, "zelvo-service"), "--database",
                              self.path("links.sqlite"), "--certificate", self.path("service.pem"),
                              "--key", self.path("service.key"), "--address", address,
                              "--port", str(port), *options], **how)
        service.url = service.wait_for(r"^Service: (https://\S+)$").group(1)
        service.port = int(service.url.rsplit(":", 1)[1])
        return service

    def start_relay(self, address, port=0, settle=0, **how):
        """With what `make_signatures` made, and the service's certificate."""
        relay = self.start([os.path.join(self.build, "zelvo-relay"), "--name", address, "--address",
                            address, "--port", str(port), "--settle", str(settle),
                            "--certificate", self.path("service.pem"), "--key",
                            self.path("service.key"), "--service-keys", self.path("tickets.pub"),
                            "--lease-key", self.path("leases.key")], **how)
        relay.place = relay.wait_for(r"^Relay: (\S+:\d+)$").group(1)
        return relay

    def make_signatures(self):
        for name in ("tickets", "leases"):
            key = ["openssl", "genpkey", "-algorithm", "ed25519", "-out", self.path(name + ".key")]
            subprocess.run(key, check=True)
        subprocess.run(["openssl", "pkey", "-in", self.path("tickets.key"), "-pubout", "-out",
                        self.path("tickets.pub")], check=True)

    def start_router(self, port=0):
        router = self.start([os.path.join(self.build, "zelvo-router"), "--port", str(port)])
        router.place = router.wait_for(r"^Router: (127\.0\.0\.1:\d+)$").group(1)
        router.port = int(router.place.rsplit(":", 1)[1])
        return router

    def environment(self, service_url, router_place=None):
        env = own_environment()
        env.update({
            "DISPLAY": self.display,
            "ZELVO_SERVICE": service_url,
            "ZELVO_AUTHORIZATION": "self",
            "ZELVO_ROOT": self.path("root"),
            "SSL_CERT_FILE": self.path("ca.pem"),
            "XDG_CONFIG_HOME": self.path("config"),
            "XDG_DATA_HOME": self.path("data"),
            "XDG_STATE_HOME": self.path("state"),
            "XDG_RUNTIME_DIR": self.path("runtime"),
        })
        env.pop("ZELVO_ROUTER", None)
        if router_place:
            env["ZELVO_ROUTER"] = router_place
        return env

    def start_application(self, service, router):
        return self.start([os.path.join(self.build, "zelvo"), "--ask-in-terminal", "--print-link"],
                          self.environment(service.url, router.place), takes_input=True)

    def set_up(self):
        """All that the application needs: the service and the router."""
        self.start_display()
        self.make_certificate()
        return self.start_service(), self.start_router()

    def windows(self, name="."):
        """The visible ones, the topmost last."""
        return self.xdotool("search", "--onlyvisible", "--name", name).split()

    def press(self, key, count=2):
        """A key for the topmost of so many windows, of which the second is a sheet."""
        wait_until(lambda: len(self.windows()) >= count, 20, f"{count} windows")
        # Nobody manages windows here, so the focus has to be given.
        self.xdotool("windowfocus", "--sync", self.windows()[-1], "key", key)

    def question(self):
        """The window of the question, which comes on top of the application's."""
        windows = self.windows("^Zelvo$")
        return windows[-1] if len(windows) > 1 else None

    def place(self, window):
        """Its left and upper edge, its width and its height."""
        shown = dict(line.split("=") for line in
                     self.xdotool("getwindowgeometry", "--shell", window).split())
        return [int(shown[name]) for name in ("X", "Y", "WIDTH", "HEIGHT")]

    def click(self, button):
        """On "help" or "refuse" in the question; where that is on the screen."""
        wait_until(self.question, 20, "the question")
        # The buttons rest at first.
        time.sleep(1.3)
        x, y, width, height = self.place(self.question())
        place = (x + int(width * (0.2 if button == "help" else 0.8)), y + height - 84)
        self.xdotool("mousemove", *map(str, place), "click", "1")
        return place


def let_in(zelvo, word="help"):
    """Answers the question of an application that asks where it was started."""
    zelvo.wait_for("^Somebody wants to see your screen")
    # What is typed in the first second was meant for something else.
    time.sleep(1.2)
    zelvo.say(word + "\n")


def service_info(url, authority, link, prefix=()):
    """What the service answers to a viewer that asks for the link, of which the key stays here."""
    identifier = link.split("#")[0]
    answer = subprocess.run([*prefix, "curl", "-s", "--max-time", "10", "--cacert", authority,
                             "--data", f"link={identifier}", url + "/app/4.8.1/sharing/get.php"],
                            capture_output=True, check=True)
    return plistlib.loads(answer.stdout)


def connect_viewer(address, port):
    """A connection as a viewer makes it, and the server's version (RFC 6143, section 7.1.1)."""
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


def processes_named(name, beside="self"):
    """The processes of that name in that one's network namespace, so that others' do not count."""
    found = []
    mine = os.readlink(f"/proc/{beside}/ns/net")
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/comm", encoding="utf-8") as comm:
                if comm.read().strip() == name and os.readlink(f"/proc/{pid}/ns/net") == mine:
                    found.append(int(pid))
        except OSError:
            continue
    return found


def wait_until_off(seconds=10):
    wait_until(lambda: not is_listening(VNC_PORT) and not processes_named("screensharingd"), seconds,
               "the end of Screen Sharing")


def wait_until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {seconds} s")
        time.sleep(0.02)


def wait_until_at_rest(value, seconds, what):
    """Until it stays as it is for longer than a key that is down takes to repeat; what it is then."""
    end = time.monotonic() + seconds
    while True:
        before = value()
        time.sleep(0.7)
        if value() == before:
            return before
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not at rest within {seconds} s")
