#!/usr/bin/env python3
"""Completion in zsh, at a terminal of its own; without zsh, what its file says is read."""

import os
import pathlib
import pty
import re
import select
import shlex
import shutil
import signal
import tempfile
import time
import unittest

import completions
import manual

# Every match is noted on its way to the shell, and none is shown.
SETTINGS = r"""
PS1= PS2=
fpath=(%(folder)s $fpath)
autoload -Uz compinit
compinit -u -D
compadd() {
    local -a found
    if [[ ${argv[(I)-[OAD]]} -eq 0 ]]; then
        builtin compadd -O found "$@"
        print -rl -- $found >> %(answers)s
    fi
    builtin compadd "$@"
}
ask() {
    : > %(answers)s
    _main_complete
    compstate[insert]= compstate[list]=
    : > %(done)s
}
zle -C ask complete-word ask
bindkey -e
bindkey '^I' ask
: > %(done)s
"""


class Terminal:
    """An interactive zsh that completes at the tabulator key."""

    def __init__(self, directory):
        self.private = pathlib.Path(tempfile.mkdtemp())
        self.answers, self.done = self.private / "answers", self.private / "done"
        places = {"folder": shlex.quote(str(manual.PROJECT / "Tools/zavevents/completion")),
                  "answers": shlex.quote(str(self.answers)), "done": shlex.quote(str(self.done))}
        (self.private / ".zshrc").write_text(SETTINGS % places, encoding="utf-8")
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(directory)
            os.execvpe("zsh", ["zsh", "-d", "-i"], {**os.environ, "ZDOTDIR": str(self.private), "TERM": "dumb"})
        self.wait()

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.terminal)
        shutil.rmtree(self.private)

    def wait(self):
        """Reads what is printed, lest the shell wait for us, until it has done what it was told to."""
        printed, end = b"", time.monotonic() + 30
        while not self.done.exists():
            if time.monotonic() > end:
                raise TimeoutError(f"zsh does not answer: {printed}")
            if select.select([self.terminal], [], [], 0.01)[0]:
                printed += os.read(self.terminal, 4096)
        self.done.unlink()

    def ask(self, line):
        os.write(self.terminal, b"\x15" + line.encode() + b"\t")
        self.wait()
        return [word for word in self.answers.read_text(encoding="utf-8").splitlines() if word]


@unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
class ZshCompletion(completions.CompletionTest, manual.ManualTest):
    def setUp(self):
        super().setUp()
        self.terminal = Terminal(self.directory)
        self.addCleanup(self.terminal.close)

    def complete(self, *words):
        return {word.replace("\\ ", " ") for word in self.terminal.ask(" ".join(["zavevents", *words]))}

    def test_offers_one_selection_only(self):
        for command, others in (("events", {"--log", "--trace"}), ("parts", {"--index", "--limit", "--log"})):
            told = manual.Help(command)
            self.assertGreater(len(told.selections), 7)
            for selection in told.selections:
                value = ["1"] if told.options[selection] else []
                offered = self.complete(command, "chat.db", selection, *value, "--")
                self.assertFalse(offered & told.selections, f"{command} {selection}: it excludes the others")
                self.assertLessEqual(others, offered)
        self.assertIn("--stream", self.complete("events", "chat.db", "--seq", "1", "--"))


class ZshCompletionFile(manual.ManualTest):
    def setUp(self):
        super().setUp()
        self.text = (manual.PROJECT / "Tools/zavevents/completion/_zavevents").read_text(encoding="utf-8")

    @staticmethod
    def options_in(text):
        """The options that specifications name, and whether a value follows."""
        return {name: bool(value) for name, value in
                re.findall(r"""^ +['"](?:\([^)]*\)|\$\w+?)?\*?(--[\w-]+)(=?)\[""", text, re.MULTILINE)}

    def test_is_found_by_its_first_line(self):
        self.assertTrue(self.text.startswith("#compdef zavevents\n"))

    def test_lists_the_commands_that_help_lists(self):
        listed = re.findall(r"^    '([a-z-]+):[A-Z]", self.text, re.MULTILINE)
        self.assertEqual(listed, manual.commands())

    def test_lists_the_options_that_help_lists(self):
        before, _, after = self.text.partition("case $words[1] in\n")
        self.assertEqual({**self.options_in(before), "--help": False}, manual.Help().options)
        self.assertIn("{-h,--help}", before)
        cases = {}
        for names, body in re.findall(r"^([a-z| -]+)\)\n(.*?)^    ;;\n", after, re.MULTILINE | re.DOTALL):
            for name in names.split(" | "):
                cases[name] = body
        self.assertEqual(set(cases), set(manual.commands()))
        for command, body in cases.items():
            with self.subTest(command):
                self.assertEqual(self.options_in(body), manual.Help(command).options_of_its_own())
                self.assertIn("'1:database:_files'", body)


if __name__ == "__main__":
    manual.main()
