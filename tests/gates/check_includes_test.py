#!/usr/bin/env python3
"""What check_includes.py finds, on small trees."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).with_name("check_includes.py")

CMAKE = """set(floors platform model configuration)
target_sources(quillon PUBLIC FILE_SET HEADERS BASE_DIRS ${floors} FILES
    platform/QLTValue.h
    model/QLTestSuite.h
    configuration/QLTestSiteManager.h)
"""
BENCH = """target_sources(quillon-bench PUBLIC FILE_SET HEADERS FILES
    QLTBench.h)
"""
FILES = {
    "bench/CMakeLists.txt": BENCH,
    "bench/QLTBench.h": "#include <QLTValue.h>\n",
    "bench/QLTBench.cpp": '#include "QLTBench.h"\n#include "bench/Table.h"\n#include "common/Text.h"\n',
    "bench/Table.h": "#pragma once\n",
    "framework/CMakeLists.txt": CMAKE,
    "framework/platform/QLTValue.h": "#pragma once\n",
    "framework/platform/TextFile.h": "#pragma once\n",
    "framework/model/QLTestSuite.h": "#include <string>\n#include <QLTValue.h>\n",
    "framework/model/QLTestSuite.cpp": '#include "QLTestSuite.h"\n#include <QLTestSiteManager.h>\n',
    "framework/configuration/QLTestSiteManager.h": "#include <QLTestSuite.h>\n",
    "common/Text.h": "#pragma once\n",
    "results/Rows.h": "#pragma once\n",
    "results/Store.h": '#include "common/Text.h"\n#include "results/Rows.h"\n',
    "reports/Report.cpp": '#include "Report.h"\n#include "results/Rows.h"\n#include "statistics/Summary.h"\n',
    "reports/Report.h": "#pragma once\n",
    "statistics/Summary.h": '#include "statistics/Computed.h"\n',
    "statistics/Computed.h": "#pragma once\n",
    "station/Text.h": '#include <QLTValue.h>\n#include "common/Text.h"\n',
    "station/Screen.cpp": '#include "Text.h"\n#include "results/Rows.h"\n#include "statistics/Summary.h"\n',
}


def faults(**more):
    """The faults of the tree above with some files' contents replaced or added; "__" in a name is "/"."""
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for folder_name in ("simulators", "examples", "tests", "benchmarks"):
            (root / folder_name).mkdir()
        changed = {name.replace("__", "/").replace("_cpp", ".cpp").replace("_h", ".h"): text for name, text in more.items()}
        for name, text in {**FILES, **changed}.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text)
        run = subprocess.run([sys.executable, SCRIPT, root], capture_output=True, text=True, check=False)
        lines = run.stdout.splitlines()
        assert run.returncode == (0 if lines == ["All includes keep to the floors."] else 1), run.stderr
        return lines if run.returncode else []


class CheckIncludes(unittest.TestCase):
    def test_a_tree_in_order_has_no_faults(self):
        self.assertEqual(faults(), [])

    def test_of_bench_others_include_the_public_headers(self):
        self.assertEqual(faults(tests__Meter_cpp="#include <QLTBench.h>\n"), [])
        self.assertEqual(faults(tests__Meter_cpp='#include "bench/Table.h"\n'),
                         ["tests/Meter.cpp:1: bench/Table.h is not a public header"])
        self.assertEqual(faults(bench__Table_h='#include "platform/TextFile.h"\n'),
                         ["bench/Table.h:1: framework/platform/TextFile.h is not a public header"])
        self.assertEqual(faults(framework__model__QLTestSuite_h="#include <QLTBench.h>\n"),
                         ["framework/model/QLTestSuite.h:1: the framework includes bench/QLTBench.h"])

    def test_a_floor_above_is_a_fault(self):
        self.assertEqual(
            faults(framework__platform__QLTValue_cpp="// values\n#include <QLTestSuite.h>\n"),
            ["framework/platform/QLTValue.cpp:2: the floor platform includes framework/model/QLTestSuite.h, "
             "of a floor above it"])
        self.assertEqual(
            faults(framework__model__Other_cpp='#  include "configuration/QLTestSiteManager.h"\n'),
            ["framework/model/Other.cpp:1: the floor model includes framework/configuration/QLTestSiteManager.h, "
             "of a floor above it"])

    def test_the_framework_includes_no_station(self):
        self.assertEqual(faults(framework__configuration__X_cpp='#include "station/Text.h"\n'),
                         ["framework/configuration/X.cpp:1: the framework includes station/Text.h"])

    def test_the_base_includes_itself_only(self):
        self.assertEqual(faults(common__Text_cpp='#include "Text.h"\n#include <QLTValue.h>\n'),
                         ["common/Text.cpp:2: common/ includes framework/platform/QLTValue.h"])

    def test_the_results_include_themselves_and_the_base_only(self):
        self.assertEqual(
            faults(results__X_cpp='#include "station/Text.h"\n#include <QLTValue.h>\n'),
            ["results/X.cpp:1: results/ includes station/Text.h",
             "results/X.cpp:2: results/ includes framework/platform/QLTValue.h"])

    def test_the_reports_include_what_they_stand_on(self):
        self.assertEqual(
            faults(reports__X_cpp='#include "station/Text.h"\n', results__X_cpp='#include "reports/Report.h"\n'),
            ["results/X.cpp:1: results/ includes reports/Report.h",
             "reports/X.cpp:1: reports/ includes station/Text.h"])

    def test_the_statistics_include_themselves_and_the_base_only(self):
        self.assertEqual(
            faults(statistics__X_cpp='#include "common/Text.h"\n#include "results/Rows.h"\n',
                   results__X_cpp='#include "statistics/Summary.h"\n'),
            ["results/X.cpp:1: results/ includes statistics/Summary.h",
             "statistics/X.cpp:2: statistics/ includes results/Rows.h"])

    def test_the_web_server_includes_itself_and_the_base_only(self):
        self.assertEqual(
            faults(web__X_cpp='#include "common/Text.h"\n#include "results/Rows.h"\n#include <QLTValue.h>\n'),
            ["web/X.cpp:2: web/ includes results/Rows.h",
             "web/X.cpp:3: web/ includes framework/platform/QLTValue.h"])

    def test_the_inside_of_the_framework_is_for_the_framework(self):
        for folder in ("station", "simulators", "tests", "examples"):
            with self.subTest(folder):
                self.assertEqual(faults(**{folder + "__X_cpp": '#include "platform/TextFile.h"\n'}),
                                 [f"{folder}/X.cpp:1: framework/platform/TextFile.h is not a public header"])

    def test_examples_use_what_is_installed(self):
        self.assertEqual(faults(examples__X_cpp='#include "common/Text.h"\n'),
                         ["examples/X.cpp:1: common/Text.h is not installed"])


if __name__ == "__main__":
    unittest.main()
