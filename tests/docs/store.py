"""Asks the questions of the documents to a results store."""

import re
import sqlite3
import subprocess
import sys
import tempfile
from pathlib import Path

# Executes what is asked of it, whatever is then done with the answer.
PANDAS = """
from unittest.mock import MagicMock

to_datetime = MagicMock()


def read_sql_query(statement, connection):
    rows = connection.execute(statement).fetchall()
    assert rows, "no rows"
    return MagicMock()
"""


class Store:
    """A small store of two days, in a folder of its own."""

    def __init__(self, machine):
        self.folder = Path(tempfile.mkdtemp(dir=machine.root))
        self.file = self.folder / "results.db"
        rows = (machine.source / "tests/results/version1.sql").read_text()
        with sqlite3.connect(self.file) as store:
            store.executescript(rows)
        (self.folder / "pandas.py").write_text(PANDAS)

    def check_sql(self, block):
        """The problems of SQL: each statement must find something."""
        store = sqlite3.connect(f"file:{self.file}?mode=ro", uri=True)
        for statement in re.findall(r"[^;]+;", block.text):
            try:
                if not store.execute(statement).fetchall():
                    yield f"finds nothing:\n{statement.strip()}"
            except sqlite3.Error as problem:
                yield f"{problem}:\n{statement.strip()}"

    def check_python(self, block):
        """The problems of Python code that reads a store."""
        result = subprocess.run([sys.executable, "-c", block.text], cwd=self.folder, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if result.returncode != 0:
            yield f"fails:\n{result.stdout}"
