"""What an operator and a technician do."""

import time

import mock_station
from mock_station import now_us
from page_case import PageCase


class OperatorCases(PageCase):
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
        self.assertIn("Voltages / VREF: 2.71 is above 2.6", self.text(".run .facts-list"))
        self.assertEqual(len(self.browser.script("return [...document.querySelectorAll('.rows tbody')]")), 3)

    def test_how_forwarding_stands(self):
        self.open()
        self.assertEqual(self.text("#forwarding"), "")
        self.station.patch({"forwarding": {"server": "db/quillon", "waiting": 0, "parked": 0}})
        self.browser.wait_text("#forwarding", "All sent")
        self.station.patch({"forwarding": {"waiting": 12, "parked": 2, "oldestAt": now_us(), "since": now_us(),
                                           "trouble": "no answer for 60 s"}})
        self.browser.wait_text("#forwarding", "no answer for 60 s · 12 to send")
        shown = self.text("#forwarding")
        self.assertIn("Not sending since", shown)
        self.assertIn("2 parked: tell a technician", shown)
        self.station.patch({"forwarding": None})
        self.wait(lambda: self.text("#forwarding") == "", "nothing is forwarded any more")

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
