"""A browser without a window. The browser's debugging protocol controls the browser through pipes."""

import base64
import json
import os
import select
import subprocess
import time


class Browser:
    TIMEOUT = 60

    def __init__(self, profile):
        commands, self.commands = os.pipe()
        self.answers, answers = os.pipe()
        self.process = subprocess.Popen(
            ["bash", "-c", f'exec "$@" 3<&{commands} 4>&{answers}', "bash", "chromium",
             "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", "--disable-background-networking", "--hide-scrollbars",
             "--remote-debugging-pipe", f"--user-data-dir={profile}", "about:blank"],
            pass_fds=(commands, answers), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.unread = b""
        self.events = []
        self.count = 0
        self.session = None  # the tab for the next command; None: the browser itself

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.commands)
        os.close(self.answers)

    def ask(self, method, **parameters):
        self.count += 1
        message = {"id": self.count, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.commands, json.dumps(message).encode() + b"\0")
        return self.wait_for(lambda answer: answer.get("id") == self.count)["result"]

    def wait_for(self, matches):
        """Reads up to the message that matches; events on the way are kept."""
        deadline = time.monotonic() + self.TIMEOUT
        while True:
            while b"\0" not in self.unread:
                if not select.select([self.answers], [], [], deadline - time.monotonic())[0]:
                    raise TimeoutError("the browser does not answer")
                data = os.read(self.answers, 1 << 16)
                if not data:
                    raise EOFError("the browser has ended")
                self.unread += data
            line, _, self.unread = self.unread.partition(b"\0")
            message = json.loads(line)
            if "method" in message and message.get("sessionId") == self.session:
                self.events.append(message)
            if matches(message):
                return message

    def happened(self, method):
        return [event["params"] for event in self.events if event["method"] == method]

    def open(self, url):
        """Opens a page and waits until it and all it asks for is loaded, or is not. It gets a new
        tab, where no message of an earlier page can arrive."""
        self.session = None
        target = self.ask("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.ask("Target.attachToTarget", targetId=target,
                                flatten=True)["sessionId"]
        self.events.clear()
        for domain in ("Page", "Network", "Log", "Runtime"):
            self.ask(domain + ".enable")
        self.ask("Page.navigate", url=url)
        while not self.happened("Page.loadEventFired") or self.unfinished():
            self.wait_for(lambda message: "method" in message)

    def unfinished(self):
        """The requests that have not ended yet."""
        asked, finished, failed = (
            {event["requestId"] for event in self.happened("Network." + method)}
            for method in ("requestWillBeSent", "loadingFinished", "loadingFailed"))
        return asked - finished - failed

    def evaluate(self, expression):
        return self.ask("Runtime.evaluate", expression=expression,
                        returnByValue=True)["result"].get("value")

    def screenshot(self, width, height):
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=height,
                 deviceScaleFactor=2, mobile=False)
        return base64.b64decode(self.ask("Page.captureScreenshot", format="png")["data"])
