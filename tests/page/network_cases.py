"""A station that is away, comes back, or does not answer."""

import time

from page_case import PageCase


class NetworkCases(PageCase):
    def test_station_gone_and_back(self):
        self.station.test_seconds = 1.0
        self.open()
        self.browser.scan("QB2601-0001")
        self.wait(lambda: self.word("left") == "RUNNING", "it runs")
        self.station.down()
        gone = time.monotonic()
        self.browser.wait_text("#old", "OLD since")
        self.assertIn("(3 s)", self.text("#old"))
        self.assertGreater(time.monotonic() - gone, 1.5)
        self.assertIn("grayscale", self.browser.script("return getComputedStyle(document.getElementById('middle')).filter"))
        self.assertEqual(self.text("#connection"), "No connection")
        elapsed = self.text('[data-site="left"] .device-time')
        self.browser.scan("QB2601-0002")
        self.browser.wait_text("#strip.refused", "QB2601-0002 not taken: there is no connection")
        self.assertEqual(self.text('[data-site="left"] .device-time'), elapsed)
        old_token = self.station.token
        self.station.restart()
        self.station.up()
        self.wait(lambda: self.text("#connection") == "Connected" and self.text("#old") == "", "right again")
        self.assertEqual(self.word("left"), "EMPTY")
        self.assertNotEqual(old_token, self.station.token)
        self.browser.scan("QB2601-0003")
        self.wait(lambda: self.word("left") == "RUNNING", "the new token is taken")
        self.assertEqual([scan["text"] for scan in self.given("scan")], ["QB2601-0001", "QB2601-0003"])

    def test_page_of_another_version_comes_by_itself(self):
        self.open()
        self.browser.script("window.fromBefore = true")
        self.station.restart()
        self.station.state["station"]["version"] = "0.2.0"
        self.station.tell_all()
        self.wait(lambda: not self.browser.script("return window.fromBefore"), "a new page")
        self.browser.wait_text("#connection", "Connected")

    def test_station_falls_silent(self):
        self.open()
        self.station.silent = True
        self.browser.wait_text("#old", "OLD since")
        self.station.silent = False
        self.wait(lambda: self.text("#old") == "", "right again")

    def test_connection_continues_where_it_was(self):
        self.open()
        self.station.down()
        self.station.patch({"sites": {"left": {"state": "DISABLED", "reason": "bent pin"}}})
        self.station.up()
        self.wait(lambda: self.word("left") == "DISABLED", "what was missed")

    def test_answer_that_is_lost(self):
        self.station.lost_answers = 2
        self.station.test_seconds = 0.02
        self.open()
        self.browser.scan("QB2601-0001")
        self.browser.wait_text("#strip.accepted", "QB2601-0001 → left")
        self.assertEqual(len(self.given("scan")), 1)
