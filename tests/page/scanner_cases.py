"""Scanners, which are keyboards to the computer."""

import time

import mock_station
from page_case import PageCase


class ScannerCases(PageCase):
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
