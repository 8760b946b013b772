"""What the tests of the tool's manual share: what its help says, and a place where its examples work."""

import json
import os
import pathlib
import re
import sqlite3
import subprocess
import sys
import tempfile
import unittest
import uuid

TOOL, PROJECT = None, None
SAMPLE_STREAM = uuid.UUID("48714726-d247-5be7-8537-0a57a788e38b")
# Its picture waits to be downloaded, and needs a new URL.
EVENT_WITH_EXPIRED_DOWNLOAD = {
    "stream_id": str(SAMPLE_STREAM), "client_id": "00000000-0000-4000-8000-000000000001", "type": 4, "seq": 13,
    "content": [{"media_type": "image/jpeg", "size": 1000, "external_url": "https://content.example/1",
                 "external_content_url_expiration": 1, "transfer_status": 3, "file_path": "sample/1.jpg"}]}


# The service has sent it, and nobody has received it yet.
RECEIVED_EVENT = {"stream_id": str(SAMPLE_STREAM), "client_id": "00000000-0000-4000-8000-000000000002", "type": 4,
                  "seq": 14, "creator_id": "bruno", "content": [{"media_type": "text/plain", "text": "Hi"}]}


def main():
    """Runs the tests of the calling script: SCRIPT ZAVEVENTS PROJECT"""
    global TOOL, PROJECT
    TOOL, PROJECT = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
    # The script that was started is another module than this one.
    unittest.main(module="__main__", argv=sys.argv[:1], verbosity=2)


def run(*command, **circumstances):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=60, check=False,
                          **circumstances)


class Help:
    """What `--help` says of the tool, or of one of its commands."""

    def __init__(self, *command):
        self.text = run(TOOL, *command, "--help").stdout
        entries = [line for line in self.text.splitlines() if re.match(r" {2,4}\S", line)]
        self.options, self.positionals, self.commands, self.choices = {}, [], [], {}
        for entry in entries:
            option = re.match(r" +(?:-\w,)?(--[\w-]+)(?: ([A-Z]+)\b(?::\{(.*)\})?)?", entry)
            if option:
                self.options[option[1]] = option[2] is not None
                if option[3]:
                    self.choices[option[1]] = option[3].split(",")
            elif re.match(r"  [A-Z]+ TEXT\b", entry):
                self.positionals.append(entry.split()[0])
            elif re.match(r"  [a-z-]+ {2,}\S", entry):
                self.commands.append(entry.split()[0])
        group = self.text.partition("[Option Group: Selection]")[2]
        self.selections = {option for option in self.options if re.search(rf"^ +{option} ", group, re.MULTILINE)}
        self.examples = re.findall(r"^Example:\n  (.*)\n\Z", self.text, re.MULTILINE)

    def options_of_its_own(self):
        return {option: takes_value for option, takes_value in self.options.items() if option != "--help"}


def commands():
    return Help().commands


def global_options():
    """Those that a command takes too, beside its own: name to whether it takes a value."""
    return {option: takes_value for option, takes_value in Help().options_of_its_own().items()
            if option != "--version"}


class ManualTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = pathlib.Path(temporary.name).resolve()

    def home_with_sample(self):
        """The home of somebody who has the sample conversation, the rows that mirror it, and cached content."""
        home = pathlib.Path(tempfile.mkdtemp(dir=self.directory))
        sample = (PROJECT / "Examples/sample-conversation.jsonl").read_text(encoding="utf-8")
        (home / "events.jsonl").write_text(sample + json.dumps(EVENT_WITH_EXPIRED_DOWNLOAD) + "\n", encoding="utf-8")
        (home / "received.jsonl").write_text(json.dumps(RECEIVED_EVENT) + "\n", encoding="utf-8")
        loaded = run(TOOL, "import", home / "chat.db", home / "events.jsonl", "--record-changes")
        self.assertEqual(loaded.returncode, 0, loaded.stderr)
        for command in (["conversation", home / "chat.db", "--stream", SAMPLE_STREAM, "--member", "ada"],
                        ["message", home / "chat.db", "--event", "17"]):
            self.assertEqual(run(TOOL, *command).returncode, 0, command)
        connection = sqlite3.connect(home / "chat.db")
        with connection:
            connection.execute("UPDATE event_content_parts SET last_accessed = 1, transfer_status = 4"
                               " WHERE event_database_identifier = 18")
            files = connection.execute("SELECT file_path FROM event_content_parts WHERE file_path IS NOT NULL")
            for (path,) in files.fetchall():
                file = home / ".cache/ZAVEventRepository" / path
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_bytes(b"content")
        connection.close()
        return home

    def expect_to_work(self, *lines):
        """Runs lines one after the other, as they are typed in; each does or shows something."""
        home = self.home_with_sample()
        environment = {**os.environ, "HOME": str(home), "PATH": f"{TOOL.parent}:{os.environ['PATH']}"}
        for line in lines:
            done = run("/bin/sh", "-c", line, cwd=home, env=environment)
            self.assertEqual(done.returncode, 0, f"{line}: {done.stderr}")
            if "--trace" not in line:
                self.assertEqual(done.stderr, "", f"{line}: an example is no reason to complain")
            self.assertTrue(done.stdout, f"{line}: an example has something to show")
            self.assertNotRegex(done.stdout, r"^0 ", f"{line}: an example does something")
        return done
