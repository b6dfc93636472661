"""A desktop computer of the test's own, with an ordinary user in front of it: message bus, polkit, host
name daemon, X session, and Zelvo installed as a package installs it. All of it lies in namespaces that
end with the test; nothing outside them changes."""

import contextlib
import os
import re
import secrets
import shutil
import struct
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from stage import ROOT, Stage, own_display, skip_where_missing, wait_until  # noqa: E402

PROGRAMS = ("Xvfb", "gvnccapture", "xdotool", "identify", "pkexec",
            "dbus-daemon", "hostnamectl", "setpriv", "/usr/lib/polkit-1/polkitd",
            "/lib/systemd/systemd-hostnamed", "avahi-daemon")
USER = "zelvo-road"
USER_ID = 61210

BUS = """<busconfig>
  <type>system</type>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <servicedir>/run/services</servicedir>
  <policy context="default">
    <allow user="*"/><allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
  </policy>
</busconfig>
"""
SERVICES = {"org.freedesktop.PolicyKit1": "/usr/lib/polkit-1/polkitd --no-debug",
            "org.freedesktop.hostname1": "/lib/systemd/systemd-hostnamed"}
# The administrator's answer to the question whether to switch on; other questions have none.
RULES = """polkit.addRule(function(action, subject) {
    if (action.id == "app.zelvo.Zelvo.screen-sharing")
        return subject.user == "%s" ? polkit.Result.YES : polkit.Result.NO;
});
""" % USER


def enter_own_machine(build, more_programs=()):
    """Goes on as root of a machine without other processes, networks or mounts than the test's own."""
    mounts = os.readlink("/proc/self/ns/mnt")
    if os.environ.get("ZELVO_MOUNTS_OUTSIDE", mounts) != mounts:
        return
    unshare = ["unshare", "-nmupf", "--kill-child", "--mount-proc"]
    prefix, reason = install_prefix(build), ""
    if os.geteuid() != 0 or subprocess.run([*unshare, "true"], capture_output=True,
                                           check=False).returncode != 0:
        reason = "needs root and namespaces"
    elif prefix and (prefix == "/usr" or not os.path.isdir(prefix)):
        reason = prefix + " cannot be covered; configure with another prefix"
    skip_where_missing(*PROGRAMS, *more_programs, *(["cmake"] if prefix else []), reason=reason)
    os.environ["ZELVO_MOUNTS_OUTSIDE"] = mounts
    # The shell stays, since somebody has to reap what has lost its parent.
    command = 'ip link set lo up && "$@"; exit $?'
    os.execvp("unshare", [*unshare, "sh", "-c", command, "sh", sys.executable, *sys.argv])


