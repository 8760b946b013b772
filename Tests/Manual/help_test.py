#!/usr/bin/env python3
"""The help of the tool and of its commands."""

import manual


class HelpTexts(manual.ManualTest):
    def helps(self):
        yield "zavevents", manual.Help()
        for command in manual.commands():
            yield f"zavevents {command}", manual.Help(command)

    def test_end_with_one_example_that_works(self):
        for name, told in self.helps():
            with self.subTest(name):
                self.assertEqual(told.text.count("Example"), 1, "help has one example")
                self.assertEqual(len(told.examples), 1, f"help ends with its example:\n{told.text}")
                self.assertTrue(told.examples[0].startswith(name + " "), f"the example is one of {name}")
                self.expect_to_work(told.examples[0])

    def test_show_an_example_of_a_global_option(self):
        example = manual.Help().examples[0]
        self.assertIn("SELECT", self.expect_to_work(example).stderr, "the statements are seen")

    def test_list_commands_and_options_by_name(self):
        for name, told in self.helps():
            with self.subTest(name):
                self.assertEqual(told.commands, sorted(told.commands), "commands are sorted")
                # A group of options is sorted by itself.
                for group in told.text.split("[Option Group")[:2]:
                    listed = [option for option in told.options if f"  {option} " in group or f",{option} " in group]
                    self.assertEqual(listed, sorted(listed), "options are sorted")

    def test_are_read_in_full(self):
        self.assertEqual(len(manual.commands()), manual.Help().text.split("Subcommands:\n")[1].split("\n\n")[0]
                         .count("\n") + 1, "every command is found in the help")
        events = manual.Help("events")
        self.assertEqual(events.positionals, ["DATABASE"])
        self.assertEqual((events.options["--all"], events.options["--revived"]), (False, True), "values are told apart")
        self.assertEqual(manual.Help().choices["--log"], ["verbose", "error", "off"])


if __name__ == "__main__":
    manual.main()
