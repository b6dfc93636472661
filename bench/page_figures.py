#!/usr/bin/env python3
"""What a helper with only a browser waits for, over a real relay to the real screen server.

usage: page_figures.py BUILD_FOLDER
"""

import os
import statistics
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
for room in ("support", "relay", "page"):
    sys.path.insert(0, os.path.join(HERE, "..", "tests", room))
from figures import finish, show  # noqa: E402
from gate import CONTROL, QUESTION, REPLY  # noqa: E402
from page_test import Scene  # noqa: E402
from stage import Stage, enter_own_network, skip_where_missing, wait_until  # noqa: E402

RUNS = 7
KEYS = 60
# Whoever asks has a name at hand, so that it is the machine that is measured.
ASK_AT_ONCE = """addEventListener("DOMContentLoaded", () => {
    const watch = setInterval(() => {
        const form = document.getElementById("ask");
        if (!form || form.hidden)
            return;
        clearInterval(watch);
        document.getElementById("name").value = "Ana";
        form.requestSubmit();
    }, 1);
});"""
# From the key's event to a canvas that shows what it did.
STRIKE = """const [count, done] = arguments;
const canvas = document.querySelector("#screen canvas");
const color = () => canvas.getContext("2d").getImageData(8, 8, 1, 1).data.join();
const pause = (time) => new Promise((wake) => setTimeout(wake, time));
(async () => {
    const times = [];
    while (times.length < count) {
        const before = color();
        const begun = performance.now();
        for (const kind of ["keydown", "keyup"])
            canvas.dispatchEvent(new KeyboardEvent(kind, {key: "x", code: "KeyX", bubbles: true}));
        while (color() === before && performance.now() < begun + 2000)
            await pause(1);
        times.push(performance.now() - begun);
        // At any time of the server's rhythm.
        await pause(100 + Math.random() * 50);
    }
    done(times);
})();"""


def time_to_question(scene):
    browser, before = scene.browser, scene.zelvo.count(QUESTION)
    browser.open("about:blank")
    # The relay has to see that the page before is gone, since few come in from one place.
    time.sleep(1)
    begun = time.monotonic()
    opening = threading.Thread(target=browser.open, args=(scene.url(scene.link),))
    opening.start()
    while scene.zelvo.count(QUESTION) == before:
        if time.monotonic() > begun + 10:
            raise AssertionError(f"no question, but {browser.stage()}")
        time.sleep(0.001)
    took = (time.monotonic() - begun) * 1000
    opening.join()
    return took


def main():
    skip_where_missing("chromium", "chromedriver", "xsetroot")
    enter_own_network()
    print(f"load of the machine before: {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores")
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        size = os.path.getsize(os.path.join(stage.build, "page.html.gz")) / 1024
        scene = Scene(stage, None)
        stage.start([os.path.join(stage.build, "zelvo-bench-screen")], scene.env, takes_input=True)
        scene.browser.say("/goog/cdp/execute", {"cmd": "Page.addScriptToEvaluateOnNewDocument",
                                                "params": {"source": ASK_AT_ONCE}})
        questions = [time_to_question(scene) for _ in range(RUNS)]
        requests = scene.browser.run("return performance.getEntriesByType('resource')"
                                     ".filter((e) => e.name.startsWith('http')).length")
        wait_until(lambda: scene.browser.stage() == "asked", 5, "the question in the page")
        scene.zelvo.send(REPLY, scene.question()[0] + bytes([CONTROL]))
        scene.reaches("inside")
        wait_until(scene.pixel, 10, "the picture")
        time.sleep(2)
        scene.browser.say("/timeouts", {"script": 120000})
        keys = scene.browser.say("/execute/async", {"script": STRIKE, "args": [KEYS]})
        scene.browser.quit()
    show("the page, compressed", size, "KB", 130)
    show("requests beside it", requests, "", 1)
    show("from opening the page to the question", statistics.median(questions), "ms", 500)
    show("key to picture in the browser", statistics.median(keys), "ms", 45)
    print(f"of {KEYS} keys 95 in 100 within {sorted(keys)[KEYS * 95 // 100]:.0f} ms")
    print(f"load of the machine after: {os.getloadavg()[0]:.1f}")
    finish()


if __name__ == "__main__":
    main()
