"""Compares what a document states with the tree and the programs: links, paths, names, options and error codes."""

import re
import subprocess

FOLDERS = "benchmarks|cmake|common|docs|examples|framework|packaging|results|scripts|simulators|station|statistics|tests|web"
PATH = re.compile(rf"(?<![\w./-])(?:{FOLDERS})/[\w./*-]*")
NAME = re.compile(r"(?<!\w)(k?QLT\w+|kScpi\w+|aa_\w+)(\.\.\.|\*)?")
OPTION = re.compile(r"(?<![\w-])--[a-z][a-z-]*")


def check_links(document):
    """Links lead to files and headings that exist."""
    for target, line in document.links():
        path, _, anchor = target.partition("#")
        file = document.path.parent / path if path else document.path
        if not file.exists():
            yield line, f"leads nowhere: {target}"
        elif anchor and anchor not in type(document)(file).anchors():
            yield line, f"{file.name} has no heading for {target}"


def check_paths(document, source):
    """Paths of the tree that stand in the text exist."""
    for span, line in document.code_spans():
        for path in PATH.findall(span):
            if not any(source.glob(path.rstrip("."))):
                yield line, f"does not exist: {path}"


def check_names(document, source):
    """Names of the framework and of the bench library that stand in the text are in their headers.

    The library's instruments that are no class of their own have their names where they are described.
    """
    headers = [file for folder in ("framework", "bench") for file in (source / folder).rglob("*.h")]
    headers += (source / "bench").glob("*Classes.cpp")
    texts = [file.read_text() for file in headers]
    texts += [file.name for file in headers]
    names = set(re.findall(r"\w+", "\n".join(texts)))
    for span, line in document.code_spans():
        for name, more in NAME.findall(span):
            if not (any(known.startswith(name) for known in names) if more else name in names):
                yield line, f"no header has {name}"


class Program:
    """A program and what its help tells."""

    def __init__(self, file):
        self.name = file.name
        overview = self._help(file)
        self.commands = self._subcommands(overview)
        self.options = {command: self._options_of(file, command) for command in self.commands}
        self.options[""] = self._options(overview)
        self.all_options = set().union(*self.options.values())

    @staticmethod
    def _help(file, *command):
        return subprocess.run([file, *command, "--help"], text=True, stdout=subprocess.PIPE,
                              check=True).stdout

    @staticmethod
    def _subcommands(text):
        commands = re.search(r"^Subcommands:\n((?:  .*\n)+)", text, re.M)
        return re.findall(r"^  ([a-z]+)\b", commands[1], re.M) if commands else []

    def _options_of(self, file, *command):
        """The options of a command and of those below it."""
        text = self._help(file, *command)
        below = (self._options_of(file, *command, each) for each in self._subcommands(text))
        return self._options(text).union(*below)

    @staticmethod
    def _options(text):
        lines = re.findall(r"^ +-.*$", text, re.M)
        return {option for line in lines for option in re.findall(r"(?:^ +|,)(--[a-z-]+)", line)}


def check_usage(document, program):
    """Commands and options of a program that stand in the text exist."""
    for span, line in document.code_spans():
        match = re.match(rf"{program.name} ([a-z]+)\b(.*)", span)
        if not match:
            continue
        if match[1] not in program.commands:
            yield line, f"{program.name} has no command {match[1]}"
            continue
        for option in OPTION.findall(match[2]):
            if option not in program.options[match[1]]:
                yield line, f"{program.name} {match[1]} has no option {option}"


def check_manual(document, program):
    """The page of a program tells of all its commands and options, and of no others."""
    text = re.sub(r"<!--.*?-->|quillon-with-vault --file|gdb --args", "", document.text, flags=re.S)
    told = set(OPTION.findall(text))
    for command in program.commands:
        if not re.search(rf"\b{program.name} {command}\b", text):
            yield 1, f"does not tell of {program.name} {command}"
    # A table may list the names alone.
    listed = {f"--{name}" for name in re.findall(r"^\| `([a-z-]+)", document.prose, re.M)}
    for option in sorted(program.all_options - told - listed):
        yield 1, f"does not tell of {option}"
    for option in sorted(told - program.all_options):
        yield 1, f"tells of {option}, which {program.name} has not"


def check_codes(document, source):
    """The tables of error codes have those of the framework, and no others."""
    told = {}
    for match in re.finditer(r"^\| *([^|]*?) *\|", document.prose, re.M):
        for code in re.findall(r"-?\d{4,}", match[1]):
            told.setdefault(code, document.line_of(match.start()))
    catalogue = source / "framework/platform/QLTErrorCodes.h"
    known = set(re.findall(r"^inline constexpr .* = (-?\d+);", catalogue.read_text(), re.M))
    for number in sorted(told.keys() - known):
        yield told[number], f"the framework has no code {number}"
    for number in sorted(known - told.keys()):
        yield 1, f"does not tell of the code {number}"


def check_packages(document, source):
    """Each package that the scripts install is told, with what it is for."""
    lists = re.findall(r'^QUILLON_\w+_PACKAGES="([^"]*)"', (source / "scripts/build-tools.sh").read_text(), re.M)
    told = set()
    for row in re.findall(r"^\| *([^|]*?) *\|", document.prose, re.M):
        told.update(re.findall(r"[\w.+-]+", row))
    for package in " ".join(lists).replace("\\", " ").split():
        if package not in told:
            yield 1, f"does not tell of the package {package}"
