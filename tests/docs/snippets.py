"""Compiles, configures and reads the pieces of files that a document shows."""

import json
import plistlib
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

TESTER_CONFIG_HEADER = "name,class,sim,attributes\n"
# A tester-config file, or lines of one.
TESTER_CONFIG = re.compile(rf"(?:{TESTER_CONFIG_HEADER})?(?:[\w-]+,\w+,[01],.*\n)+\Z")

# Whatever a function returns, statements of a document are in it.
FUNCTION = """
struct Anything {{
  template <typename Value>
  Anything(Value&&) {{}}
}};
inline Anything documented([[maybe_unused]] QLTError* error) {{
#line {line}
{text}
  return nullptr;
}}
"""


def without_indentation(text):
    return "\n".join(line.strip() for line in text.splitlines()) + "\n"


class Snippets:
    def __init__(self, machine):
        self.machine = machine
        self._folder = Path(tempfile.mkdtemp(dir=machine.root))
        self._known = None

    def _is_excerpt(self, text):
        """Whether a piece stands in a file of an example or of a new plug-in, which other tests build and run."""
        if self._known is None:
            files = [file for folder in ["examples", "station/templates/plugin"]
                     for file in (self.machine.source / folder).rglob("*") if file.is_file()]
            # The guides call a new plug-in "Board".
            self._known = [without_indentation(file.read_text().replace("NewPlugin", "Board"))
                           for file in files]
        return any(without_indentation(text) in known for known in self._known)

    def check_cpp(self, block):
        """The problems of C++ code: a piece of an example, a whole source file, declarations or statements."""
        if not block.check and self._is_excerpt(block.text):
            return
        text = f'#line {block.line}\n{block.text}'
        if block.check:
            headers = sorted(header.name for header in self.machine.include.glob("*.h"))
            text = "".join(f"#include <{header}>\n" for header in headers)
            if block.check == "statements":
                text += FUNCTION.format(line=block.line, text=block.text)
            elif block.check == "declarations":
                text += f"#line {block.line}\n{block.text}"
            else:
                yield f"unknown check: {block.check}"
                return
        result = subprocess.run(
            [self.machine.compiler, "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic",
             "-Werror", "-Wno-unused-variable", "-Wno-unused-but-set-variable",
             "-isystem", self.machine.include, "-x", "c++", "-"],
            input=text, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if result.returncode != 0:
            yield f"does not compile:\n{result.stdout}"

    def check_cmake(self, block):
        """The problems of CMake code; files that it names need not exist."""
        if self._is_excerpt(block.text):
            return
        project = Path(tempfile.mkdtemp(dir=self._folder))
        text = block.text
        if "find_package(" not in text:
            text = "find_package(Quillon REQUIRED)\n" + text
        if "project(" not in text:
            text = "cmake_minimum_required(VERSION 3.25)\nproject(documented CXX)\n" + text
        (project / "CMakeLists.txt").write_text(text)
        for name in re.findall(r"[\w./-]+\.(?:cpp|h|plist|csv)\b", text):
            (project / name).parent.mkdir(parents=True, exist_ok=True)
            (project / name).touch()
        result = subprocess.run(["cmake", "-S", project, "-B", project / "build"], text=True,
                                env=self.machine.environment, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, check=False)
        if result.returncode != 0:
            yield f"cannot be configured:\n{result.stdout}"

    def check_property_list(self, block):
        """The problems of a property list, or of a piece of one."""
        if self._is_excerpt(block.text):
            return
        value = re.sub(r"^\s*(<\?xml[^>]*>|<!DOCTYPE[^>]*>|<plist[^>]*>|\s)*|</plist>\s*$", "", block.text)
        if value.startswith("<key>"):
            value = f"<dict>{value}</dict>"
        try:
            content = plistlib.loads(f'<plist version="1.0">{value}</plist>'.encode())
        except Exception as problem:  # the reader's errors are of many classes
            yield f"is no property list: {problem}"
            return
        is_config = isinstance(content, dict) and content.keys() & {"Sites", "Flows"}
        config = value if is_config else (
            f"<dict><key>stationAttributes</key><dict><key>shown</key>{value}</dict></dict>")
        for finding in self._findings(f'<plist version="1.0">{config}</plist>', TESTER_CONFIG_HEADER):
            if finding["severity"] == "error" and not finding["message"].startswith("resource "):
                yield f"{finding['key']}: {finding['message']}"

    def check_tester_config(self, block):
        """The problems of a tester-config file."""
        if self._is_excerpt(block.text):
            return
        text = TESTER_CONFIG_HEADER + block.text.removeprefix(TESTER_CONFIG_HEADER)
        # Its instruments may be those of one plug-in or of another.
        plugins = [{f"line {finding['line']}: {finding['message']}"
                    for finding in self._findings('<plist version="1.0"><dict/></plist>', text, plugin)
                    if Path(finding["file"] or "").suffix == ".csv"}
                   for plugin in ["board-test", "lan-test"]]
        yield from sorted(set.intersection(*plugins))

    def _findings(self, config, tester_config, plugin="board-test"):
        """What quillon finds wrong with a configuration."""
        bundle = self._folder / f"shown-{plugin}.bundle"
        if not bundle.exists():
            shutil.copytree(self.machine.home / f"{plugin}.bundle", bundle)
        (bundle / "Contents/Resources/TestConfig.plist").write_text(config)
        file = self._folder / "shown.csv"
        file.write_text(tester_config)
        result = subprocess.run([self.machine.prefix / "bin/quillon", "check", bundle, "--json",
                                 "--tester-config", file],
                                text=True, stdout=subprocess.PIPE, check=False)
        return json.loads(result.stdout)["findings"]
