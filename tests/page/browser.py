"""A Chromium of its own, driven through its driver, and keys as a scanner gives them."""

import shutil
import tempfile
import time
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
         "--hide-scrollbars", "--force-device-scale-factor=1", "--disable-extensions", "--disable-default-apps"]
KEYS = {"Enter": (13, "\r"), "Tab": (9, ""), "Escape": (27, "")}  # virtual key code and what it types
WIDTH, HEIGHT = 1280, 800


class Browser:
    """One session. Use it with `with`: the browser, its driver and its folder go in any case."""

    def __enter__(self):
        self.last_key = 0.0
        self.profile = tempfile.mkdtemp(prefix="quillon-page-")
        options = Options()
        options.binary_location = shutil.which("chromium")
        for flag in FLAGS + [f"--user-data-dir={self.profile}"]:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        try:
            self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
            self.driver.set_script_timeout(15)
            self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": WIDTH, "height": HEIGHT, "deviceScaleFactor": 1, "mobile": False})
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        driver = getattr(self, "driver", None)
        if driver is not None:
            try:
                driver.quit()
            finally:
                service = driver.service.process
                if service is not None and service.poll() is None:
                    service.kill()
        shutil.rmtree(self.profile, ignore_errors=True)

    # Pages

    def open(self, address):
        self.driver.get(address)

    def script(self, text, *arguments):
        return self.driver.execute_script(text, *arguments)

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        """What is shown there; empty when nothing is."""
        return self.script("const found = document.querySelector(arguments[0]);"
                           "return found && found.checkVisibility() ? found.innerText : ''", selector)

    def press(self, selector):
        self.find(selector).click()

    def wait(self, condition, what, seconds=5.0):
        """Waits until `condition()` is true and returns what it gave."""
        until = time.monotonic() + seconds
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > until:
                raise AssertionError(f"not within {seconds} s: {what}")
            time.sleep(0.02)

    def wait_text(self, selector, part, seconds=5.0):
        return self.wait(lambda: part in self.text(selector), f"{selector} shows {part!r}: {self.text(selector)!r}", seconds)

    def picture(self, file: Path):
        self.driver.save_screenshot(str(file))

    def complaints(self):
        """What the page's console has said since the last call, other than about a network that was away."""
        return [entry["message"] for entry in self.driver.get_log("browser")
                if entry["level"] in ("SEVERE", "WARNING") and "net::ERR" not in entry["message"]
                and "Failed to load resource" not in entry["message"]]

    # Keys

    def keys(self, keys, apart):
        """Gives keys with `apart` ms between them, by the clock of input events, some time after the keys before."""
        at = max(time.time(), self.last_key + 0.1)
        for index, key in enumerate(keys):
            code, text = KEYS[key] if key in KEYS else (ord(key.upper()) if key.isalnum() else 0, key)
            event = {"key": key, "windowsVirtualKeyCode": code, "timestamp": at + index * apart / 1000}
            self.driver.execute_cdp_cmd("Input.dispatchKeyEvent", event | {
                "type": "keyDown" if text else "rawKeyDown"} | ({"text": text} if text else {}))
            self.last_key = event["timestamp"]
            event["timestamp"] += 0.001
            self.driver.execute_cdp_cmd("Input.dispatchKeyEvent", event | {"type": "keyUp"})

    def scan(self, text, end="Enter", apart=5):
        self.keys(list(text) + [end], apart)

    def type(self, text, apart=80):
        self.keys(list(text), apart)
