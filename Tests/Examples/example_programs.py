"""What the tests of the examples share."""

import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import unittest

EXAMPLES, TOOL = None, None


def main():
    """Runs the tests of the calling script: SCRIPT EXAMPLES-DIRECTORY ZAVEVENTS"""
    global EXAMPLES, TOOL
    EXAMPLES, TOOL = (pathlib.Path(path) for path in sys.argv[1:3])
    # The script that was started is another module than this one.
    unittest.main(module="__main__", argv=sys.argv[:1], verbosity=2)


class ExampleTest(unittest.TestCase):
    """A directory of its own for each test, with a database and a cache in it."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = pathlib.Path(temporary.name).resolve()
        self.database = self.directory / "chat.db"
        self.cache = self.directory / "cache"
        self.cache.mkdir()

    def run_example(self, name, *arguments, text=""):
        return subprocess.run([EXAMPLES / name, *map(str, arguments)], input=text, capture_output=True, text=True,
                              timeout=120, check=False)

    def import_events(self, events):
        lines = "".join(json.dumps(event) + "\n" for event in events)
        subprocess.run([TOOL, "import", self.database, "--app-id", "9f4a5f2e-0c65-4a35-9c0e-6d0f6a3b1c55", "--user",
                        "bruno"], input=lines, text=True, check=True, capture_output=True, timeout=60)

    def query(self, sql, *values):
        connection = sqlite3.connect(self.database)
        try:
            with connection:
                return connection.execute(sql, values).fetchall()
        finally:
            connection.close()

    def cached_file(self, path, size=10):
        file = self.directory / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(os.urandom(size))
        return file
