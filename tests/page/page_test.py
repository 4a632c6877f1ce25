#!/usr/bin/env python3
"""page_test.py [CASE...]

The operator's page in a real browser, against a station that shows whatever a case needs. Without a browser nothing is
tested, and the exit status is 77.
"""

import os
import shutil
import sys
import time
import unittest

SYSTEM_PYTHON = "/usr/bin/python3"
SKIPPED = 77

try:
    from browser import HEIGHT, WIDTH, Browser
except ImportError:  # Debian's module is for Debian's interpreter.
    if os.path.exists(SYSTEM_PYTHON) and os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, "-B"] + sys.argv)
    print("skipped: python3-selenium is not installed")
    sys.exit(SKIPPED)

import mock_station
from mock_station import FILES, now_us

STATES = ["EMPTY", "READY", "WAITING", "RUNNING", "ASKING", "STOPPING", "SAVING", "PASS", "FAIL", "BROKEN OFF", "UNSAFE",
          "DISABLED", "NOT AVAILABLE", "ENDED"]
HOSTILE = '<img src=x onerror="window.hacked=1"><script>window.hacked=1</script>&amp;'

# The contrast of an element's writing with what is behind it, by the rule of WCAG 2.
CONTRAST = """
const parts = (colour) => colour.match(/[\\d.]+/g).map(Number);
const light = (colour) => {
  const [r, g, b] = parts(colour).map((c) => { c /= 255; return c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4; });
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const behind = (element) => {
  for (let e = element; e; e = e.parentElement) {
    const colour = getComputedStyle(e).backgroundColor;
    if (parts(colour)[3] !== 0) return colour;
  }
  return "rgb(255, 255, 255)";
};
const contrast = (element) => {
  const a = light(getComputedStyle(element).color), b = light(behind(element));
  return (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
};
"""


