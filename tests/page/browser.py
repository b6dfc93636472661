"""A browser without a window, driven as the WebDriver protocol has it."""

import base64
import contextlib
import json
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"


class Browser:
    """Chromium, which takes any certificate, since authorities of a test are none of its own."""

    def __init__(self, stage, language="en", *options, prefix=(), network=contextlib.nullcontext):
        """The prefix brings it into another network, and `network` those who speak to it there."""
        self.network = network
        arguments = ["--headless=new", "--no-sandbox", "--disable-gpu", "--ignore-certificate-errors", "--no-first-run",
                    "--disable-dev-shm-usage",
                    "--disable-background-networking", "--window-size=1100,800", f"--accept-lang={language}",
                    f"--user-data-dir={stage.path('browser-' + language)}", *options]
        driver = stage.start(["chromedriver", "--port=0"], prefix=prefix)
        port = driver.wait_for(r"started successfully on port (\d+)").group(1)
        self.root = f"http://127.0.0.1:{port}/session"
        wishes = {"goog:chromeOptions": {"args": arguments}, "goog:loggingPrefs": {"browser": "ALL"}}
        self.root += "/" + self.say("", {"capabilities": {"alwaysMatch": wishes}})["sessionId"]

    def say(self, path, what=None, method="POST"):
        request = urllib.request.Request(self.root + path, json.dumps(what or {}).encode() if method == "POST" else
                                         None, {"Content-Type": "application/json"}, method=method)
        try:
            with self.network(), urllib.request.urlopen(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise AssertionError(error.read().decode()[:500]) from None

    def open(self, url):
        self.say("/url", {"url": url})

    def run(self, script, *values):
        return self.say("/execute/sync", {"script": script, "args": values})

    def text(self, name):
        return self.run("return document.getElementById(arguments[0]).innerText", name)

    def stage(self):
        return self.run("return document.body.dataset.stage + ' ' + (document.body.dataset.ending ?? '')").strip()

    def element(self, css):
        return self.say("/element", {"using": "css selector", "value": css})[ELEMENT]

    def click(self, css):
        self.say(f"/element/{self.element(css)}/click")

    def type(self, css, text):
        self.say(f"/element/{self.element(css)}/value", {"text": text})

    def strike(self, text):
        """Keys as a keyboard has them that has every character; what `type` says of others is no key."""
        for character in text:
            key = {"\n": {"key": "Enter", "code": "Enter", "windowsVirtualKeyCode": 13}}.get(character, {"key": character})
            for kind in ("rawKeyDown", "keyUp"):
                self.say("/goog/cdp/execute", {"cmd": "Input.dispatchKeyEvent", "params": {"type": kind, **key}})

    def tap(self, x, y):
        """A finger on the window, and off it."""
        steps = [{"type": "pointerMove", "x": x, "y": y, "duration": 0}, {"type": "pointerDown", "button": 0},
                 {"type": "pause", "duration": 50}, {"type": "pointerUp", "button": 0}]
        self.say("/actions", {"actions": [{"type": "pointer", "id": "finger", "actions": steps,
                                           "parameters": {"pointerType": "touch"}}]})

    def complaints(self):
        """Failures of the page, and breaks of its own policy."""
        return [line["message"] for line in self.say("/se/log", {"type": "browser"}) if line["level"] == "SEVERE"]

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.say("/screenshot", method="GET")))

    def quit(self):
        self.say("", method="DELETE")
