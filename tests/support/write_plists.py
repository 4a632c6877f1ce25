"""Writes the same random values as XML and as binary property lists: write_plists.py FOLDER COUNT."""

import datetime
import pathlib
import plistlib
import random
import sys

folder, count = pathlib.Path(sys.argv[1]), int(sys.argv[2])
rng = random.Random(20261121)

SCALARS = [
    lambda: rng.choice([True, False]),
    lambda: rng.choice([0, 1, -1, 127, 128, 255, 256, 65535, 65536, 2**31, -2**31, 2**32, 2**63 - 1, -2**63]),
    lambda: rng.choice([0.0, -0.5, 1e-300, 1e300, 3.141592653589793, float(rng.random())]),
    lambda: "".join(rng.choice("ab <>&\"'\t\n\u00e4\u20ac\U0001f600") for _ in range(rng.randrange(20))),
    lambda: datetime.datetime(rng.randrange(1970, 2100), rng.randrange(1, 13), rng.randrange(1, 29),
                              rng.randrange(24), rng.randrange(60), rng.randrange(60)),
    lambda: rng.randbytes(rng.randrange(40)),
]


def value(depth):
    kind = rng.randrange(4 if depth < 5 else 2)
    if kind == 2:
        return [value(depth + 1) for _ in range(rng.randrange(20))]
    if kind == 3:
        return {f"key {i} \u00e4": value(depth + 1) for i in range(rng.randrange(20))}
    return rng.choice(SCALARS)()


for number in range(count):
    content = {"value": value(0), "again": value(0)}
    for name, form in (("xml", plistlib.FMT_XML), ("binary", plistlib.FMT_BINARY)):
        with open(folder / f"{number}.{name}", "wb") as file:
            plistlib.dump(content, file, fmt=form)
