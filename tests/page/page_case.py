"""What the cases of the operator's page have in common."""

import os
import shutil
import sys
import unittest

SYSTEM_PYTHON = "/usr/bin/python3"
SKIPPED = 77

try:
    from browser import Browser
except ImportError:  # Debian's module is for Debian's interpreter.
    if os.path.exists(SYSTEM_PYTHON) and os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, "-B"] + sys.argv)
    print("skipped: python3-selenium is not installed; the page is not tested in a browser")
    sys.exit(SKIPPED)

import mock_station
from mock_station import now_us


def missing_tools():
    """What to say where there is no browser; empty where there is."""
    missing = [tool for tool in ("chromium", "chromedriver") if shutil.which(tool) is None]
    return f"skipped: {' and '.join(missing)} not installed; the page is not tested in a browser" if missing else ""


class PageCase(unittest.TestCase):
    browser: Browser

    def setUp(self):
        self.station = mock_station.Station().up()

    def tearDown(self):
        try:
            self.assertEqual(self.browser.complaints(), [])
        finally:
            self.browser.open("about:blank")
            self.station.down()

    def open(self):
        self.browser.open(self.station.address)
        self.wait(lambda: self.browser.text("#connection") == "Connected", "the page is connected")

    def wait(self, condition, what, seconds=5.0):
        return self.browser.wait(condition, what, seconds)

    def text(self, selector):
        return self.browser.text(selector)

    def word(self, site):
        return self.text(f'[data-site="{site}"] .word')

    def given(self, name):
        """The commands of that name that the station got."""
        return [command for command in self.station.commands if command["command"] == name]

    def wait_given(self, name, number=1):
        self.wait(lambda: len(self.given(name)) >= number, f"command {name}")
        return self.given(name)[-1]

    def ask(self, site, kind="choose", **more):
        self.station.site(site, state="ASKING", since=now_us(), todo="Answer the question.", serial="QB2601-0009",
                          question={"id": f"{site}-1", "kind": kind, "text": f"Question of {site}?", "askedAt": now_us()}
                          | ({"choices": ["red", "green"]} if kind == "choose" else {}) | more)
        self.browser.wait_text(f'[data-site="{site}"] .ask', f"Question of {site}?")

    def active(self):
        return self.browser.script("const a = document.activeElement; return a.id || a.className || a.tagName")
