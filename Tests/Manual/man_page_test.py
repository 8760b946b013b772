#!/usr/bin/env python3
"""The manual page: its form, and whether it tells of the commands and options that there are."""

import re
import shutil
import unittest

import manual

SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "COMMANDS", "OPTIONS", "ENVIRONMENT", "FILES", "EXIT STATUS", "EXAMPLES",
            "SEE ALSO"]


def split_at(macro, text):
    """What follows each heading."""
    parts = re.split(rf"^\.{macro} (.*)\n", text, flags=re.MULTILINE)[1:]
    return dict(zip(parts[::2], parts[1::2]))


def listed_options(text):
    """The options that a list is about, in its order, and whether they take a value."""
    return {f"--{name}": bool(value)
            for name, value in re.findall(r"^\.It (?:Fl \w , )?Fl -([\w-]+)( Ar .*)?$", text, re.MULTILINE)}


class ManPage(manual.ManualTest):
    def setUp(self):
        super().setUp()
        self.page = manual.PROJECT / "Documentation/zavevents.1"
        self.text = self.page.read_text(encoding="utf-8")
        self.sections = split_at("Sh", self.text)
        self.commands = {heading.split()[0]: (heading, body)
                         for heading, body in split_at("Ss", self.sections["COMMANDS"]).items()}

    def test_has_the_sections_that_are_looked_for(self):
        self.assertEqual(list(self.sections), SECTIONS)

    def test_tells_of_the_commands_that_help_lists(self):
        self.assertEqual(list(self.commands), manual.commands())

    def test_tells_of_the_options_that_help_lists(self):
        self.assertEqual(listed_options(self.sections["OPTIONS"]), manual.Help().options)
        for command, (_, body) in self.commands.items():
            with self.subTest(command):
                told = manual.Help(command).options_of_its_own()
                self.assertEqual(listed_options(body), told)
                self.assertEqual(list(listed_options(body)), sorted(told), "options are sorted")

    def test_tells_which_options_are_required(self):
        for command, (_, body) in self.commands.items():
            required = re.findall(r"^ +(--[\w-]+) .*\bREQUIRED\b", manual.Help(command).text, re.MULTILINE)
            told = re.findall(r"^\.It Fl (-[\w-]+)(?:(?!^\.It).)*?^Required\.$", body, re.MULTILINE | re.DOTALL)
            self.assertEqual(["-" + option for option in told], required, command)

    def test_names_only_options_that_there_are(self):
        for command, (_, body) in self.commands.items():
            named = set(re.findall(r"\bFl (-[\w-]+)", body))
            self.assertLessEqual({f"-{name}" for name in named}, set(manual.Help(command).options), command)
        everywhere = {option for command in manual.commands() for option in manual.Help(command).options}
        self.assertLessEqual({f"-{name}" for name in re.findall(r"\bFl (-[\w-]+)", self.text)},
                             everywhere | set(manual.Help().options))

    def test_tells_what_stands_after_a_command(self):
        for command, (heading, _) in self.commands.items():
            self.assertEqual(re.findall(r"Ar (\w+)", heading), manual.Help(command).positionals, command)

    def test_tells_the_choices_of_an_option(self):
        for option, choices in manual.Help().choices.items():
            text = re.search(rf"^\.It Fl {option[1:]} .*?(?=^\.It|\Z)", self.sections["OPTIONS"], re.M | re.S)[0]
            self.assertEqual(re.findall(r"^\.Cm (\w+)", text, re.MULTILINE), choices)

    def test_tells_of_the_exit_statuses(self):
        home = self.home_with_sample()
        told = re.findall(r"^\.It (\d)\n", self.sections["EXIT STATUS"], re.MULTILINE)
        done = [manual.run(manual.TOOL, *words, cwd=home).returncode
                for words in (["stats", "chat.db"], ["stats", "none.db"], ["stats"])]
        self.assertEqual([int(status) for status in told], done)

    def test_has_examples_that_work(self):
        examples = re.findall(r"^zavevents .*$", self.sections["EXAMPLES"], re.MULTILINE)
        self.assertGreater(len(examples), 3)
        self.expect_to_work(*examples)

    @unittest.skipUnless(shutil.which("groff"), "groff is not installed")
    def test_is_set_by_groff_without_a_warning(self):
        done = manual.run("groff", "-mdoc", "-ww", "-Tutf8", "-P-bcou", self.page)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("EXIT STATUS", done.stdout)

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is not installed")
    def test_has_nothing_that_mandoc_finds_fault_with(self):
        done = manual.run("mandoc", "-Tlint", "-Wstyle", self.page)
        # Which pages a system has, and how old its index of them is, says nothing of this one.
        found = [line for line in done.stdout.splitlines() if line.startswith("mandoc: " + str(self.page))
                 and "referenced manual not found" not in line]
        self.assertEqual(found, [])
        self.assertTrue(manual.run("mandoc", "-Tutf8", self.page).stdout)


if __name__ == "__main__":
    manual.main()
