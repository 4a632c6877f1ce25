"""A machine to try documents out on: a folder that stands for its root, with an installed Quillon.

A reader's home folder, /home/me, looks like a checkout that was built, and holds the files that the documents speak of.
Paths and loopback addresses of the documents are moved to where they disturb nobody.
"""

import os
import re
import shutil
import signal
import subprocess
import tempfile
from pathlib import Path

TIME_LIMIT = 240  # seconds for one block
MOVED = re.compile(r"(?<![\w./])(/(?:tmp|opt|home/me)\b)")
LOOPBACK = "127.0.0."


class Machine:
    def __init__(self, options):
        self.source, self.build = options.source.resolve(), options.build.resolve()
        self.compiler = options.compiler
        self.root = Path(tempfile.mkdtemp(prefix="quillon-docs-")).resolve()
        self.home = self.root / "home/me"
        self.prefix = self.root / "installed"
        self.folder = self.home  # where the next command runs
        # Two documents may be tried at once, and an Ethernet unit has a fixed port.
        self.loopback = f"127.{os.getpid() // 250 % 250 + 1}.{os.getpid() % 250 + 1}."
        self._install()
        self._furnish_home()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.root, ignore_errors=True)

    def _install(self):
        subprocess.run(["cmake", "--install", self.build, "--prefix", self.prefix], check=True,
                       stdout=subprocess.PIPE)
        self.include = self.prefix / "include/quillon"
        package_config = next(self.prefix.glob("**/quillon.pc")).parent
        self.environment = os.environ | {
            "PATH": f"{self.prefix}/bin:{os.environ['PATH']}",
            "HOME": str(self.home),
            "CMAKE_PREFIX_PATH": str(self.prefix),
            "CMAKE_GENERATOR": "Ninja",
            "CXX": self.compiler,
            "LC_ALL": "C.UTF-8",
            "PKG_CONFIG_PATH": str(package_config),
        }

    def _furnish_home(self):
        for folder in ["tmp", "opt", "home/me/build"]:
            (self.root / folder).mkdir(parents=True)
        for entry in self.source.iterdir():
            if entry.name not in ("build", "logs", "examples", ".git"):
                (self.home / entry.name).symlink_to(entry)
        # A script there looks for its surroundings relative to itself.
        shutil.copytree(self.source / "examples", self.home / "examples")
        for preset in ["dev", "release"]:
            (self.home / "build" / preset).symlink_to(self.build)
        for sample in (self.source / "simulators/samples").iterdir():
            shutil.copy(sample, self.home)
        shutil.copy(self.source / "examples/board-test/TesterConfig_oc.csv", self.home)
        for bundle in self.build.glob("examples/*/*.bundle"):
            shutil.copytree(bundle, self.home / bundle.name)

    def moved(self, text):
        """A document's text with the machine's own paths and addresses."""
        return MOVED.sub(rf"{self.root}\1", text).replace(LOOPBACK, self.loopback)

    def as_documented(self, output):
        """An output of the machine with the documents' paths and addresses."""
        output = output.replace(str(self.build), f"{self.home}/build/release")
        return output.replace(str(self.root), "").replace(self.loopback, LOOPBACK)

    def run(self, script):
        """Runs a shell script in the current folder, which it may change: (exit status, output with errors)."""
        place = self.root / "folder"
        text = f"trap 'pwd > {place}' EXIT\n{self.moved(script)}"
        command = ["bash", "-c", text]
        if re.search(r"\bquillon (run|check|list)\b", script) and "with-vault" not in script:
            tester_config = self.source / "examples/board-test/TesterConfig_oc.csv"
            command = [self.source / "station/quillon-with-vault", "--file", tester_config] + command
        process = subprocess.Popen(command, cwd=self.folder, env=self.environment, text=True,
                                   errors="replace", start_new_session=True,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT)
        try:
            output, _ = process.communicate(timeout=TIME_LIMIT)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            output = process.communicate()[0] + f"\n(not done after {TIME_LIMIT} s)\n"
        if place.exists():
            self.folder = Path(place.read_text().rstrip("\n"))
        return process.returncode, self.as_documented(output)

    def run_stand_in(self, command):
        """Starts a stand-in device, which runs until it is told to end: (exit status, its first line)."""
        text = f"exec {self.moved(command)}"
        process = subprocess.Popen(["bash", "-c", text], cwd=self.folder, env=self.environment,
                                   text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT)
        first = process.stdout.readline()
        process.terminate()
        rest, _ = process.communicate(timeout=TIME_LIMIT)
        return process.returncode, self.as_documented(first + rest)
