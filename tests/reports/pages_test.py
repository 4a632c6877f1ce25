#!/usr/bin/env python3
"""pages_test.py PROGRAM [FOLDER]

Opens the page of every report in a real browser: its pictures are drawn, nothing is fetched, nothing is complained of. With a
folder (docs/pictures) it takes the pictures that the documents show. Exit status 77: there is no browser.
"""

import subprocess
import sys
import tempfile
from pathlib import Path

import sample_store

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "page"))

from page_case import SKIPPED, missing_tools  # by an interpreter that can drive a browser

LARGEST = 100_000  # bytes
REPORTS = {
    "yield": ["yield"],
    "pareto": ["pareto"],
    "capability": ["capability"],
    "trend": ["trend", "--sub-test", "VBUS"],
    "grr": ["grr", "--sub-test", "VBUS"],
    "compare": ["compare", "--by", "site", "left", "upper"],
}
# How many points of each picture are not white; and what the page has fetched.
DRAWN = """return [...document.querySelectorAll("canvas")].map(canvas => {
  const data = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
  let drawn = 0;
  for (let i = 3; i < data.length; i += 4) drawn += data[i] > 0;
  return drawn;
});"""
FETCHED = "return performance.getEntriesByType('resource').map(entry => entry.name);"


def problems_of(browser, page):
    browser.open(f"file://{page}")
    browser.wait(lambda: browser.script("return document.readyState") == "complete", "the page is there")
    drawn = browser.script(DRAWN)
    if not drawn:
        yield "no pictures"
    for place, count in enumerate(drawn, 1):
        if count < 1000:
            yield f"picture {place} is empty"
    for name in browser.script(FETCHED):
        yield f"fetches {name}"
    for entry in browser.driver.get_log("browser"):
        yield entry["message"]


def main():
    if missing := missing_tools():
        print(missing)
        return SKIPPED
    from browser import Browser  # needs its driver
    from small_png import smaller

    program, pictures = sys.argv[1], Path(sys.argv[2]) if len(sys.argv) > 2 else None
    count = 0
    with tempfile.TemporaryDirectory() as name, Browser() as browser:
        folder = Path(name)
        sample_store.make(folder / "results.db")
        for report, arguments in REPORTS.items():
            page = folder / f"{report}.html"
            subprocess.run([program, "report", *arguments, "--store", "results.db", "--html", page.name], cwd=folder,
                           env={"TZ": "UTC"}, check=True, stdout=subprocess.DEVNULL)
            for problem in problems_of(browser, page):
                count += 1
                print(f"{report}: {problem}")
            if pictures:
                file = pictures / f"report-{report}.png"
                browser.picture(file)
                file.write_bytes(smaller(file.read_bytes()))
                print(f"{file}: {file.stat().st_size} bytes")
                count += file.stat().st_size >= LARGEST
    print(f"{len(REPORTS)} pages, {count} problems")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
