"""Runs the commands that a document shows, and compares what they print with what it shows."""

import json
import re
import shutil
from dataclasses import dataclass, field

TOP_SCRIPT = re.compile(r"^\./(demo|test)\b.*$", re.M)  # they run by themselves, and this check in one of them
PRESET = re.compile(r"\bcmake (--build |--workflow )?--preset (\S+)( --target (\S+))?")
STAND_IN = re.compile(r"quillon-sim (console|davdp|scpi|supply|load|scope|matrix|modbus|can)\b[^&|]*$")
MARK = "@@ status "

KINDS = {"--build ": "buildPresets", "--workflow ": "workflowPresets", None: "configurePresets"}

# What differs from run to run.
CHANGING = [
    (re.compile(r"\d{4}-\d\d-\d\d([_T ])\d\d:\d\d:\d\d(\.\d+)?"), r"DATE\1TIME"),
    (re.compile(r"\b\d+\.\d+ s(ec)?\b"), "N s"),
    (re.compile(r"/dev/pts/\d+"), "/dev/pts/N"),
    (re.compile(r" {2,}"), "  "),  # columns are as wide as what stands in them
]


@dataclass
class Step:
    command: str
    shown: list = field(default_factory=list)  # lines of output; none: not shown


def steps_of(block):
    """The commands of a block with what it shows of their output."""
    if block.language != "console":
        return [Step(block.text)]
    steps = []
    continues = False
    for line in block.text.splitlines():
        if continues or line.startswith("$ "):
            if continues:
                steps[-1].command += line.removeprefix("> ") + "\n"
            else:
                steps.append(Step(line[2:] + "\n"))
            continues = line.endswith("\\")
        elif steps:
            steps[-1].shown.append(line)
        else:
            raise ValueError("a console block begins with '$ '")
    return steps


def by_first_word(lines):
    """The lines grouped by their first words: lines of sites that run at once come in any order."""
    groups = {}
    for line in lines:
        for pattern, text in CHANGING:
            line = pattern.sub(text, line)
        if line.strip():
            groups.setdefault(line.split()[0], []).append(line.rstrip())
    return groups


def difference(shown, printed):
    """What the document shows and the program does not print, and the other way round. "..." stands for any lines."""
    elided = any(line.strip() == "..." for line in shown)
    expected = by_first_word(line for line in shown if line.strip() != "...")
    actual = by_first_word(printed)
    for word, lines in expected.items():
        found = iter(actual.get(word, []))
        for line in lines:
            if elided and line in found:
                continue
            if not elided and line == next(found, None):
                continue
            return f"not printed like this: {line}"
    if not elided:
        for word, lines in actual.items():
            if len(lines) > len(expected.get(word, [])):
                return f"printed, but not shown: {lines[len(expected.get(word, []))]}"
    return None


class Commands:
    def __init__(self, machine):
        self.machine = machine
        self.output = ""  # of the block before
        presets = json.loads((machine.source / "CMakePresets.json").read_text())
        self.presets = {kind: {preset["name"] for preset in presets[kind] if not preset.get("hidden")}
                        for kind in KINDS.values()}
        self.targets = "\n".join(file.read_text() for folder in ["", "docs", "framework", "packaging",
                                 "simulators", "simulators/*", "station", "tests/packaging", "examples/*"]
                                 for file in machine.source.glob(f"{folder}/CMakeLists.txt".lstrip("/")))

    def check(self, block):
        """The problems of a block with commands."""
        words = block.check.split()
        if words[:1] == ["needs"] and not all(shutil.which(tool) for tool in words[1:]):
            return
        status = int(words[1]) if words[:1] == ["status"] else 0
        self.output = ""
        steps = steps_of(block)
        for step, following in zip(steps, [*steps[1:], None]):
            self.output = "" if step.shown else self.output
            yield from self._run(step.command, self._expected(following, status))
            if step.shown:
                problem = difference(step.shown, self.output.splitlines())
                if problem:
                    yield f"{problem}\n{self.output}"

    @staticmethod
    def _expected(following, status):
        """The exit status that a command must have: the one that the next one shows, or the block's."""
        if following and following.command.strip() == "echo $?":
            return int(following.shown[0])
        return status

    def check_output(self, block):
        """The problems of a block that shows the output of the block above it, or of a command of its own."""
        words = block.check.split(maxsplit=1)[1:]
        match = re.match(r"(?:status (\d+)\s*)?(.*)", words[0] if words else "", re.S)
        if match[2]:
            self.output = ""
            yield from self._run(match[2] + "\n", int(match[1] or 0))
        problem = difference(block.text.splitlines(), self.output.splitlines())
        if problem:
            yield f"{problem}\n{self.output}"

    def check_replies(self, block):
        """The problems of a stand-in's reply file."""
        (self.machine.folder / "shown.replies").write_text(block.text)
        yield from self._run("quillon-sim console --pty --replies shown.replies\n", 0)

    def _run(self, command, expected):
        if command.strip() == "echo $?":
            return
        yield from self._presets(command)
        joined = command.replace("\\\n", " ").strip()
        if STAND_IN.match(joined) and expected == 0:
            status, output = self.machine.run_stand_in(joined)
        else:
            script = TOP_SCRIPT.sub(r"bash -n \1", PRESET.sub("true", command))
            status, output = self.machine.run(f"set -e\n{script}")
        self.output += output
        if status != expected:
            yield f"exit status {status}: {command}{output}"

    def _presets(self, command):
        """Presets and their targets only have to exist: building them again would take long, and disturb a build."""
        for kind, preset, _, target in PRESET.findall(command):
            if preset not in self.presets[KINDS[kind or None]]:
                yield f"there is no preset {preset}"
            if target and not re.search(rf"\(\s*{re.escape(target)}\b", self.targets):
                yield f"there is no target {target}"
