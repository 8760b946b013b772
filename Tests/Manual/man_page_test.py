#!/usr/bin/env python3
"""The manual page: its form, and whether it tells of the commands and options that there are."""

import json
import re
import shutil
import unittest

import manual

SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "COMMANDS", "OPTIONS", "EVENTS", "ENVIRONMENT", "FILES", "EXIT STATUS",
            "EXAMPLES", "SEE ALSO"]


# With what the tool adds it has every field that events and parts can have.
FULL_EVENT = {
    "client_id": "00000000-0000-4000-8000-000000000002", "stream_id": str(manual.SAMPLE_STREAM), "type": 4,
    "subtype": 1, "seq": 14, "preceding_seq": 13, "client_seq": 2, "server_timestamp": 5, "target_seq": 3,
    "creator_id": "ada", "creator_name": "Ada", "member_id": "bruno",
    "transient_metadata": {"text": "a", "bytes": {"base64": "/w=="}},
    "content": [{"media_type": "text/plain", "size": 9, "text": "a", "transfer_status": 1, "purged": True,
                 "last_accessed": 4.5, "file_path": "sample/2"},
                {"body": "/w=="},
                {"external_url": "https://content.example/2", "external_content_url_expiration": 6,
                 "transfer_status": 3}]}


def listed_fields(text):
    """The fields that each list of a section is about."""
    return [[field for fields in re.findall(r"^\.It Li (.*)$", fields, re.MULTILINE) for field in fields.split(" , ")]
            for fields in re.findall(r"^\.Bl\b.*?^\.El", text, re.MULTILINE | re.DOTALL)]


def listed_keys(text):
    """The keys of a JSON object that an option is about."""
    return set(re.findall(r"^\.Li (\w+[a-z])(?: [,.;])?$", text, re.MULTILINE)) - {"null"}


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

    def imported(self, event):
        """What the tool writes of an event that it has read."""
        database = self.directory / "imported.db"
        done = manual.run(manual.TOOL, "import", database, input=json.dumps(event))
        self.assertEqual(done.returncode, 0, done.stderr)
        return json.loads(manual.run(manual.TOOL, "events", database).stdout)

    def test_tells_of_the_fields_that_are_written(self):
        of_events, of_parts = listed_fields(self.sections["EVENTS"])
        event = self.imported(FULL_EVENT)
        self.assertEqual(sorted(of_events), sorted(event))
        self.assertEqual(sorted(of_parts), sorted({field for part in event["content"] for field in part}))

    def test_tells_of_fields_that_are_read(self):
        of_events, _ = listed_fields(self.sections["EVENTS"])
        self.assertEqual(set(of_events) - set(FULL_EVENT), {"database_identifier", "stream_database_identifier"})
        event = self.imported(FULL_EVENT)
        event["content"] = [{field: part.get(field) for field in given}
                            for part, given in zip(event["content"], FULL_EVENT["content"])]
        self.assertEqual({field: event.get(field) for field in FULL_EVENT}, FULL_EVENT)

    def test_tells_the_defaults_of_fields(self):
        event = self.imported({"client_id": "00000000-0000-4000-8000-000000000003", "type": 4, "unknown": 1,
                               "content": [{"text": "four"}, {}]})
        told = {field: int(default) for fields, default in
                re.findall(r"^\.It Li (.*)\n(?:(?!\.It).*\n)*?.*; (\d+) by default\.$", self.sections["EVENTS"],
                           re.MULTILINE) for field in fields.split(" , ")}
        self.assertEqual({field: event[field] for field in told}, told)
        self.assertEqual(sorted(told), ["client_seq", "preceding_seq", "server_timestamp", "subtype"])
        with_data, without = event["content"]
        self.assertEqual((with_data["size"], with_data["transfer_status"]), (4, 4))
        self.assertEqual((without["size"], without["transfer_status"], without["purged"]), (0, 0, False))
        self.assertEqual(without["media_type"], re.search(r"\.Li (application/\S+)", self.sections["EVENTS"])[1])

    def test_tells_the_keys_of_json_objects(self):
        home = self.home_with_sample()
        for command in ["check", "stats"]:
            report = json.loads(manual.run(manual.TOOL, command, "chat.db", "--json", cwd=home).stdout)
            told = listed_keys(re.search(r"^\.It Fl -json$.*", self.commands[command][1], re.MULTILINE | re.DOTALL)[0])
            self.assertEqual(told - {"disk_utilization_exact"}, set(report), command)

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
