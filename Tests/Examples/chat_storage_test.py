#!/usr/bin/env python3
"""The example chat-storage, worked as somebody would at a terminal."""

import example_programs


class ChatStorage(example_programs.ExampleTest):
    def chat(self, *lines, fails=False):
        run = self.run_example("chat-storage", self.database, text="\n".join(lines) + "\n")
        self.assertEqual(run.returncode, 1 if fails else 0, run.stderr)
        return run.stderr if fails else run.stdout

    def test_prints_a_timeline_of_what_came_and_what_waits(self):
        printed = self.chat("incoming family 1 ada Are you coming on Saturday?", "send family Of course!",
                            "incoming work 1 chiara The build is red", "list family", "list work")
        self.assertEqual(printed, "waits in row 2\n"
                                  "1 ada: Are you coming on Saturday?\n"
                                  "waiting in row 2 me: Of course!\n"
                                  "1 chiara: The build is red\n")

    def test_keeps_the_outbox_for_the_next_start(self):
        self.chat("send family One", "send work Two")
        self.assertEqual(self.chat("outbox"), "waiting in row 1 me: One\nwaiting in row 2 me: Two\n")

    def test_moves_a_message_from_the_outbox_into_the_timeline_when_its_sequence_arrives(self):
        self.chat("incoming family 1 ada Hello", "send family Hello, Ada")
        self.assertEqual(self.chat("sequenced 2 2", "outbox", "list family"), "1 ada: Hello\n2 me: Hello, Ada\n")

    def test_leaves_a_mark_where_a_message_was_deleted(self):
        self.chat("incoming family 1 ada Hello", "incoming family 2 ada Sorry, wrong chat")
        self.assertEqual(self.chat("deleted family 2", "list family"), "1 ada: Hello\n2 ada: (deleted)\n")
        self.assertEqual(self.chat("incoming family 2 ada Sorry, wrong chat", "list family"),
                         "1 ada: Hello\n2 ada: (deleted)\n", "what was deleted stays deleted when it comes again")

    def test_discards_only_messages_that_wait(self):
        self.chat("incoming family 1 ada Hello", "send family Hm")
        self.assertIn("no message waits in row 1", self.chat("discard 1", fails=True))
        self.assertEqual(self.chat("discard 2", "list family"), "1 ada: Hello\n")

    def test_says_what_is_new_once(self):
        self.assertEqual(self.chat("incoming work 1 chiara Lunch?", "send work Yes", "new", "new"),
                         "waits in row 2\nchiara: Lunch?\n")

    def test_stores_a_message_that_comes_twice_once(self):
        self.assertEqual(self.chat("incoming work 1 chiara Lunch?", "incoming work 1 chiara Lunch?", "list work"),
                         "1 chiara: Lunch?\n")

    def test_goes_on_after_a_line_that_it_cannot_understand(self):
        self.assertIn("no such stream: family2", self.chat("send family2 Hm", "send family Hello", fails=True))
        self.assertEqual(self.chat("outbox"), "waiting in row 1 me: Hello\n")


if __name__ == "__main__":
    example_programs.main()
