"""What the figures have in common: limits and tables, what a process takes, a viewer that measures."""

import contextlib
import os
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
for folder in ("support", "lab", "road"):
    sys.path.insert(0, os.path.join(HERE, "..", "tests", folder))
from gate import ZelvoEnd  # noqa: E402
from stage import wait_until  # noqa: E402

PORT = 5900
# For as long a share of the processor is taken.
SECONDS = 8
missed = []


def keep(figure, value, limit, missed_it=False):
    """As a row of the table that scripts/bench --markdown ends with."""
    if "ZELVO_FIGURES" in os.environ:
        with open(os.environ["ZELVO_FIGURES"], "a", encoding="utf-8") as rows:
            rows.write(f"| {figure} | {value} | {limit}{', missed' if missed_it else ''} |\n")


def show(label, value, unit, limit):
    reached = value <= limit
    print(f"{label:36} {value:8.2f} {unit:8} (at most {limit} {unit})"
          f"{'' if reached else '  MISSED'}", flush=True)
    keep(label, f"{value:.2f} {unit}", f"{limit} {unit}", not reached)
    if not reached:
        missed.append(label)


def finish():
    sys.exit(1 if missed else 0)


@contextlib.contextmanager
def silence():
    """What the programs say is of no interest; hands out where the figures go meanwhile."""
    shown = sys.stdout
    with open(os.devnull, "w", encoding="utf-8") as nowhere, contextlib.redirect_stdout(nowhere):
        yield shown


def processor_seconds(pid):
    """On a processor until now, of every thread, those that have ended included."""
    # The clock that clock_getcpuclockid(3) names, which Python does not have.
    return time.clock_gettime(~pid << 3 | 2)


def processor_share(pid, seconds):
    """Per cent of one core that the process takes."""
    before = processor_seconds(pid)
    time.sleep(seconds)
    return (processor_seconds(pid) - before) / seconds * 100


def resident_megabytes(pid):
    return megabytes(f"/proc/{pid}/status", "VmRSS:")


def proportional_megabytes(pid):
    """What other programs use, too, counts by halves, thirds and so on."""
    return megabytes(f"/proc/{pid}/smaps_rollup", "Pss:")


def megabytes(path, name):
    with open(path, encoding="ascii") as lines:
        return next(int(line.split()[1]) for line in lines if line.startswith(name)) / 1024


class Viewer:
    def __init__(self, stage, security="none"):
        self.program = stage.start([os.path.join(stage.build, "zelvo-bench-viewer"), "127.0.0.1",
                                    str(PORT), security], takes_input=True)
        first = self.program.wait_for(r"^first (\S+) (\S+)$")
        # On everybody's clock; and since it began to connect.
        self.first_at, self.first_after = float(first.group(1)), float(first.group(2))

    def begin_keys(self, count=60):
        self.program.say(f"keys {count}\n")

    def end_keys(self):
        """Median, 95th percentile and longest."""
        return [float(time) for time in
                self.program.wait_for(r"^keys (\S+) (\S+) (\S+)", 60).groups()]

    def keys(self):
        self.begin_keys()
        return self.end_keys()[0]

    def frames(self):
        self.program.say("frames\n")
        return int(self.program.wait_for(r"^frames (\d+)").group(1))

    def cost(self):
        """Milliseconds of the processor that opening what was sealed took since it was last asked."""
        self.program.say("cost\n")
        return float(self.program.wait_for(r"^cost (\S+)").group(1))

    def end(self):
        self.program.end()


def start_ours(stage, env):
    zelvo = ZelvoEnd(stage.folder)
    server = stage.start([os.path.join(stage.build, "screensharingd"), "--socket", zelvo.path,
                          "--port", str(PORT)], env)
    return server, zelvo


def show_table(title, results, limits):
    """The figures of each server, by its name, in columns; the first one's are held against the limits."""
    print(f"{title:44}" + "".join(f"{name:>16}" for name in results) + "         at most")
    for figure, value in next(iter(results.values())).items():
        limit = limits.get(figure)
        row = "".join(f"{result[figure]:16.2f}" if figure in result else f"{'':16}"
                      for result in results.values())
        is_missed = limit is not None and value > limit
        if is_missed:
            missed.append(figure)
        print(f"{figure:44}{row}{'' if limit is None else f'{limit:16}'}"
              f"{'  MISSED' if is_missed else ''}")
        others = ", ".join(f"{name} {result[figure]:.2f}" for name, result in list(results.items())[1:]
                           if figure in result)
        keep(f"{title}: {figure}" if title else figure, f"{value:.2f}{f' ({others})' if others else ''}",
             "" if limit is None else limit, is_missed)


# Lines as wide as the screen, 30 of them a second.
SCROLL = ("import random, time\n"
          "while True:\n"
          "    print(''.join(random.choices('abcdefghij klmnop', k=260)), flush=True)\n"
          "    time.sleep(1 / 30)")
# A square in the corner that has another colour after each key, also where a busy desktop repeats it.
KEYS = ("import os, tty\n"
        "tty.setraw(0)\n"
        "open(os.path.expanduser('~/takes-keys'), 'w').close()\n"
        "colour = 41\n"
        "while os.read(0, 1):\n"
        "    colour = 41 + (colour - 40) % 6\n"
        "    os.write(1, ''.join(f'\\x1b[{row}H\\x1b[{colour}m      ' for row in range(1, 4)).encode())")
SESSION_LIMITS = {"static, % core": 0.05, "key to picture, ms": 40, "scrolling, % core": 40}


def measure_session(stage, show, pid, home):
    """Of the server pid, in whose session show() runs a script in a terminal that fills the screen; home
    is its user's."""
    figures = {}
    content = show(KEYS)
    taking = os.path.join(home, "takes-keys")
    wait_until(lambda: os.path.exists(taking), 30, "a terminal that takes keys")
    os.remove(taking)
    viewer = Viewer(stage)
    time.sleep(1)
    figures["static, % core"] = processor_share(pid, SECONDS)
    figures["key to picture, ms"] = viewer.keys()
    content.end()
    content = show(SCROLL)
    time.sleep(1)
    viewer.frames()
    figures["scrolling, % core"] = processor_share(pid, SECONDS)
    figures["frames/s"] = viewer.frames() / SECONDS
    figures["resident, MB"] = resident_megabytes(pid)
    viewer.end()
    content.end()
    return figures
