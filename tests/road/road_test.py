#!/usr/bin/env python3
"""The road of one link with the real programs, and what happens when one of them is missing.

usage: road_test.py BUILD_FOLDER [SCENARIO]
"""

import os
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from stage import (ROOT, Stage, connect_viewer, enter_own_network,  # noqa: E402
                   is_listening, own_environment, processes_named, service_info, wait_until)

VNC_PORT = 5900
# A viewer's version, and no security (RFC 6143, sections 7.1.1 and 7.1.2).
GREETING = b"RFB 003.008\n\1\1"


def the_whole_road(stage):
    """scripts/run alone brings the link, a viewer comes and goes, and SIGINT takes everything back."""
    env = dict(own_environment(), ZELVO_BUILD=stage.build, ZELVO_RUN=stage.path("run"))
    run = stage.start([os.path.join(ROOT, "scripts", "run")], env, takes_input=True)
    url = run.wait_for(r"^Service: (https://\S+)$").group(1)
    run.wait_for(r"^Router: 127\.0\.0\.1:\d+$")
    run.wait_for(r"^Port mapping: Applying Port Mapping\.\.\.$")
    run.wait_for(r"^Port mapping: Port Mapping Successful\.$", 30)
    run.wait_for(r"^Connection: Waiting for connection\.\.\.$")
    link = run.wait_for(r"^Link: zelvo://(\S+)$").group(1)
    run.wait_for(r"^A viewer connects to 127\.0\.0\.1 port \d+")
    wait_until(lambda: os.path.exists(stage.path("run/window.png")), 10, "a picture of the window")

    facts = service_info(url, stage.path("run/ca.pem"), link)
    assert facts["StatusCode"] == 0, facts
    assert int(facts["availabilityStatus"]) == 0, facts
    assert facts["vncPort"] == str(VNC_PORT) and facts["MappedService"] == "vnc", facts
    assert facts["LocalHostname"].endswith(".local."), facts
    assert '"osVersion"' in facts["HotKeys"], facts
    external = int(facts["Port"])
    assert 10000 <= external <= 65533, facts

    viewer, greeting = connect_viewer(facts["IPAddress"], external)
    assert greeting == b"RFB 003.008\n", greeting
    viewer.sendall(GREETING)
    # Somebody who is asked about is no connection yet, however long that takes.
    time.sleep(4)
    assert run.row("Connection") == "Waiting for connection..."
    run.say("help\n")
    run.wait_for(" is in and can use your screen")
    run.wait_for(r"^Connection: Connection established\.$", 6)
    viewer.close()
    run.wait_for(r"^Connection: Waiting for connection\.\.\.$", 6)

    begun = time.monotonic()
    run.send(signal.SIGINT)
    status = run.wait(15)
    took = time.monotonic() - begun
    print(f"quit took {took:.2f} s")
    assert status == 0, status
    assert took < 5, took
    assert not is_listening(VNC_PORT) and not is_listening(external)
    assert not processes_named("screensharingd")
    with open(stage.path("run/router.out"), encoding="utf-8") as router:
        table = router.read()
    assert table.count("Mapped TCP") == 1 and table.count("Deleted TCP") == 1, table

    # The service that knows the link again says that it is not available.
    service = stage.start([os.path.join(stage.build, "zelvo-service"),
                           "--database", stage.path("run/links.sqlite"),
                           "--certificate", stage.path("run/service.pem"),
                           "--key", stage.path("run/service.key")])
    url = service.wait_for(r"^Service: (https://\S+)$").group(1)
    facts = service_info(url, stage.path("run/ca.pem"), link)
    assert int(facts["availabilityStatus"]) == 1, facts


