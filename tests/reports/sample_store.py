"""A results store of a week, made up: four sites, one of them with a worn fixture, and a gauge study."""

import math
import random
import re
import sqlite3
from pathlib import Path

SCHEMA = Path(__file__).resolve().parents[1] / "results/version1.sql"
DAY = 86_400_000_000
START = 1_795_132_800_000_000 - 6 * DAY  # 2026-11-14, in microseconds
SITES = ["left", "right", "upper", "lower"]
SUB_TESTS = ["VBUS", "VREF", "V3V3", "V1V8", "VCORE", "VIO", "Ripple", "Offset", "Gain", "Noise", "Idle", "Load"]
DEVICES = 300
WORN = "upper"


def make(path):
    """Makes the store, at the first version of the schema."""
    chance = random.Random(7)
    store = sqlite3.connect(path)
    for statement in re.findall(r"CREATE (?:TABLE|INDEX) .*?;", SCHEMA.read_text(), re.S):
        store.execute(statement)
    store.execute("INSERT INTO schema_version VALUES (1, 1)")
    store.execute("INSERT INTO station VALUES ('station', 'line 3', 'machine', 'hall 2')")
    for version in ("1.2", "1.3"):
        store.execute("INSERT INTO plan VALUES (?, 'board-test', ?, '0.1.0', 'Production', 'c')", (version, version))
    for number, name in enumerate(SUB_TESTS, 1):
        test = "Voltages" if number <= 6 else "Signals"
        store.execute("INSERT INTO spec VALUES (?, 'board-test', 'Production', ?, ?, ?, 'range', 4.75, 5.25, NULL, 'V', 3)",
                      (name, f"{1 if number <= 6 else 2}.{(number - 1) % 6 + 1}", test, name))
    for serial in ("0815", "0816"):
        store.execute("INSERT INTO instrument VALUES (?, 'Example', 'M1', ?, 1, 2, 'c')", (serial, serial))
    for device in range(DEVICES):
        add_device(store, chance, device)
    add_study(store, chance)
    store.commit()
    store.close()


def add_run(store, run, site, serial, operator, version, kind, started, took, verdict, first):
    store.execute("INSERT INTO run VALUES (?, 'station', ?, 1, NULL, ?, 'QB26', 'C', 'final', ?, ?, ?, NULL, NULL, ?, ?, ?, ?, "
                  "NULL, ?, 'none')",
                  (run, site, serial, operator, version, kind, started, started + took, verdict, first, len(SUB_TESTS)))


def add_value(store, run, sequence, spec, value):
    verdict = "PASS" if 4.75 <= value <= 5.25 else "FAIL"
    store.execute("INSERT INTO measurement VALUES (?, ?, 1, 1, 0, ?, ?, NULL, ?, NULL)", (run, sequence, spec, value, verdict))
    return verdict == "PASS"


def add_device(store, chance, device):
    started = START + device * (6 * DAY // DEVICES)
    run = f"01a1fee6-{device:04x}-7000-8000-000000000000"
    site = SITES[device % 4]
    serial = f"QB26-{device if chance.random() < 0.96 else max(0, device - 3):05}"
    is_bad = chance.random() < (0.25 if site == WORN else 0.06)
    bad = chance.choices(SUB_TESTS, [12, 5, 3, 2, 2, 1, 1, 1, 1, 1, 1, 1])[0]
    first = None
    for sequence, name in enumerate(SUB_TESTS, 1):
        middle = 5 + 0.02 * math.sin(sequence) + (0.03 if site == WORN else 0)
        value = min(max(chance.gauss(middle, 0.05), 4.76), 5.24)
        if is_bad and name == bad:
            value = chance.gauss(5.32, 0.02)
        if not add_value(store, run, sequence, name, value) and first is None:
            first = sequence
    took = 48_000_000 + chance.randrange(9_000_000)
    add_run(store, run, site, serial, "Ada", "1.2" if device < 180 else "1.3", "production", started, took,
            "FAIL" if first else "PASS", first)
    begun = started
    for step, (test, scale) in enumerate([("Connect", 1), ("Voltages", 4), ("Signals", 9), ("Burn-in", 2)], 1):
        lasted = int(chance.lognormvariate(14, 0.3) * scale)
        store.execute("INSERT INTO step VALUES (?, ?, 1, ?, ?, ?, ?, 'PASS', NULL, NULL, NULL)",
                      (run, step, step, test, begun, begun + lasted))
        begun += lasted
    store.execute("INSERT INTO run_instrument VALUES (?, 'meter', ?, '1', 2, 'valid')",
                  (run, "0815" if device < 210 else "0816"))


def add_study(store, chance):
    """Ten boards, three people, three times each."""
    boards = [chance.gauss(5, 0.08) for _ in range(10)]
    habits = {"Ada": 0, "Ben": 0.012, "Cem": -0.008}
    started = START + 6 * DAY
    for trial in range(3):
        for board, true in enumerate(boards, 1):
            for place, (person, habit) in enumerate(habits.items()):
                run = f"01a1ff00-{trial}{board:02}{place}-7000-8000-000000000000"
                started += 90_000_000
                add_run(store, run, "left", f"STUDY-{board:02}", person, "1.3", "study", started, 5_000_000, "PASS", None)
                add_value(store, run, 1, "VBUS", true + habit + chance.gauss(0, 0.011))
