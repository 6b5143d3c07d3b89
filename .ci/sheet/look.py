#!/usr/bin/env python3
"""Opens a page in headless Chromium and prints what a visitor would see, as JSON: the images that are
shown and those that are broken, what stands for images that are absent, and what the console tells.
With --screenshot FILE it takes a picture of it."""
import argparse
import base64
import contextlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import urllib.request

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--hide-scrollbars"]
LOOK = """
const done = arguments[arguments.length - 1];
const images = [...document.images];
images.forEach(image => image.loading = 'eager');
Promise.all(images.map(image => image.decode().catch(() => 0))).then(() => done({
    broken: images.filter(image => image.naturalWidth === 0).map(image => image.src),
    resized: images.filter(image => image.naturalWidth && (
        image.naturalWidth != image.getAttribute('width') ||
        image.naturalHeight != image.getAttribute('height'))).map(image => image.src),
    shown: images.filter(image => image.naturalWidth > 0).length,
    absent: [...document.querySelectorAll('.absent .frame')].map(frame => frame.innerText),
    wide: document.documentElement.scrollWidth > innerWidth}));
"""


class Browser:
    """One session of chromedriver."""
    def __init__(self, driver, port, flags):
        self.address = f"http://127.0.0.1:{port}"
        self.wait_for(driver)
        self.address += "/session/" + self.call("/session", {"capabilities": {"alwaysMatch": {
            "browserName": "chrome", "goog:loggingPrefs": {"browser": "ALL"},
            "goog:chromeOptions": {"args": flags}}}})["sessionId"]

    def call(self, path, data=None):
        body = None if data is None else json.dumps(data).encode()
        request = urllib.request.Request(self.address + path, body,
                                         {"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=120) as answer:
            return json.load(answer)["value"]

    def wait_for(self, driver):
        while True:
            try:
                return self.call("/status")
            except OSError:
                if driver.poll() is not None:
                    raise
                time.sleep(0.1)


@contextlib.contextmanager
def browser(flags):
    with tempfile.TemporaryDirectory() as home:
        environment = {**os.environ, "HOME": home, "TMPDIR": home}
        with subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, encoding="utf-8", env=environment) as driver:
            try:
                lines = (line for line in driver.stdout if "started successfully on port" in line)
                port = next(lines).rstrip(".\n").split()[-1]
                session = Browser(driver, port, [*FLAGS, f"--user-data-dir={home}/profile", *flags])
                try:
                    yield session
                finally:
                    urllib.request.urlopen(urllib.request.Request(
                        session.address, method="DELETE"), timeout=60).close()
            finally:
                driver.terminate()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("--screenshot", type=pathlib.Path)
    parser.add_argument("--size", default="1200,900", help="of the window")
    parser.add_argument("--dark", action="store_true")
    options = parser.parse_args()
    flags = [f"--window-size={options.size}"]
    with browser(flags) as session:
        scheme = "dark" if options.dark else "light"
        session.call("/goog/cdp/execute", {"cmd": "Emulation.setEmulatedMedia", "params": {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]}})
        session.call("/url", {"url": options.page.resolve().as_uri()})
        seen = session.call("/execute/async", {"script": LOOK, "args": []})
        if options.screenshot:
            options.screenshot.write_bytes(base64.b64decode(session.call("/screenshot")))
        seen["console"] = [entry["message"] for entry in
                           session.call("/se/log", {"type": "browser"})]
    json.dump(seen, sys.stdout, sort_keys=True)
    print()


if __name__ == "__main__":
    main()