def interruptions(stage):
    """A signal at any moment ends scripts/run in order, with nothing left behind."""
    env = dict(own_environment(), ZELVO_BUILD=stage.build, ZELVO_RUN=stage.path("run"))
    # Nobody answers there, so the script brings its own.
    env["DISPLAY"] = ":4242"
    moments = [(r"^Display: ", 0), (r"^Router: ", 0), (r"^Router: ", 0.05),
               (r"^Port mapping: Applying", 0), (r"^Port mapping: Applying", 0.6)]
    for pattern, delay in moments:
        run = stage.start([os.path.join(ROOT, "scripts", "run")], env)
        run.wait_for(pattern)
        time.sleep(delay)
        run.send(signal.SIGTERM)
        assert run.wait(15) == 0, (pattern, delay)
        for name in ("zelvo", "zelvo-service", "zelvo-router", "screensharingd", "Xvfb"):
            assert not processes_named(name), (pattern, delay, name)


def command_lines(stage):
    """Every program answers the usual options, and names what it does not know."""
    for program in ("zelvo", "zelvo-service", "zelvo-router"):
        for option, status, output, error in [("-h", 0, "sage: " + program, ""),
                                              ("--help", 0, "sage: " + program, ""),
                                              ("--version", 0, program + " 1.", ""),
                                              ("--prot", 2, "", "unknown option: --prot\n")]:
            said = subprocess.run([os.path.join(stage.build, program), option],
                                  capture_output=True, text=True, timeout=10, check=False)
            assert said.returncode == status and output in said.stdout and error in said.stderr, said
            assert bool(said.stdout) == bool(output) and bool(said.stderr) == bool(error), said


def failures(stage):
    """Service or router missing asks the user; trying again and quitting work all the same."""
    command_lines(stage)
    stage.start_display()
    stage.make_certificate()
    service = stage.start_service()
    router = stage.start_router()

    # A router that is not there.
    router.end()
    zelvo = stage.start_application(service, router)
    zelvo.wait_for(r"^Port mapping: Port Mapping Error:$", 30)
    router = stage.start_router(router.port)
    stage.press_in_sheet("Return")
    zelvo.wait_for(r"^Port mapping: Port Mapping Successful\.$")
    link = zelvo.wait_for(r"^Link: zelvo://\S+$").group(0)

    # Killed as soon as it knows its link, it still owns it.
    zelvo.send(signal.SIGKILL)
    zelvo.wait(10)
    zelvo = stage.start_application(service, router)
    assert zelvo.wait_for(r"^Link: zelvo://\S+$", 30).group(0) == link

    # A second one would take the link back under the first when it quits.
    second = stage.start_application(service, router)
    assert second.wait(10) == 1

    # A service that has gone does not hold the quit, and the mapping goes all the same.
    service.end(signal.SIGKILL)
    begun = time.monotonic()
    zelvo.send(signal.SIGTERM)
    assert zelvo.wait(15) == 0
    assert time.monotonic() - begun < 5
    router.wait_for(r"^Deleted TCP")
    wait_until(lambda: not is_listening(VNC_PORT), 5, "Screen Sharing off")

    # A service that is not there.
    zelvo = stage.start_application(service, router)
    zelvo.wait_for(r"^Port mapping: Port Mapping Error:$", 30)
    service = stage.start_service(service.port)
    stage.press_in_sheet("Return")
    zelvo.wait_for(r"^Link: zelvo://\S+$")

    # Nobody who takes over the port of a server that has ended is published.
    for server in processes_named("screensharingd"):
        os.kill(server, signal.SIGKILL)
    zelvo.wait_for(r"^Port mapping: Applying Port Mapping\.\.\.$")
    zelvo.send(signal.SIGINT)
    assert zelvo.wait(15) == 0
    wait_until(lambda: not is_listening(VNC_PORT), 5, "Screen Sharing off")


def main():
    enter_own_network()
    build = os.path.abspath(sys.argv[1])
    scenarios = {"road": the_whole_road, "interruptions": interruptions, "failures": failures}
    for name, scenario in scenarios.items():
        if len(sys.argv) > 2 and name != sys.argv[2]:
            continue
        print(f"=== {name}: {scenario.__doc__.splitlines()[0]}", flush=True)
        with Stage(build) as stage:
            scenario(stage)
    print("The road is clear.")


if __name__ == "__main__":
    main()
