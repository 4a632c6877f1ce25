"""What the page looks like, and what of it cannot be seen."""

import time

import mock_station
from browser import HEIGHT, WIDTH
from mock_station import FILES, now_us
from page_case import PageCase

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


class LookCases(PageCase):
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

    def test_language_that_is_missing(self):
        self.browser.open(self.station.address + "?lang=zz")
        self.browser.wait_text("#connection", "Connected")
        self.assertEqual(self.browser.script("return document.documentElement.lang"), "en")

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
            self.station.tell_all()
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
            self.station.tell_all()
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
