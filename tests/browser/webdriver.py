"""A headless Chromium, driven through chromedriver's HTTP interface (W3C WebDriver)."""

import base64
import json
import os
import re
import subprocess
import time
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of an element's id in answers, as the standard fixes it


class Browser:
    """One browser with one page. Use it as a context manager."""

    def __enter__(self):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True)
        port = None
        for line in self.driver.stdout:
            port = re.search(r"started successfully on port (\d+)", line)
            if port:
                break
        if not port:
            raise RuntimeError("chromedriver did not start")
        self.url = f"http://127.0.0.1:{port[1]}/session"
        arguments = ["--headless=new", "--window-size=1280,860", "--disable-gpu", "--hide-scrollbars",
                     "--disable-dev-shm-usage", "--force-color-profile=srgb"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")  # Chromium has no sandbox for root
        wanted = {"browserName": "chrome", "goog:chromeOptions": {"args": arguments},
                  "goog:loggingPrefs": {"browser": "ALL"}}
        try:
            session = self.call("POST", "", {"capabilities": {"alwaysMatch": wanted}})
        except Exception:
            self.driver.terminate()
            raise
        self.url += "/" + session["sessionId"]
        return self

    def __exit__(self, *_):
        try:
            self.call("DELETE", "")
        finally:
            self.driver.terminate()
            self.driver.wait()

    def call(self, method, path, body=None):
        request = urllib.request.Request(self.url + path, method=method,
                                         data=None if body is None else json.dumps(body).encode(),
                                         headers={"Content-Type": "application/json"})
        # The environment's proxy is not for this machine.
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def open(self, file):
        self.call("POST", "/url", {"url": "file://" + os.path.abspath(file)})

    def run(self, script, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def find(self, css):
        return self.call("POST", "/element", {"using": "css selector", "value": css})[ELEMENT]

    def click(self, css):
        self.call("POST", f"/element/{self.find(css)}/click", {})

    def type(self, css, text):
        # Control and A, Control up, Backspace: what stands there goes as a user takes it away.
        self.call("POST", f"/element/{self.find(css)}/value", {"text": "\ue009a\ue009\ue003" + text})

    def press(self, css, key="\ue007"):
        """A key, Enter if none is named, with the keyboard on an element."""
        self.run("document.querySelector(arguments[0]).focus()", css)
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": [
            {"type": "keyDown", "value": key}, {"type": "keyUp", "value": key}]}]})

    def resize(self, width, height):
        self.call("POST", "/window/rect", {"width": width, "height": height})

    def screenshot(self, file):
        with open(file, "wb") as image:
            image.write(base64.b64decode(self.call("GET", "/screenshot")))

    def messages(self):
        """What the page wrote to its console since the last call, errors of scripts included."""
        return self.call("POST", "/se/log", {"type": "browser"})

    def wait(self, condition, what):
        """Waits until `condition()` answers something true, and answers that."""
        end = time.monotonic() + 20
        while time.monotonic() < end:
            value = condition()
            if value:
                return value
            time.sleep(0.05)
        raise AssertionError(f"waited in vain for {what}")
