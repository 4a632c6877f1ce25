#!/usr/bin/env python3
"""station_test.py --quillon PROGRAM --with-vault SCRIPT --bundle FOLDER --tester-config FILE

The operator's page in a real browser, in front of a real station with the example's plug-in: devices from scan to verdict,
questions, and a host that is killed in the middle of a device. Without a browser the exit status is 77.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

from page_case import SKIPPED, missing_tools

from browser import Browser

PROGRAM = "quillon"
ADDRESS = re.compile(r"http://[\d.]+:(\d+)/")


def children_of(pid):
    tasks = Path(f"/proc/{pid}/task")
    return [int(child) for task in tasks.iterdir() for child in (task / "children").read_text().split()]


class RealStation:
    """`quillon serve` in a folder of its own. Its port stays the same from start to start."""

    def __init__(self, options, flow):
        self.options, self.flow = options, flow
        self.folder = tempfile.mkdtemp(prefix="quillon-station-")
        self.port = 0
        self.printed = []

    def start(self):
        self.process = subprocess.Popen(
            [self.options.with_vault, "--file", self.options.tester_config, self.options.quillon, "serve",
             self.options.bundle, "--flow", self.flow, "--listen", f"127.0.0.1:{self.port}", "--log-dir", self.folder],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        for line in self.process.stdout:
            self.printed.append(line)
            found = ADDRESS.search(line)
            if found:
                self.port = int(found[1])
                break
        else:
            raise AssertionError("".join(self.printed))
        self.reader = threading.Thread(target=self._read, args=(self.process.stdout,), daemon=True)
        self.reader.start()
        return self

    def _read(self, output):
        with output:
            self.printed.extend(output)

    @property
    def address(self):
        return f"http://127.0.0.1:{self.port}/"

    def host(self):
        """The process id of the host: the first of its name below the script that started it."""
        level = [self.process.pid]
        while level:
            for pid in level:
                if Path(f"/proc/{pid}/comm").read_text().strip() == PROGRAM:
                    return pid
            level = [child for pid in level for child in children_of(pid)]
        raise AssertionError("there is no host")

    def kill(self):
        os.kill(self.host(), signal.SIGKILL)
        self.process.wait(20)
        self.reader.join(20)

    def stop(self):
        """Ends the station, politely as long as that helps."""
        if self.process.poll() is None:
            for _ in range(2):  # The second one ends tests that wait for an answer.
                try:
                    os.kill(self.host(), signal.SIGTERM)
                    self.process.wait(10)
                    break
                except subprocess.TimeoutExpired:
                    continue
                except (AssertionError, OSError):
                    break
            else:
                self.kill()
            self.process.wait(20)
        self.reader.join(20)
        shutil.rmtree(self.folder, ignore_errors=True)


class StationTest(unittest.TestCase):
    browser: Browser
    options: argparse.Namespace

    def setUp(self):
        self.stations = []

    def tearDown(self):
        self.browser.open("about:blank")
        for station in self.stations:
            station.stop()

    def serve(self, flow):
        station = RealStation(self.options, flow)
        self.stations.append(station)
        station.start()
        self.browser.open(station.address)
        self.wait_word("left", "EMPTY")
        self.wait_word("right", "EMPTY")
        return station

    def wait_word(self, site, *words):
        self.browser.wait(lambda: self.browser.text(f'[data-site="{site}"] .word') in words, f"{site} is {words}", 20)

    def answer(self, site, question, choice):
        self.browser.wait_text(f'[data-site="{site}"] .ask', question, 20)
        self.browser.press(f'[data-site="{site}"] .choice:nth-of-type({choice})')

    def test_two_sites_from_scan_to_verdict(self):
        self.serve("main")
        # By their labels, for a device is quick.
        for text in ("left", "QB2601-0001", "right", "QB2601-0002"):
            self.browser.scan(text)
        for site in ("left", "right"):
            self.wait_word(site, "PASS")
        self.assertIn("QB2601-0001", self.browser.text('[data-site="left"] .serial'))
        self.browser.wait_text("#today", "Today 2 · 2 passed · yield 100.0 %")
        self.browser.press('[data-site="right"] .do-details')
        self.browser.wait_text(".run-title", "QB2601-0002")
        rows = self.browser.wait(lambda: self.browser.text(".rows"), "the rows")
        for part in ["Power up", "Idle current", "Attempt 2", "superseded", "PASS"]:
            self.assertIn(part, rows)
        self.browser.press("#show-technician")
        self.browser.wait(lambda: len(self.browser.text(".log")) > 0, "the running log")
        self.browser.wait(lambda: len(self.browser.text(".instruments tbody")) > 0, "the instruments")
        self.assertEqual(self.browser.complaints(), [])

    def test_questions_and_a_host_that_is_killed(self):
        station = self.serve("looks")
        self.browser.scan("QB2601-0001")
        self.browser.scan("QB2601-0002")
        self.answer("left", "power LED", 1)
        self.answer("right", "power LED", 1)
        self.answer("left", "status LED", 2)
        self.answer("right", "status LED", 4)
        self.wait_word("left", "PASS")
        self.wait_word("right", "FAIL")
        self.browser.wait_text('[data-site="right"] .failure', "status LED")

        self.browser.scan("QB2601-0003")
        self.browser.wait_text('[data-site="left"] .ask', "power LED", 20)
        station.kill()
        killed = time.monotonic()
        self.browser.wait_text("#old", "OLD since")
        self.assertLess(time.monotonic() - killed, 4.5)
        station.start()
        self.wait_word("left", "EMPTY", "UNSAFE")
        self.browser.wait(lambda: self.browser.text("#old") == "", "right again")
        self.browser.press("#show-history")
        self.browser.wait_text(".runs", "INCOMPLETE")
        self.browser.wait_text('.runs tr[data-verdict="FAIL"]', "Looks / status LED: is the LED the right way round?")
        self.browser.wait_text("#notices", "QB2601-0003")
        self.browser.scan("QB2601-0004")
        self.browser.wait_text(".tile .ask", "power LED", 20)
        self.assertEqual(self.browser.complaints(), [])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("--quillon", "--with-vault", "--bundle", "--tester-config"):
        parser.add_argument(option, required=True, type=os.path.abspath)
    StationTest.options, names = parser.parse_known_args()
    missing = missing_tools()
    if missing:
        print(missing)
        return SKIPPED
    with Browser() as StationTest.browser:
        program = unittest.main(argv=[sys.argv[0], "-v", *[f"StationTest.{name}" for name in names]], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
