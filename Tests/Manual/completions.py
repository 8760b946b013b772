"""What is expected of completion, whatever the shell."""

import manual

# Where a value is one of a few, or a path.
CHOICES = {"--purged": {"0", "1"}, "--status": {"0", "1", "2", "3", "4"}}
PATHS = {"--cache": {"pictures"}, "--key-file": {"family chat.db", "pictures"}}


class CompletionTest:
    """Of a shell that defines `complete(*words)`: what may stand where the last word begins."""

    def setUp(self):
        super().setUp()
        (self.directory / "family chat.db").touch()
        (self.directory / "pictures").mkdir()
        self.files = {"family chat.db", "pictures"}

    def each_command(self):
        for command in manual.commands():
            yield command, manual.Help(command)

    def words_but_options(self, *words):
        """Where nothing else can stand, a shell may offer options unasked."""
        return {word for word in self.complete(*words) if not word.startswith("-")}

    def test_offers_the_commands_that_help_lists(self):
        self.assertEqual(self.complete(""), set(manual.commands()))
        self.assertEqual(self.complete("--log", "off", "st"), {"stats", "stream-posted"}, "also after a global option")

    def test_offers_the_options_that_help_lists(self):
        self.assertEqual(self.complete("--"), set(manual.Help().options))
        expected = set(manual.global_options())
        for command, told in self.each_command():
            with self.subTest(command):
                self.assertEqual(self.complete(command, "--"), set(told.options) | expected)
                self.assertEqual(self.complete(command, "chat.db", "--"), set(told.options) | expected)

    def test_offers_only_what_goes_on_from_what_is_there(self):
        self.assertEqual(self.complete("events", "chat.db", "--un"), {"--unprocessed", "--unpublishable"})
        self.assertEqual(self.complete("m"), {"message", "message-seq", "missing"})
        self.assertEqual(self.complete("check", "pict"), {"pictures"})

    def test_offers_files_for_the_database(self):
        for command, told in self.each_command():
            with self.subTest(command):
                self.assertEqual(self.complete(command, ""), self.files)
                second = self.files if len(told.positionals) == 2 else set()
                self.assertEqual(self.words_but_options(command, "chat.db", ""), second, "after the database")
                self.assertEqual(self.words_but_options(command, "chat.db", "events.jsonl", ""), set(), "after two")

    def test_knows_which_options_take_a_value(self):
        choices = {**CHOICES, **{option: set(words) for option, words in manual.Help().choices.items()}}
        seen = set()
        for command, told in self.each_command():
            for option, takes_value in {**told.options_of_its_own(), **manual.global_options()}.items():
                with self.subTest(command, option=option):
                    after = choices.get(option, PATHS.get(option, set())) if takes_value else self.files
                    self.assertEqual(self.complete(command, option, ""), after)
                    words = [option, "1", "chat.db", ""] if takes_value else [option, "chat.db", ""]
                    second = self.files if len(told.positionals) == 2 else set()
                    self.assertEqual(self.words_but_options(command, *words), second, "after it and the database")
                    seen.add(option)
        self.assertLessEqual(set(choices) | set(PATHS), seen, "every choice is one of an option")

    def test_offers_values_after_an_equals_sign(self):
        self.assertEqual({word.removeprefix("--log=") for word in self.complete("--log=ver")}, {"verbose"})
        self.assertEqual(self.complete("--log=off", "st"), {"stats", "stream-posted"}, "a value that is there is no command")
