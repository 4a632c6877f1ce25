#!/usr/bin/env python3
"""check_docs_test.py --source FOLDER --build FOLDER --compiler PROGRAM

The check of the documents finds every mistake of mistakes.md, and nothing else there.
"""

import itertools
import sys
from pathlib import Path

import facts
from check_docs import machine_options, problems_of
from document import Document
from machine import Machine

FOUND = [
    (13, "does not compile"),
    (19, "does not compile"),
    (23, "cannot be configured"),
    (27, "exit status 1"),
    (32, "there is no preset nowhere"),
    (32, "there is no target nowhere"),
    (37, "printed, but not shown: two"),
    (37, "not printed like this: three"),
    (51, "not printed like this: silent"),
    (57, "exit status 0: echo loud"),
    (62, "exit status 1: quillon-sim"),
    (66, "is no property list"),
    (70, "Sites: expected a dictionary"),
    (74, "line 2: attribute \"bsdPath\" has no \"=\""),
    (79, "skipped without a reason"),
    (83, "blocks of cobol are not checked"),
    (87, "finds nothing:\nSELECT serial FROM run"),
    (87, "no such column: colour"),
    (92, "fails:\n"),
    (5, "leads nowhere: nowhere.md"),
    (5, "mistakes.md has no heading for #nowhere"),
    (5, "does not exist: docs/nowhere.md"),
    (5, "no header has QLTNowhere"),
    (6, "quillon has no command walk"),
    (6, "quillon run has no option --slowly"),
]
FOUND_AS_ERROR_LIST = [(10, "the framework has no code -12345"), (1, "does not tell of the code -10000")]
FOUND_AS_MANUAL = [(1, "does not tell of quillon check"), (1, "does not tell of --flow"),
                   (1, "tells of --slowly, which quillon has not")]


def main():
    arguments = machine_options(__doc__).parse_args()
    document = Document(Path(__file__).resolve().with_name("mistakes.md"))
    failed = False
    with Machine(arguments) as machine:
        problems = list(problems_of(document, machine))
        for expected, found in itertools.zip_longest(FOUND, problems):
            if not expected or not found or found[0] != expected[0] or not found[1].startswith(expected[1]):
                print(f"expected {expected}, found {found}")
                failed = True
        codes = list(facts.check_codes(document, machine.source))
        manual = list(facts.check_manual(document, facts.Program(machine.prefix / "bin/quillon")))
        for expected, found in [(FOUND_AS_ERROR_LIST, codes), (FOUND_AS_MANUAL, manual)]:
            for problem in expected:
                if problem not in found:
                    print(f"expected {problem} among {found}")
                    failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
