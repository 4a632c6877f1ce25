#!/usr/bin/env python3
"""page_test.py [CASES.CASE...]

The operator's page in a real browser, against a station that shows whatever a case needs. Without a browser nothing is
tested, and the exit status is 77.
"""

import sys
import unittest

from page_case import SKIPPED, PageCase, missing_tools

from browser import Browser
from look_cases import LookCases
from network_cases import NetworkCases
from operator_cases import OperatorCases
from scanner_cases import ScannerCases

__all__ = ["LookCases", "NetworkCases", "OperatorCases", "ScannerCases"]


def main():
    missing = missing_tools()
    if missing:
        print(missing)
        return SKIPPED
    with Browser() as PageCase.browser:
        program = unittest.main(argv=[sys.argv[0], "-v", *sys.argv[1:]], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
