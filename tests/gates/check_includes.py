#!/usr/bin/env python3
"""Holds the #includes to the order of the floors.

    check_includes.py ROOT

The floors of framework/ stand in framework/CMakeLists.txt, ground floor first. A floor includes itself and those before
it, and common/; common/ includes only itself; results/, statistics/ and web/ each themselves and common/; reports/ the first two as well. Whatever is not the
framework uses its public headers, and common/; the examples, which build against an installed copy, the public headers
alone. What is in bench/ is public by bench/CMakeLists.txt: outside of it only that is included. Each fault is one line, FILE:LINE: what; the exit status is 1 when there is any.
"""

import pathlib
import re
import sys

# The suite and the site manager know each other, because `onLoad` and `onDUTStart` say so.
ABOVE = {("framework/model/QLTestSuite.cpp", "framework/configuration/QLTestSiteManager.h")}
# Tests go through the public interface. This one compiles the file that it tests.
INSIDE = {("tests/platform/FrameworkVersionTest.cpp", "framework/platform/FrameworkVersion.h")}
# The libraries below the station application that know nothing of the framework, nor of each other.
BESIDE = ("results/", "statistics/", "web/")
REPORTS = "reports/"
OVER = ("results/", "statistics/")
# What users copy, and build against an installed Quillon.
WITHOUT_COMMON = ("examples/", "station/templates/")

INCLUDE = re.compile(r'\s*#\s*include\s*([<"])([^>"]+)[>"]')


class Tree:
    def __init__(self, root):
        self.root = root
        cmake = (root / "framework/CMakeLists.txt").read_text()
        self.floors = re.search(r"set\(floors ([^)]*)\)", cmake)[1].split()
        self.public = self.headers("framework", cmake)
        bench = root / "bench/CMakeLists.txt"
        if bench.is_file():
            self.public |= self.headers("bench", bench.read_text())

    @staticmethod
    def headers(folder, cmake):
        """The public headers that a library's CMakeLists.txt names, by the names that they are included by."""
        headers = re.search(r"FILE_SET HEADERS[^)]*?FILES([^)]*)\)", cmake)[1].split()
        return {pathlib.PurePath(header).name: f"{folder}/{header}" for header in headers}

    def target(self, file, bracket, name):
        """The file that an #include means, relative to the root; None for those of others."""
        if name in self.public:
            return self.public[name]
        if bracket == "<":
            return None
        for folder in (file.parent, self.root, self.root / "framework"):
            if (folder / name).is_file():
                return (folder / name).resolve().relative_to(self.root).as_posix()
        return None

    def fault(self, file, target):
        """What is wrong with the file's including the target; None when nothing is."""
        if (file, target) in ABOVE | INSIDE:
            return None
        to_floor = self.floor(target)
        if file.startswith("common/"):
            return None if target.startswith("common/") else f"common/ includes {target}"
        for folder in BESIDE:
            if file.startswith(folder):
                return None if target.startswith(("common/", folder)) else f"{folder} includes {target}"
        if file.startswith(REPORTS):
            below = ("common/", REPORTS, *OVER)
            return None if target.startswith(below) else f"{REPORTS} includes {target}"
        if file.startswith("framework/"):
            if target.startswith("common/"):
                return None
            if to_floor is None:
                return f"the framework includes {target}"
            floor = self.floor(file)
            if self.floors.index(to_floor) > self.floors.index(floor):
                return f"the floor {floor} includes {target}, of a floor above it"
            return None
        is_inside = to_floor is not None or (target.startswith("bench/") and not file.startswith("bench/"))
        if is_inside and target not in self.public.values():
            return f"{target} is not a public header"
        if target.startswith("common/") and file.startswith(WITHOUT_COMMON):
            return f"{target} is not installed"
        return None

    def floor(self, file):
        parts = file.split("/")
        return parts[1] if parts[0] == "framework" and parts[1] in self.floors else None

    def faults(self):
        for folder in ("common", "framework", "bench", *BESIDE, REPORTS, "station", "simulators", "examples", "tests", "benchmarks"):
            for path in sorted((self.root / folder).rglob("*")):
                if path.suffix not in (".h", ".cpp", ".c"):
                    continue
                file = path.relative_to(self.root).as_posix()
                for number, line in enumerate(path.read_text().splitlines(), 1):
                    include = INCLUDE.match(line)
                    target = self.target(path, *include.groups()) if include else None
                    fault = self.fault(file, target) if target else None
                    if fault:
                        yield f"{file}:{number}: {fault}"


def main():
    faults = list(Tree(pathlib.Path(sys.argv[1]).resolve()).faults())
    print("\n".join(faults) if faults else "All includes keep to the floors.")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