class PageTest(unittest.TestCase):
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

    # Start

    def test_paints_at_once_and_is_small(self):
        self.open()
        paints = []
        for _ in range(3):  # Something else may keep this computer busy once.
            paints += self.browser.script("return performance.getEntriesByName('first-contentful-paint')"
                                          ".map((paint) => paint.startTime)")
            self.open()
        self.assertLess(min(paints), 500)
        self.assertLess(sum(file.stat().st_size for file in FILES.iterdir()), 300_000)
        loaded = self.browser.script("return performance.getEntriesByType('resource').map((entry) => entry.name)")
        self.assertGreater(len(loaded), 5)
        self.assertEqual([name for name in loaded if not name.startswith(self.station.address)], [])

    # Devices

    def test_two_sites_from_scan_to_verdict(self):
        self.station.test_seconds = 0.7
        self.open()
        self.browser.scan("QB2601-0001")
        self.browser.scan("BAD2601-0002")
        self.wait(lambda: self.word("left") == self.word("right") == "RUNNING", "both run at once")
        self.browser.wait_text('[data-site="left"] .test-name', "2 of 3 Idle current")
        self.browser.wait_text('[data-site="left"] .last', "VREF")
        self.assertIn("2.512 V", self.text('[data-site="left"] .last'))
        self.assertIn("2.4 … 2.6", self.text('[data-site="left"] .last'))
        self.wait(lambda: (self.word("left"), self.word("right")) == ("PASS", "FAIL"), "both verdicts")
        self.assertIn("QB2601-0001", self.text('[data-site="left"] .serial'))
        self.assertIn("2.71 is above 2.6", self.text('[data-site="right"] .failure'))
        self.assertIn("Scan the next one", self.text('[data-site="right"] .todo'))
        self.browser.wait_text("#today", "Today 2 · 1 passed · yield 50.0 %")
        spoken = self.browser.script("return document.getElementById('spoken').textContent")
        self.assertIn("right: FAIL. Voltages / VREF: 2.71 is above 2.6", spoken)
        self.assertIn("left: PASS", spoken)

    def test_last_devices_with_all_rows(self):
        self.station.test_seconds = 0.02
        self.open()
        self.browser.scan("BAD2601-0002")
        self.wait(lambda: self.word("left") == "FAIL", "a verdict")
        self.browser.press("#show-history")
        self.browser.wait_text(".runs", "BAD2601-0002")
        self.browser.press(".runs .link")
        self.browser.wait_text(".rows", "3. Voltages")
        failed = self.text('.rows tr[data-verdict="FAIL"]:not(.step)')
        for part in ["3.1", "VREF", "2.71 V", "2.4 … 2.6", "FAIL"]:
            self.assertIn(part, failed)
        self.assertIn("Voltages / VREF: 2.71 V", self.text(".run .facts-list"))
        self.assertEqual(len(self.browser.script("return [...document.querySelectorAll('.rows tbody')]")), 3)

    def test_label_then_device(self):
        self.station.patch({"station": {"scan": "site"}})
        self.station.test_seconds = 0.02
        self.open()
        self.browser.wait_text("#strip-text", "Scan the label of a site")
        self.browser.scan("right")
        self.browser.wait_text("#strip-text", "Site right: now scan its device.")
        self.browser.scan("QB2601-0003")
        self.wait(lambda: self.word("right") == "PASS", "the labelled site tests")
        self.assertEqual(self.word("left"), "EMPTY")

    def test_refused_scan_says_why(self):
        self.station.refusals["scan"] = "X17 is no serial number of this product"
        self.open()
        self.browser.scan("X17")
        self.browser.wait_text("#strip.refused", "X17 not taken: X17 is no serial number of this product")
        self.assertGreaterEqual(float(self.browser.script(
            "return parseFloat(getComputedStyle(document.getElementById('strip-text')).fontSize)")), 22)
        self.wait(lambda: "refused" not in self.browser.find("#strip").get_attribute("class"), "the banner goes", 6)
        self.station.patch({"notices": [{"id": 1, "at": now_us(), "kind": "warning", "text": "The disk is almost full."}]})
        self.browser.wait_text("#notices", "The disk is almost full.")
        self.browser.press("#notices button")
        self.browser.wait_text("#panel", "X17 is no serial number")

    def test_station_that_cannot_test(self):
        self.station.patch({"station": {"state": "broken", "problem": {
            "text": "The plug-in cannot be loaded.", "advice": "Mend it, then load it again."}}})
        self.station.refusals["reload"] = "it is being loaded"
        self.open()
        self.assertEqual(self.text("#strip-text"), "Scan nothing now.")
        self.browser.wait_text("#problem", "The plug-in cannot be loaded.")
        self.assertIn("Mend it, then load it again.", self.text("#problem"))
        self.browser.press("#problem button")
        self.browser.wait_text("#problem", "it is being loaded")
        self.station.patch({"station": {"state": "ready", "problem": None}})
        self.wait(lambda: self.text("#problem") == "", "the problem goes")
        self.assertEqual(self.text("#strip-text"), "Scan a device: the next free site takes it.")

    def test_reload_in_mid_run(self):
        self.station.test_seconds = 0.8
        self.open()
        self.browser.scan("QB2601-0001")
        self.wait(lambda: self.word("left") == "RUNNING", "it runs")
        self.browser.driver.refresh()
        self.browser.wait_text('[data-site="left"] .serial', "QB2601-0001")
        self.assertEqual(self.word("left"), "RUNNING")
        self.wait(lambda: self.word("left") == "PASS", "the verdict")

    # Questions

    def test_answer_on_one_of_two_pages(self):
        self.open()
        first = self.browser.driver.current_window_handle
        self.browser.driver.switch_to.new_window("tab")
        try:
            self.open()
            self.ask("left", image="/api/1/images/left?v=1")
            self.wait(lambda: self.browser.script("return document.querySelector('.ask-image').naturalWidth > 0"), "a picture")
            self.browser.driver.switch_to.window(first)
            self.browser.wait_text('[data-site="left"] .ask', "Question of left?")
            self.browser.press(".ask .choice:nth-of-type(2)")
            self.wait(lambda: self.text(".ask") == "", "the card goes")
            self.browser.driver.switch_to.window(self.browser.driver.window_handles[1])
            self.wait(lambda: self.text(".ask") == "" and self.word("left") == "RUNNING", "the other page learns it")
        finally:
            self.browser.driver.close()
            self.browser.driver.switch_to.window(first)
        answer = self.given("answer")
        self.assertEqual([(a["site"], a["question"], a["answer"]) for a in answer], [("left", "left-1", "green")])

    def test_digits_answer_the_only_question(self):
        self.open()
        self.ask("left")
        self.browser.type("2")
        self.assertEqual(self.wait_given("answer")["answer"], "green")

    def test_digits_answer_none_of_two_questions_before_one_is_chosen(self):
        self.open()
        self.ask("left")
        self.station.site("right", state="ASKING", since=now_us(), todo="Answer the question.",
                          question={"id": "right-1", "kind": "confirm", "text": "Ready?", "askedAt": now_us()})
        self.browser.wait_text('[data-site="right"] .ask', "Ready?")
        self.browser.type("1")
        time.sleep(0.2)
        self.assertEqual(self.given("answer"), [])
        self.browser.script("document.querySelector('[data-site=\"right\"] .choice').focus()")
        self.browser.type("1")
        answer = self.wait_given("answer")
        self.assertEqual((answer["site"], answer["answer"]), ("right", ""))

    def test_typed_answers_are_checked(self):
        self.open()
        self.ask("left", "number", low=1, high=5)
        self.browser.press(".ask-field")
        for wrong in ["much", "7"]:
            self.browser.script("document.querySelector('.ask-field').value = ''")
            self.browser.type(wrong)
            self.browser.keys(["Enter"], 0)
            self.browser.wait_text(".ask-problem", "from 1 to 5" if wrong == "7" else "number")
        self.assertEqual(self.given("answer"), [])
        self.browser.script("document.querySelector('.ask-field').value = ''")
        self.station.refusals["answer"] = "the question is over"
        self.browser.type("3.5")
        self.browser.keys(["Enter"], 0)
        self.assertEqual(self.wait_given("answer")["answer"], "3.5")
        self.browser.wait_text(".ask-problem", "the question is over")

    def test_question_that_goes_while_somebody_types(self):
        self.open()
        self.ask("left", "text")
        self.browser.press(".ask-field")
        self.browser.type("half")
        self.station.site("left", state="RUNNING", since=now_us(), todo="Wait.")
        self.browser.wait_text(".ask", "answered elsewhere")

    def test_focus_stays_where_somebody_types(self):
        self.open()
        self.browser.press("#number")
        self.browser.type("QB")
        self.ask("left", "text")
        self.ask("right", "text")
        mock_station.ended(self.station, "left", "QB2601-0009", "PASS")
        self.wait(lambda: self.word("left") == "PASS", "a verdict")
        self.assertEqual(self.active(), "number")
        self.browser.type("26")
        self.assertEqual(self.browser.find("#number").get_property("value"), "QB26")

    # Scanners

    def test_scan_beside_an_open_question(self):
        self.open()
        self.ask("left")
        self.browser.scan("1234567")
        self.assertEqual(self.wait_given("scan")["text"], "1234567")
        time.sleep(0.2)
        self.assertEqual(self.given("answer"), [])

    def test_scan_is_taken_out_of_fields(self):
        self.open()
        self.ask("left", "number", low=0, high=10**9)
        self.browser.press(".ask-field")
        self.browser.type("4")
        self.browser.scan("1234567")
        self.assertEqual(self.wait_given("scan")["text"], "1234567")
        self.assertEqual(self.browser.find(".ask-field").get_property("value"), "4")
        self.assertEqual(self.given("answer"), [])
        self.assertEqual(self.active(), "ask-field")
        self.browser.press("#number")
        self.browser.scan("QB2601-0007", end="Tab")
        self.wait_given("scan", 2)
        self.assertEqual(self.given("scan")[-1]["text"], "QB2601-0007")
        self.assertEqual(self.browser.find("#number").get_property("value"), "")
        self.assertEqual(self.active(), "BODY")

    def test_scan_for_a_chosen_text_field(self):
        self.open()
        self.ask("left", "text")
        self.browser.scan("QB2601-0007")
        self.assertEqual(self.wait_given("scan")["text"], "QB2601-0007")
        self.browser.press(".ask-field")
        self.browser.scan("MAC-0011")
        answer = self.wait_given("answer")
        self.assertEqual((answer["site"], answer["answer"]), ("left", "MAC-0011"))
        self.assertEqual(len(self.given("scan")), 1)

    def test_how_fast_a_scanner_is(self):
        self.open()
        self.browser.scan("QB1", apart=29)
        self.assertEqual(self.wait_given("scan")["text"], "QB1")
        self.browser.scan("QB2", apart=32)
        self.browser.scan("Q2", apart=5)
        self.browser.scan("QB3", apart=5)
        self.wait_given("scan", 2)
        self.assertEqual([scan["text"] for scan in self.given("scan")], ["QB1", "QB3"])

    def test_scan_presses_no_button(self):
        self.open()
        mock_station.running(self.station, "left", "QB2601-0009", 2, "Voltages", "2.5")
        self.wait(lambda: self.word("left") == "RUNNING", "it runs")
        for focused in ["#stop-now", '[data-site="left"] .do-stop', "#show-technician"]:
            self.browser.script("document.querySelector(arguments[0]).focus()", focused)
            self.browser.scan("A B 12")
            self.browser.keys(["A", " ", "Enter", "Enter"], 5)
        self.wait_given("scan", 3)
        time.sleep(0.2)
        self.assertEqual(len(self.given("scan")), 3)
        self.assertEqual(len(self.station.commands), 3)
        self.assertEqual(self.text("#confirm-stop") + self.text("#panel"), "")

    # The network

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

    # What a person presses

    def test_keyboard_alone(self):
        self.open()
        tab = lambda: self.browser.keys(["Tab"], 0)
        for _ in range(20):
            if self.active() == "number":
                break
            tab()
            style = self.browser.script("return getComputedStyle(document.activeElement).outlineStyle")
            self.assertEqual(style, "solid", self.active())
        self.assertEqual(self.active(), "number")
        self.station.test_seconds = 5
        self.browser.type("QB2601-0001")
        self.browser.keys(["Enter"], 0)
        self.wait(lambda: self.word("left") == "RUNNING", "it runs")
        self.assertEqual(self.active(), "BODY")
        self.browser.keys(["Enter"], 0)
        for _ in range(20):
            tab()
            if self.active() == "do-stop":
                break
        for text in ["Really stop?", "Stop"]:
            self.browser.keys(["Enter"], 0)
            self.browser.wait_text('[data-site="left"] .do-stop', text)
        self.assertEqual(self.wait_given("stop")["site"], "left")
        self.browser.script("document.getElementById('show-technician').focus()")
        self.browser.type(" ")
        self.browser.wait_text("#panel", "Running log")
        self.browser.keys(["Escape"], 0)
        self.wait(lambda: self.text("#panel") == "", "the panel closes")

    def test_stop_now_asks_first(self):
        self.open()
        self.browser.press("#stop-now")
        self.browser.wait_text("#confirm-stop", "ALL sites")
        self.assertEqual(self.given("stopNow"), [])
        self.browser.press("#confirm-stop .danger")
        self.wait_given("stopNow")
        self.wait(lambda: self.text("#confirm-stop") == "", "it closes")

    def test_unsafe_is_acknowledged_by_name(self):
        self.station.site("left", state="UNSAFE", since=now_us(), reason="the supply is on", todo="Make it safe by hand.")
        self.open()
        self.browser.wait_text('[data-site="left"]', "the supply is on")
        self.browser.press('[data-site="left"] .do-acknowledge')
        self.browser.keys(["Enter"], 0)
        self.assertEqual(self.given("acknowledge"), [])
        self.browser.type("Ann")
        self.browser.keys(["Enter"], 0)
        self.assertEqual(self.wait_given("acknowledge")["who"], "Ann")
        self.wait(lambda: self.word("left") == "EMPTY", "safe")

    def test_technician(self):
        self.station.patch({"instruments": [
            {"site": "left", "name": "meter", "class": "QLTScpiInstrument", "address": "/dev/ttyUSB0", "state": "lost",
             "problem": "no answer", "calibration": "overdue", "due": "2026-01-31"}]})
        self.open()
        self.browser.press("#show-technician")
        for part in ["/dev/ttyUSB0", "LOST", "no answer", "OVERDUE", "2026-01-31", "station: ready"]:
            self.browser.wait_text("#panel", part)
        self.station.write_log("something happened")
        self.browser.wait_text(".log", "something happened")
        self.browser.press('[data-kind="golden"]')
        self.browser.find(".tech .inline input").send_keys("monthly check")
        self.browser.press(".tech .inline .primary")
        self.browser.wait_text("#kind", "GOLDEN RUNS")
        self.assertEqual(self.given("mode")[0]["reason"], "monthly check")
        self.assertIn("monthly check", self.text("#kind"))
        self.browser.press('.site-row[data-site="right"] form button')
        self.browser.wait_text("#panel p[role=status]", "say why")
        self.browser.find('.site-row[data-site="right"] input').send_keys("bent pin")
        self.browser.press('.site-row[data-site="right"] form button')
        self.wait(lambda: self.word("right") == "DISABLED", "out of use")
        self.assertIn("bent pin", self.text('.tile[data-site="right"]'))
        self.browser.press('.site-row[data-site="right"] > button')
        self.wait(lambda: self.word("right") == "EMPTY", "back in use")
        self.browser.press('[data-kind="production"]')
        self.browser.press(".tech .inline .primary")
        self.browser.wait_text("#kind", "Production")

    # What it looks like

    def test_sixteen_sites_fit(self):
        mock_station.scene_sixteen(self.station)
        self.open()
        self.assert_fits(16)
        for number in (1, 5, 13):
            site = f"site-{number}"
            mock_station.running(self.station, site, "QB2601-0001", 2, "Connector", "2.5", state="ASKING", question={
                "id": site, "kind": "choose", "text": "Which?", "choices": ["a", "b"], "askedAt": now_us(),
                "image": "/api/1/images/site-1?v=1"})
        self.browser.wait_text("#questions", "3 questions")
        self.assert_fits(16)

    def test_every_number_of_sites_fits(self):
        self.open()
        for number in range(1, 17):
            self.station.restart([f"site-{each}" for each in range(1, number + 1)])
            for index, site in enumerate(self.station.state["order"]):
                state = STATES[(index + number) % len(STATES)]
                mock_station.running(self.station, site, f"QB2601-{index:04}", 3, "Voltages", "2.5", state=state,
                                     todo="Take the device out. Scan the next one.")
            self.station.down()
            self.station.up()
            self.wait(lambda: self.browser.script("return document.querySelectorAll('.tile').length") == number, "sites")
            self.assert_fits(number)

    def test_questions_fit_in_their_tiles(self):
        self.open()
        kinds = ["confirm", "choose", "text", "number"]
        for number in (1, 2, 4, 6):
            self.station.restart([f"site-{each}" for each in range(1, number + 1)])
            for index, site in enumerate(self.station.state["order"]):
                mock_station.running(self.station, site, "QB2601-0001", 2, "Connector", "2.5", state="ASKING", question={
                    "id": f"{number}-{site}", "kind": kinds[index % 4], "choices": ["green", "red", "it is off"],
                    "text": "Connect J4, the white connector at the right edge. " * 4, "low": 1, "high": 5,
                    "image": "/api/1/images/a?v=1", "askedAt": now_us(), "until": now_us() + 60_000_000})
            self.station.down()
            self.station.up()
            self.wait(lambda: self.browser.script("return document.querySelectorAll('.tile .ask').length") == number, "cards")
            self.assert_fits(number)
            cut = self.browser.script("""
return [...document.querySelectorAll(".tile")].flatMap((tile) => {
  const box = tile.querySelector(".tile-body").getBoundingClientRect();
  return [...tile.querySelectorAll(".ask-foot button, .ask-field, .ask-image")].filter((part) => {
    const own = part.getBoundingClientRect();
    return own.height < 20 || own.bottom > box.bottom || own.right > box.right;
  }).map((part) => tile.dataset.site + " " + part.className);
});""")
            self.assertEqual(cut, [], number)

    def assert_fits(self, number):
        self.assertEqual(self.browser.script("return [innerWidth, innerHeight]"), [WIDTH, HEIGHT])
        time.sleep(0.05)
        problems = self.browser.script("""
const out = [];
const root = document.documentElement;
if (root.scrollHeight > innerHeight || root.scrollWidth > innerWidth) out.push("the page scrolls");
const inside = (a, b) => a.left >= b.left - 1 && a.right <= b.right + 1 && a.top >= b.top - 1 && a.bottom <= b.bottom + 1;
const tiles = [...document.querySelectorAll(".tile")];
if (tiles.length !== arguments[0]) out.push(tiles.length + " tiles");
for (const tile of tiles) {
  const box = tile.getBoundingClientRect();
  if (!inside(box, { left: 0, top: 0, right: innerWidth, bottom: innerHeight })) out.push(tile.dataset.site + " is outside");
  for (const part of [".word", ".site", ".serial", ".todo", ".tile-buttons", ".test-name"]) {
    const found = tile.querySelector(part);
    const own = found.getBoundingClientRect();
    if (own.width > 0 && !inside(own, box)) out.push(`${tile.dataset.site} ${tile.dataset.state} ${part} is cut`);
    if ([".word", ".serial", ".site"].includes(part) && found.scrollWidth > found.clientWidth + 1) {
      out.push(`${tile.dataset.site} ${tile.dataset.state} ${part} is shortened`);
    }
  }
  const size = parseFloat(getComputedStyle(tile.querySelector(".word")).fontSize);
  if (size < (["NOT AVAILABLE", "BROKEN OFF"].includes(tile.dataset.state) ? 15 : 19)) out.push(`${tile.dataset.site}: a word of ${size} px`);
}
return out;""", number)
        self.assertEqual(problems, [])

    def test_every_state_is_told_apart_without_colour_and_readable(self):
        self.station.restart([f"site-{index}" for index in range(len(STATES))])
        for index, state in enumerate(STATES):
            mock_station.running(self.station, f"site-{index}", "QB2601-0001", 2, "Voltages", "2.5", state=state,
                                 reason="why it is so", firstFailure="Voltages / VREF", waitsFor="left holds meter")
        self.open()
        seen = self.browser.script(CONTRAST + """
return [...document.querySelectorAll(".tile")].map((tile) => ({
  state: tile.dataset.state, word: tile.querySelector(".word").innerText,
  symbol: tile.querySelector(".tile-head .symbol").dataset.symbol,
  drawn: tile.querySelector(".tile-head .symbol").getBoundingClientRect().width,
  large: Math.min(contrast(tile.querySelector(".word")), contrast(tile.querySelector(".site"))),
  small: [...tile.querySelectorAll(".tile-body *, .tile-foot *")].filter((e) => e.childElementCount === 0 && e.innerText
    && e.checkVisibility()).map((e) => [e.className, contrast(e)])
}));""")
        self.assertEqual([each["state"] for each in seen], STATES)
        self.assertEqual([each["word"] for each in seen], STATES)
        off = {"DISABLED", "NOT AVAILABLE"}  # Both take no device; the words say why.
        symbols = [each["symbol"] for each in seen if each["state"] not in off]
        self.assertEqual(len(set(symbols)), len(symbols))
        for each in seen:
            self.assertNotEqual(each["symbol"], "unknown")
            self.assertGreater(each["drawn"], 12)
            self.assertGreaterEqual(each["large"], 7, each["state"])
            self.assertGreater(len(each["small"]), 3)
            for name, contrast in each["small"]:
                self.assertGreaterEqual(contrast, 4.5, (each["state"], name))

    def test_the_rest_is_readable(self):
        mock_station.scene_question(self.station)
        self.station.refusals["scan"] = "why not"
        self.station.patch({"notices": [{"id": 1, "at": now_us(), "kind": "problem", "text": "Full.", "advice": "Empty it."}]})
        self.open()
        self.browser.scan("QB2601-0001")
        self.browser.wait_text("#strip.refused", "why not")
        for panel in ["#show-technician", "#show-history"]:
            self.browser.press(panel)
            self.browser.press("#stop-now")
            poor = self.browser.script(CONTRAST + """
return [...document.querySelectorAll("body *:not(script)")].filter((e) => [...e.childNodes].some((n) => n.nodeType === 3
  && n.data.trim()) && e.checkVisibility()).map((e) => [e.outerHTML.slice(0, 80), contrast(e)]).filter(([, c]) => c < 4.5);""")
            self.assertEqual(poor, [])

    def test_reduced_motion(self):
        self.ask_with_reduced_motion("no-preference", 1)
        self.ask_with_reduced_motion("reduce", 0)

    def ask_with_reduced_motion(self, value, moving):
        self.browser.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-reduced-motion", "value": value}]})
        self.open()
        self.ask("left")
        self.assertEqual(len(self.browser.script("return document.getAnimations().map((a) => a.animationName)"
                                                 ".filter((name) => name === 'asks')")), moving)

    # Texts from elsewhere

    def test_hostile_texts_are_texts(self):
        hostile = HOSTILE
        self.station.restart([hostile, "right"])
        mock_station.running(
            self.station, hostile, hostile, 1, hostile, hostile, state="ASKING", reason=hostile, waitsFor=hostile,
            firstFailure=hostile, todo=hostile, progress={"fraction": 0.5, "text": hostile},
            shown={"text": hostile, "image": "javascript:window.hacked=1"}, kind=hostile,
            question={"id": "q", "kind": "choose", "text": hostile, "choices": [hostile], "image": "https://127.0.0.1:1/x.png"})
        self.station.site("right", state=hostile, todo=hostile, verdict={"verdict": "FAIL", "serial": hostile})
        row = {"id": hostile, "site": hostile, "serial": hostile, "verdict": hostile, "startedAt": now_us(), "kind": hostile,
               "firstFailure": hostile, "operator": hostile, "message": hostile}
        self.station.patch({
            "station": {"name": hostile, "operator": hostile, "flow": hostile, "kind": hostile, "reason": hostile,
                        "problem": {"text": hostile, "advice": hostile}}, "recent": [row],
            "notices": [{"id": 1, "at": now_us(), "kind": hostile, "text": hostile, "advice": hostile}],
            "instruments": [{"site": hostile, "name": hostile, "class": hostile, "address": hostile, "state": hostile,
                             "problem": hostile, "calibration": hostile, "due": hostile}]})
        self.station.log = [hostile]
        self.station.run_rows["%3C"] = row
        self.station.refusals["scan"] = hostile
        self.open()
        self.browser.scan("QB2601-0001")
        self.browser.wait_text("#strip-text", hostile)
        self.browser.press("#show-technician")
        self.browser.wait_text(".log", hostile)
        self.browser.press("#show-history")
        self.browser.wait_text(".runs", hostile)
        for place in ["#station-name", ".tile .site", ".tile .todo", ".ask-text", "#notices", "#problem", "#kind"]:
            self.assertIn(hostile[:30].lower(), self.text(place).lower(), place)
        time.sleep(0.1)
        self.assertIsNone(self.browser.script("return window.hacked"))
        self.assertEqual(self.browser.script(
            "return [...document.images].map((image) => image.getAttribute('src')).filter((src) => src && src !== '/icon.svg')"), [])


def main():
    missing = [tool for tool in ("chromium", "chromedriver") if shutil.which(tool) is None]
    if missing:
        print(f"skipped: {' and '.join(missing)} not installed; the page is not tested in a browser")
        return SKIPPED
    with Browser() as PageTest.browser:
        names = [f"PageTest.{name}" for name in sys.argv[1:]]
        program = unittest.main(argv=[sys.argv[0], "-v", *names], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
