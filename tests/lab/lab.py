"""Three hosts on one machine, with nothing of ours but the application and its service."""

import contextlib
import ctypes
import os
import re
import signal
import struct
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "support"))
from stage import Stage, let_in, service_info, skip_where_missing, wait_until  # noqa: E402

HOST = "192.168.77.20"
WIRELESS = "192.168.77.21"
OUTSIDE = "44.128.7.1"
SERVICE = "44.128.7.2"
NEEDED = ("ip", "nft", "miniupnpd", "ss", "Xvfb", "xdotool", "gvnccapture", "curl", "openssl")


def leave_out_where_impossible(*others):
    reason = ""
    if os.geteuid() != 0 or subprocess.run(["unshare", "-n", "true"], check=False).returncode:
        reason = "no right to make network namespaces"
    skip_where_missing(*NEEDED, *others, reason=reason)


def enter(namespace):
    if ctypes.CDLL(None, use_errno=True).setns(namespace.fileno(), 0) != 0:
        raise OSError(ctypes.get_errno(), "setns")


class Lab(Stage):
    """The namespaces `host`, `router` and `internet`; see the file "namespaces". The host may be the
    namespace in which all of this runs, and with which it ends."""

    def __init__(self, build, is_host=False):
        super().__init__(build)
        self.is_host = is_host
        self.name = f"zl{os.getpid()}"
        self.router = None
        self.service = None

    def __enter__(self):
        try:
            self.namespaces("around" if self.is_host else "up")
        except subprocess.CalledProcessError as error:
            self.__exit__(None)
            skip_where_missing(reason=f"no network namespaces: {error.stderr}")
        return self

    def __exit__(self, *error):
        super().__exit__(*error)
        if not self.is_host:
            self.namespaces("down")

    def namespaces(self, action, *words):
        return subprocess.run([os.path.join(HERE, "namespaces"), action, self.name, *words],
                              check=True, capture_output=True, text=True).stdout

    def within(self, place):
        return ["ip", "netns", "exec", f"{self.name}-{place}"]

    @contextlib.contextmanager
    def connecting_from(self, place):
        """Sockets that this thread opens meanwhile belong to that namespace."""
        with open("/proc/self/ns/net", "rb") as here, \
                open(f"/run/netns/{self.name}-{place}", "rb") as there:
            enter(there)
            try:
                yield
            finally:
                enter(here)

    def run(self, place, *command, check=True):
        return subprocess.run([*self.within(place), *command], check=check, capture_output=True,
                              text=True).stdout

    # The router

    def start_router(self, *lines, speaks="all"):
        self.router = self.start([os.path.join(HERE, "namespaces"), "daemon", self.name, *lines])
        wait_until(lambda: ":5351 " in self.run("router", "ss", "-lnuH"), 10, "a router daemon")
        self.namespaces("only", speaks)

    def lose_router(self):
        self.router.end(signal.SIGKILL)
        for chain in ("miniupnpd", "prerouting_miniupnpd", "postrouting_miniupnpd"):
            self.run("router", "nft", "flush", "chain", "inet", "filter", chain)

    def mapped(self, host=HOST):
        """The external ports that lead to the host's server for both transports."""
        ports = re.findall(rf"dport (\d+) dnat ip to {re.escape(host)}:5900",
                           self.namespaces("rules"))
        return {int(port) for port in ports if ports.count(port) == 2}

    def wait_until_mapped(self, *ports, host=HOST):
        wait_until(lambda: self.mapped(host) == set(ports), 10, f"{ports} lead to {host}")

    def plug(self, is_in, home="192.168.77"):
        """The host's cable, as its network manager answers to it."""
        if is_in:
            self.run("host", "ip", "addr", "add", f"{home}.20/24", "dev", "eth0")
            self.run("host", "ip", "link", "set", "eth0", "up")
            self.run("host", "ip", "route", "add", "default", "via", f"{home}.1", "dev", "eth0")
        else:
            self.run("host", "ip", "addr", "flush", "dev", "eth0")
            self.run("host", "ip", "link", "set", "eth0", "down")

    def table_is_empty(self):
        return not self.namespaces("rules").strip()

    def journals(self):
        """What the next start is to take back."""
        return [name for name in os.listdir(self.path("state/zelvo")) if "port-mappings" in name]

    # The internet

    def start_internet(self):
        self.make_certificate(SERVICE)
        self.service = self.start_service(address=SERVICE, prefix=self.within("internet"))

    def start_front(self, certificate=""):
        """What stands before the service; see "front.py". The certificate's folder may be another."""
        files = ("ca.pem", os.path.join(certificate, "service.pem"),
                 os.path.join(certificate, "service.key"))
        front = self.start([sys.executable, os.path.join(HERE, "front.py"), SERVICE,
                            self.service.url, *map(self.path, files)],
                           prefix=self.within("internet"), takes_input=True)
        front.url = front.wait_for(r"^Service: (\S+)$").group(1)
        return front

    def published(self, link):
        return service_info(self.service.url, self.path("ca.pem"), link, self.within("internet"))

    # The host

    def start_host(self):
        self.start_display(prefix=self.within("host"))

    def type_into_terminal(self, path):
        """A terminal that keeps each line that is typed in that file."""
        open(path, "w", encoding="utf-8").close()
        environment = {**os.environ, "DISPLAY": self.display, "LC_ALL": "C.UTF-8"}
        terminal = self.start(["xterm", "-u8", "-class", "Typed", "-e", "sh",
                               "-c", f"exec cat >>'{path}'"], environment, self.within("host"))
        find = ("search", "--onlyvisible", "--class", "Typed")
        wait_until(lambda: self.xdotool(*find), 10, "a terminal")
        self.xdotool("windowfocus", "--sync", self.xdotool(*find).split()[-1])
        return terminal

    def start_zelvo(self, service=None, in_terminal=False):
        """The application, whose log lines come among its rows. It asks where it was started."""
        env = self.environment((service or self.service).url)
        how = {"log": subprocess.STDOUT, "prefix": self.within("host"), "takes_input": True}
        program = os.path.join(self.build, "zelvo")
        if not in_terminal:
            return self.start([program, "--ask-in-terminal", "--print-link"], env, **how)
        screenless = {name: value for name, value in env.items() if name != "DISPLAY"}
        zelvo = self.start([program], screenless, **how)
        zelvo.wait_for_any("^Port mapping: ")
        # It finds no screen itself.
        tool = os.path.join(self.build, "resources", "enable-screen-sharing-and-guess-access.tool")
        subprocess.run([*self.within("host"), "sh", tool], env=env, check=True, capture_output=True)
        return zelvo

    def link_of(self, zelvo, seconds=20):
        """Waits for the link; what the service publishes about it is the router's side of it."""
        zelvo.wait_for(r"^Port mapping: Port Mapping Successful\.$", seconds)
        link = zelvo.wait_for(r"^Link: zelvo://(\S+)$").group(1)
        facts = self.published(link)
        port = int(facts["Port"])
        assert int(facts["availabilityStatus"]) == 0, facts
        wait_until(lambda: self.mapped() == {port}, 5, f"port {port} alone in the router's table")
        return link, port

    def hold_connection(self, zelvo, port):
        """A viewer who is let in, looks at nothing, and stays."""
        viewer = self.start(["bash", "-c", f"exec 3<>/dev/tcp/{OUTSIDE}/{port} && "
                             r"printf 'RFB 003.008\n\001\001' >&3 && exec sleep 60"],
                            prefix=self.within("internet"))
        let_in(zelvo)
        zelvo.wait_for(r"^Connection: Connection established\.$", 10)
        return viewer

    def view(self, zelvo, link):
        """A viewer comes the way that the service tells, is let in, gets the screen and leaves."""
        facts = self.published(link)
        place = f"{facts['IPAddress']}:{int(facts['Port']) - 5900}"
        picture = self.path("screen.png")
        viewer = self.start(["gvnccapture", place, picture], prefix=self.within("internet"))
        let_in(zelvo)
        zelvo.wait_for(" is in and can use your screen")
        assert viewer.wait(15) == 0, viewer.lines
        with open(picture, "rb") as file:
            size = struct.unpack(">II", file.read(24)[16:])
        assert size == (1024, 768), size
        zelvo.wait_for(" has left", 10)

    def quit(self, zelvo, seconds=5):
        """Seconds from the request to the end, and to the empty table."""
        begun = time.monotonic()
        zelvo.send(signal.SIGTERM)
        wait_until(self.table_is_empty, seconds, "an empty table")
        emptied = time.monotonic() - begun
        assert zelvo.wait(seconds) == 0, zelvo.process.returncode
        ended = time.monotonic() - begun
        print(f"quit: table empty after {emptied:.2f} s, ended after {ended:.2f} s", flush=True)
        return ended, emptied