class Desktop(Stage):
    """The machine from start to session; Zelvo itself is started by the scenario."""

    def __enter__(self):
        super().__enter__()
        os.chmod(self.folder, 0o711)
        # What the libraries of a window keep until its program ends.
        shutil.copy(os.path.join(ROOT, "tests", "qt", "leaks.supp"), self.folder)
        self.home = self.path("home")
        self.cover_system_folders()
        self.install_zelvo()
        self.start(["dbus-daemon", "--config-file=/run/bus.conf", "--nofork", "--nopidfile",
                    "--nosyslog", "--print-address=1"]).wait_for("^unix:")
        self.start_session()
        self.start_surroundings()
        return self

    def __exit__(self, kind, *rest):
        if kind:
            for name in ("answer", "reason", "log"):
                with contextlib.suppress(OSError), open("/var/lib/zelvo/run/" + name,
                                                        encoding="utf-8") as file:
                    print(f"--- the server's {name} ---\n" + file.read()[-2000:])
        super().__exit__(kind, *rest)

    def start_surroundings(self):
        self.make_certificate()
        self.service = self.start_service()
        self.router = self.start_router()

    def cover_system_folders(self):
        def run(*command):
            subprocess.run(command, check=True)
        run("cp", "-a", "/etc", self.path("etc"))
        run("mount", "--bind", self.path("etc"), "/etc")
        # polkit reads what is to be asked in the last one alone.
        covered = ("/run", "/var/lib", "/usr/share/polkit-1")
        for folder in covered if install_prefix(self.build) else covered[:2]:
            run("mount", "-t", "tmpfs", "-o", "mode=755", "none", folder)
        # hostnamectl looks for the one of systemd.
        for folder in ("/run/dbus", "/run/services", "/run/systemd/system", "/run/systemd/sessions",
                       "/run/systemd/users",
                       "/usr/share/polkit-1/actions", "/usr/share/polkit-1/rules.d", self.home,
                       f"/run/user/{USER_ID}"):
            os.makedirs(folder, exist_ok=True)
        for folder in (self.home, f"/run/user/{USER_ID}"):
            os.chown(folder, USER_ID, USER_ID)
            os.chmod(folder, 0o700)
        append("/etc/passwd", f"{USER}:x:{USER_ID}:{USER_ID}::{self.home}:/bin/sh\n")
        append("/etc/group", f"{USER}:x:{USER_ID}:\n")
        append("/etc/polkit-1/rules.d/10-test.rules", RULES)
        scope = f"/user.slice/user-{USER_ID}.slice/session-1.scope\n"
        append("/run/session-cgroup", f"1:name=systemd:{scope}0::{scope}")
        append("/run/systemd/sessions/1", f"UID={USER_ID}\nSEAT=seat0\nACTIVE=1\n")
        append(f"/run/systemd/users/{USER_ID}", "STATE=active\n")
        append("/etc/machine-info", "PRETTY_HOSTNAME=\"Ann's Desk\"\n", "w")
        append("/run/bus.conf", BUS)
        for name, command in SERVICES.items():
            append(f"/run/services/{name}.service",
                   f"[D-BUS Service]\nName={name}\nExec={command}\nUser=root\n")

    def install_zelvo(self):
        """As packages are made: into a folder, which then becomes the prefix's content."""
        prefix = install_prefix(self.build)
        if not prefix:
            self.zelvo = os.path.join(self.build, "zelvo")
            return
        subprocess.run(["cmake", "--install", self.build], check=True, stdout=self.log,
                       env=dict(os.environ, DESTDIR=self.path("package")))
        # polkit looks nowhere else.
        shutil.copy(self.path("package") + prefix + "/share/polkit-1/actions/app.zelvo.Zelvo.policy",
                    "/usr/share/polkit-1/actions")
        subprocess.run(["mount", "--bind", self.path("package") + prefix, prefix], check=True)
        self.zelvo = os.path.join(prefix, "bin", "zelvo")

    def start_as_user(self, command, env, **how):
        """With nothing of the environment of the test, in a session that is on screen."""
        user = ["sh", "-ec", 'mount --bind /run/session-cgroup /proc/$$/cgroup; exec "$@"', "sh",
                "setpriv", "--reuid", str(USER_ID), "--regid", str(USER_ID), "--clear-groups"]
        return self.start(command, {"PATH": "/usr/local/bin:/usr/bin:/bin",
                                    "LSAN_OPTIONS": "suppressions=" + self.path("leaks.supp"),
                                    **env}, user, **how)

    def start_session(self):
        authority = os.path.join(self.home, ".Xauthority")
        cookie = secrets.token_bytes(16)
        # The file's format has a family (any), an address, a display, a method and its data, each
        # with its length.
        with open(authority, "wb") as file:
            file.write(struct.pack(">H", 65535))
            for part in (b"", b"", b"MIT-MAGIC-COOKIE-1", cookie):
                file.write(struct.pack(">H", len(part)) + part)
        os.chown(authority, USER_ID, USER_ID)
        os.chmod(authority, 0o600)
        display = self.start_as_user(
            ["Xvfb", own_display(), "-displayfd", "1", "-screen", "0", "1024x768x24", "-nolisten", "tcp",
             "-noreset", "-auth", authority], {"HOME": self.home}).wait_for(r"^\d+$").group(0)
        bus = self.start_as_user(["dbus-daemon", "--session", "--nofork", "--print-address=1"],
                                 {"HOME": self.home}).wait_for("^unix:.*").group(0)
        self.session = {"HOME": self.home, "USER": USER, "LOGNAME": USER, "DISPLAY": ":" + display,
                        "XAUTHORITY": authority, "XDG_RUNTIME_DIR": f"/run/user/{USER_ID}",
                        "XDG_SESSION_TYPE": "x11", "DBUS_SESSION_BUS_ADDRESS": bus,
                        "LC_ALL": "C.UTF-8"}

    def start_application(self, *options):
        return self.start_as_user([self.zelvo, *options], {
            **self.session, "ZELVO_SERVICE": self.service.url,
            "ZELVO_ROUTER": f"127.0.0.1:{self.router.port}", "SSL_CERT_FILE": self.path("ca.pem")},
            takes_input=bool(options))

    def xdotool(self, *words):
        return subprocess.run(["xdotool", *words], env={**os.environ, **self.session},
                              capture_output=True, text=True, check=False, timeout=20).stdout

    def join_neighbour(self):
        """Another computer at the other end of the link desk0, on a bus of its own, which has the name
        "desk" already when the link comes up with the call of what is returned."""
        bus = self.start(["dbus-daemon", "--session", "--nofork", "--print-address=1",
                          "--address=unix:dir=" + self.folder]).wait_for("^unix:.*").group(0)
        ip("link", "add", "desk0", "type", "veth", "peer", "name", "desk1")
        ip("address", "add", "10.9.0.1/24", "dev", "desk0")
        neighbour = self.start_avahi("mount -t tmpfs none /run; "
                                     "until ip link set desk1 up 2>/dev/null; do sleep 0.1; done; "
                                     "ip address add 10.9.0.2/24 dev desk1; ", bus, ["unshare", "-nm"])
        pid = neighbour.process.pid
        wait_until(lambda: os.readlink(f"/proc/{pid}/ns/net") != os.readlink("/proc/self/ns/net"), 10,
                   "the neighbour's network")
        ip("link", "set", "desk1", "netns", str(pid))
        neighbour.wait_for("Server startup complete")
        return lambda: ip("link", "set", "desk0", "up")

    def start_avahi(self, before="", bus="unix:path=/run/dbus/system_bus_socket", prefix=()):
        """Under the name "desk"."""
        settings = self.path("avahi.conf")
        append(settings, "[server]\nhost-name=desk\nuse-ipv6=no\n"
               "[publish]\npublish-hinfo=no\npublish-workstation=no\n", "w")
        command = (f"{before}mkdir /run/avahi-daemon; exec avahi-daemon -f {settings} "
                   "--no-drop-root --no-chroot --no-rlimits --no-proc-title 2>&1")
        return self.start(["sh", "-ec", command], dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=bus), prefix)


def install_prefix(build):
    """Empty where that is the folder of what a package has installed."""
    if not os.path.exists(cache := os.path.join(build, "CMakeCache.txt")):
        return ""
    with open(cache, encoding="utf-8") as file:
        return re.search(r"^CMAKE_INSTALL_PREFIX:\w+=(.*)$", file.read(), re.M).group(1)


def append(path, text, mode="a"):
    with open(path, mode, encoding="utf-8") as file:
        file.write(text)


def ip(*words):
    subprocess.run(["ip", *words], check=True)
