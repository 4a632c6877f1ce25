#!/usr/bin/env python3
"""check_docs.py --source FOLDER --build FOLDER --compiler PROGRAM DOCUMENT

Tries out what a Markdown document shows: commands are run, code is compiled, configurations are read, a results store is
asked, and what the text states of files, names, options and error codes is looked up.

What a block is checked for follows from its language. A comment above it says what else is to be known:

  <!-- check: statements -->        C++ statements, to be compiled in a function with a `QLTError* error`
  <!-- check: declarations -->      C++ declarations without their includes
  <!-- check: status N -->          commands that end with that exit status
  <!-- check: needs TOOL... -->     commands to be run where these programs are installed
  <!-- check: output -->            what the commands in the block above print
  <!-- check: output [status N] COMMAND -->     what this command prints
  <!-- check: replies -->           a reply file of quillon-sim
  <!-- check: run
       COMMANDS -->                 commands to be run here that the page does not show; no block follows
  <!-- check: skip REASON -->       nothing is checked

In an output, "..." stands for any lines; times and widths of columns do not matter, nor does the order of the sites.
"""

import argparse
import sys
from pathlib import Path

import facts
from commands import Commands
from document import Document
from machine import Machine
from snippets import TESTER_CONFIG, Snippets
from store import Store

MANUALS = {"docs/station-application.md": "quillon", "docs/quillon-sim.md": "quillon-sim"}
ERROR_LISTS = ["docs/station-setup.md"]
PACKAGE_LIST = "README.md"


def check_block(block, commands, snippets, store):
    """The problems of one block."""
    kind, _, rest = block.check.partition(" ")
    if kind == "skip":
        return [] if rest.strip() else ["skipped without a reason"]
    if kind == "output":
        return commands.check_output(block)
    if kind == "replies":
        return commands.check_replies(block)
    if TESTER_CONFIG.match(block.text):
        return snippets.check_tester_config(block)
    checks = {
        "cmake": snippets.check_cmake,
        "console": commands.check,
        "cpp": snippets.check_cpp,
        "python": store.check_python,
        "sh": commands.check,
        "sql": store.check_sql,
        "text": lambda block: [],
        "xml": snippets.check_property_list,
        "": lambda block: [],
    }
    if block.language not in checks:
        return [f"blocks of {block.language} are not checked"]
    return checks[block.language](block)


def problems_of(document, machine):
    """(line, text) of everything that is wrong with a document."""
    commands, snippets, store = Commands(machine), Snippets(machine), Store(machine)
    for block in document.blocks:
        for problem in check_block(block, commands, snippets, store):
            yield block.line, problem
    name = str(document.path.relative_to(machine.source))
    yield from facts.check_links(document)
    yield from facts.check_paths(document, machine.source)
    yield from facts.check_names(document, machine.source)
    for program in [facts.Program(machine.prefix / "bin" / name) for name in MANUALS.values()]:
        yield from facts.check_usage(document, program)
        if MANUALS.get(name) == program.name:
            yield from facts.check_manual(document, program)
    if name in ERROR_LISTS:
        yield from facts.check_codes(document, machine.source)
    if name == PACKAGE_LIST:
        yield from facts.check_packages(document, machine.source)


def machine_options(description):
    """The command line's options that a machine is made from."""
    parser = argparse.ArgumentParser(description=description,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--source", type=Path, required=True)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--compiler", required=True)
    return parser


def main():
    parser = machine_options(__doc__)
    parser.add_argument("document", type=Path)
    arguments = parser.parse_args()
    document = Document(arguments.document.resolve())
    count = 0
    with Machine(arguments) as machine:
        for line, problem in problems_of(document, machine):
            print(f"{arguments.document}:{line}: {problem}", flush=True)
            count += 1
    print(f"{len(document.blocks)} blocks, {count} problems")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
