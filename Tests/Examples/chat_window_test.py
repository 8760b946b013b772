#!/usr/bin/env python3
"""The example chat-window, used in a real terminal beside zavevents."""

import base64
import json
import pathlib
import re
import signal
import sqlite3
import subprocess
import tempfile

import example_programs
import terminal

STREAM = "48714726-d247-5be7-8537-0a57a788e38b"
SAMPLE = pathlib.Path(__file__).resolve().parents[2] / "Examples/sample-conversation.jsonl"
MORNING = 1_760_000_000_000  # 2025-10-09 08:53:20 UTC


def message(seq, text=None, **fields):
    content = {"media_type": "text/plain", "text": text or f"message {seq}"}
    return {"stream_id": STREAM, "client_id": f"00000000-0000-4000-8000-{seq:012x}", "type": 4, "seq": seq,
            "preceding_seq": seq - 1, "server_timestamp": MORNING, "creator_id": "ada", "creator_name": "Ada",
            "content": [content], **fields}


def messages(first, last):
    return [message(seq) for seq in range(first, last + 1)]


def listed(rows):
    """What is shown of the conversation: all but the two bars and the line below them."""
    return rows[1:-2]


def numbers(rows):
    return [int(number) for number in re.findall(r"message (\d+)", "\n".join(listed(rows)))]


class ChatWindow(example_programs.ExampleTest):
    def tool(self, command, *arguments):
        run = subprocess.run([example_programs.TOOL, command, self.database, *map(str, arguments)], check=False,
                             capture_output=True, text=True, encoding="utf-8", timeout=terminal.PATIENCE)
        self.assertEqual(run.returncode, 0, run.stderr)
        return run.stdout

    def start(self, events=(), *, user="bruno", columns=72, rows=12, shows="Enter sends"):
        """A window on a database with some events, as soon as it shows a text."""
        if events:
            self.import_events(events)
        program = example_programs.EXAMPLES / "chat-window"
        directory = tempfile.mkdtemp(dir=self.directory)
        window = terminal.Terminal(directory, [program, self.database, STREAM, user], columns, rows)
        self.addCleanup(window.close)
        window.wait_for(shows)
        return window

    def hold_the_write_lock(self):
        writer = sqlite3.connect(self.database, isolation_level=None)
        self.addCleanup(writer.close)
        writer.execute("BEGIN IMMEDIATE")
        return writer

    def expect_numbers(self, window, first, last):
        window.wait_until(lambda rows: numbers(rows) == list(range(first, last + 1)),
                          f"messages {first} to {last} are not what is shown")

    def expect_end(self, window, status, *lines):
        """The terminal is as it was before, and shows nothing else than the status and some lines."""
        rows = window.wait_for("status")
        self.assertEqual([row for row in rows if row], ["before", *lines, f"status {status}"])
        self.assertEqual(window.settings("before"), window.settings("after"))

    def test_shows_the_newest_events_of_the_conversation(self):
        self.tool("import", SAMPLE)
        window = self.start(user="ada", shows="View from the bus")
        self.assertEqual(window.rows(), [
            " 48714726-d247-5be7-8537-0a57a788e38b  ada",
            "10-09 08:58 you      read up to message 7",
            "10-09 08:58 you      Meet at 7:30, north car park.",
            "                     Bring layers.",
            "10-09 08:59 Chiara   7:30 🥱 fine",
            "10-09 09:00 Bruno    deleted message 5",
            "waiting     you      Running five minutes late, start the coffee without",
            "                     me.",
            "waiting     you      View from the bus:",
            "                     [image/jpeg, 1873421 bytes]",
            " Enter sends, Page Up and Page Down scroll, Escape ends",
            ">"])

    def test_scrolls_up_to_the_first_event(self):
        self.tool("import", SAMPLE)
        window = self.start(user="ada", shows="View from the bus")
        window.press("PPage", "PPage", "PPage")
        rows = window.wait_for("added ada")
        self.assertEqual(listed(rows)[:5], [
            "10-09 08:53 you      added ada",
            "10-09 08:54 you      added bruno",
            "10-09 08:54 you      added chiara",
            "10-09 08:55 you      Who is in for the ridge trail on Saturday?",
            "10-09 08:56 Bruno    Me! Weather looks dry until four."])

    def test_scrolls_through_more_than_it_has_read_at_first(self):
        window = self.start([message(1, "the very first"), *messages(2, 300)], shows="message 300")
        self.expect_numbers(window, 292, 300)
        window.press("Up", "Up", "Up", "Down")
        self.expect_numbers(window, 290, 298)
        window.press("End")
        self.expect_numbers(window, 292, 300)

        def is_first(rows):  # what comes before is read while one scrolls: so again and again
            window.press("Home")
            return "the very first" in rows[1]
        window.wait_until(is_first, "the first message is never reached")
        self.expect_numbers(window, 2, 9)
        for first in range(9, 292, 8):  # a page, but for one line
            window.press("NPage")
            self.expect_numbers(window, first, first + 8)
        window.press("NPage")
        self.expect_numbers(window, 292, 300)

    def test_fills_a_screen_that_has_room_for_more_than_it_reads_at_first(self):
        window = self.start(messages(1, 300), rows=103)
        self.expect_numbers(window, 201, 300)

    def test_shows_what_another_process_stores_while_no_key_is_pressed(self):
        window = self.start(messages(1, 2), shows="message 2")
        self.import_events([message(3, "Look what came in", creator_id="chiara", creator_name="Chiara")])
        rows = window.wait_for("Look what came in")
        self.assertEqual([row for row in listed(rows) if row],
                         ["10-09 08:53 Ada      message 1", "10-09 08:53 Ada      message 2",
                          "10-09 08:53 Chiara   Look what came in"])

    def test_shows_what_becomes_of_an_event(self):
        window = self.start(messages(1, 3), shows="message 3")
        self.tool("tombstone", "--stream-row", 1, "--seq", 2)
        rows = window.wait_for("(deleted)")
        self.assertEqual([row for row in listed(rows) if row],
                         ["10-09 08:53 Ada      message 1", "10-09 08:53 Ada      (deleted)",
                          "10-09 08:53 Ada      message 3"])
        self.tool("delete", "--id", 2)
        window.wait_until_gone("(deleted)")

    def test_sends_what_is_typed(self):
        window = self.start(messages(1, 2), shows="message 2")
        window.type("Grüße, and a ☕")
        window.wait_for("> Grüße, and a ☕")
        self.assertEqual(self.tool("outbox"), "", "nothing is sent before Enter")
        window.press("Enter")
        rows = window.wait_for("waiting")
        self.assertEqual(listed(rows)[-1], "waiting     you      Grüße, and a ☕")
        self.assertEqual(rows[-1], ">")
        waiting = [json.loads(line) for line in self.tool("outbox").splitlines()]
        self.assertEqual([(event["stream_id"], event["creator_id"], event["content"][0]["text"]) for event in waiting],
                         [(STREAM, "bruno", "Grüße, and a ☕")])

        self.tool("sequence", "--id", 3, "--seq", 3, "--creator", "bruno", "--timestamp", MORNING + 60_000)
        rows = window.wait_until_gone("waiting")
        self.assertEqual(listed(rows)[-1], "10-09 08:54 you      Grüße, and a ☕")
        self.assertEqual(self.tool("outbox"), "")

    def test_takes_a_whole_character_back(self):
        window = self.start()
        window.type("a ☕é")
        window.wait_for("> a ☕é")
        window.press("BSpace")
        window.wait_until(lambda rows: rows[-1] == "> a ☕", "é does not go")
        window.press("BSpace", "BSpace", "BSpace", "BSpace")
        window.wait_until(lambda rows: rows[-1] == ">", "the rest does not go")
        window.press("Enter")
        window.type("b")
        window.wait_for("> b")
        self.assertEqual(self.tool("outbox"), "", "nothing was there to be sent")

    def test_keeps_a_message_that_cannot_be_stored(self):
        window = self.start(messages(1, 40), shows="message 40")
        writer = self.hold_the_write_lock()
        window.type("Keep me")
        window.press("Enter", "PPage")
        window.wait_until(lambda rows: numbers(rows)[-1:] != [40], "it does not scroll while it waits for a lock")
        window.wait_for("Not sent")
        window.wait_for("> Keep me")
        writer.execute("ROLLBACK")
        window.press("Enter")
        window.wait_for("waiting     you      Keep me")
        window.wait_until_gone("Not sent")

    def test_what_comes_in_does_not_move_what_is_looked_at(self):
        window = self.start(messages(1, 40), shows="message 40")
        window.press("PPage")
        self.expect_numbers(window, 24, 32)
        before = listed(window.rows())
        self.import_events(messages(41, 43))
        self.assertEqual(listed(window.wait_for(" 3 new below")), before)
        self.tool("delete", "--id", 5, 23, 33)
        self.import_events([message(44, "two\nlines")])
        self.assertEqual(listed(window.wait_for(" 4 new below")), before, "others have gone above and below")
        self.tool("delete", "--id", 42)
        self.assertEqual(listed(window.wait_for(" 3 new below")), before)
        window.press("NPage")
        self.assertEqual(listed(window.wait_for("message 34")),
                         [f"10-09 08:53 Ada      message {seq}" for seq in (32, 34, 35, 36, 37, 38, 39, 40, 41)])
        window.wait_for(" 2 new below")
        window.press("End")
        rows = window.wait_for("Enter sends")
        self.assertEqual(listed(rows)[-4:], [
            "10-09 08:53 Ada      message 41", "10-09 08:53 Ada      message 43",
            "10-09 08:53 Ada      two", "                     lines"])
        self.import_events(messages(45, 45))
        window.wait_for("message 45")

    def test_leads_to_the_end_when_one_sends(self):
        window = self.start(messages(1, 40), shows="message 40")
        window.press("PPage")
        self.expect_numbers(window, 24, 32)
        window.type("Back to the present")
        window.press("Enter")
        window.wait_for("waiting     you      Back to the present")

    def test_fits_itself_to_another_size(self):
        text = "one two three four five six seven eight nine ten eleven twelve"
        window = self.start([*messages(1, 20), message(21, text)], shows="eleven")
        first = "10-09 08:53 Ada      one two three four five six seven eight nine ten"
        self.assertEqual(listed(window.rows())[-2:], [first, "                     eleven twelve"])
        window.press("Up")
        window.wait_until(lambda rows: listed(rows)[-1] == first, "it does not scroll")
        window.resize(40, 7)
        window.wait_until(lambda rows: listed(rows)[-2:] == ["10-09 08:53 Ada      message 20",
                                                             "10-09 08:53 Ada      one two three four"],
                          "it does not stay where it was")
        window.press("End")
        window.wait_until(lambda rows: listed(rows) == ["10-09 08:53 Ada      one two three four",
                                                        "                     five six seven",
                                                        "                     eight nine ten",
                                                        "                     eleven twelve"],
                          "the text is not wrapped anew")
        window.resize(20, 7)
        window.wait_for("too small")
        window.resize(100, 20)
        rows = window.wait_for(text)
        self.assertEqual(len(rows), 20)
        window.type("here")
        window.wait_for("> here")

    def test_wraps_by_columns_and_not_by_characters(self):
        window = self.start([message(1, "長" * 30), message(2, "x" * 52)], shows="xx")
        self.assertEqual([row for row in listed(window.rows()) if row], [
            "10-09 08:53 Ada      " + "長" * 25, " " * 21 + "長" * 5,
            "10-09 08:53 Ada      " + "x" * 51, " " * 21 + "x"])

    def test_hostile_text_does_not_command_the_terminal(self):
        self.import_events([
            message(1, "\x1b]2;owned\x07\x1b[2J\x1b[31mred", creator_name="\x1b[5mE\nve"),
            message(2, "a\u202eb\u2028c\x9b1md\x7f\re\tf", creator_name="E\u0301ve"),
            message(3, content=[{"media_type": "text/\x1b[1m", "body": base64.b64encode(b"\xff\xc3(\xe2\x98").decode()},
                                {"media_type": "\x1b[7mimage", "size": 3, "external_url": "https://content.example/"}]),
            message(4, type=2, member_id="\x1b[4mmallory", content=[])])
        window = self.start(shows="mallory")
        title = window.tells("pane_title")
        self.assertNotIn("owned", title)
        self.assertEqual([row for row in listed(window.rows()) if row], [
            r"10-09 08:53 \x1b[5mE \x1b]2;owned\x07\x1b[2J\x1b[31mred",
            "10-09 08:53 E\u0301ve      " + r"a\u202eb\u2028c\u009b1md\x7f\re\tf",
            r"10-09 08:53 Ada      \xff\xc3(\xe2\x98",
            r"                     [\x1b[7mimage, 3 bytes]",
            r"10-09 08:53 Ada      added \x1b[4mmallory"])

    def test_ends_in_each_of_its_ways_and_gives_the_terminal_back(self):
        self.import_events(messages(1, 2))
        for key in ("Escape", "C-c", "C-d"):
            with self.subTest(key):
                window = self.start(shows="message 2")
                window.type("never sent")
                window.press(key)
                self.expect_end(window, 0)
        self.assertEqual(self.tool("outbox"), "")

    def test_stores_what_was_sent_before_it_ends(self):
        window = self.start(messages(1, 2), shows="message 2")
        writer = self.hold_the_write_lock()
        window.type("One more thing")
        window.press("Enter")
        window.type("And another")
        window.press("Enter", "Escape")
        writer.execute("ROLLBACK")
        self.expect_end(window, 0)
        self.assertEqual([json.loads(line)["content"][0]["text"] for line in self.tool("outbox").splitlines()],
                         ["One more thing", "And another"])

    def test_tells_at_its_end_what_could_not_be_stored(self):
        window = self.start(messages(1, 2), shows="message 2")
        writer = self.hold_the_write_lock()
        window.type("Too late")
        window.press("Enter", "Escape")
        self.expect_end(window, 1, "Not sent: database is locked")
        writer.execute("ROLLBACK")

    def test_gives_the_terminal_back_when_it_is_terminated(self):
        window = self.start(messages(1, 2), shows="message 2")
        window.signal(signal.SIGTERM)
        self.expect_end(window, 1)

    def test_says_so_when_the_store_cannot_be_opened(self):
        self.database.write_text("This is no database, however long it is. " * 100, encoding="ascii")
        run = self.run_example("chat-window", self.database, STREAM, "bruno")
        self.assertEqual(run.returncode, 1)
        # Older engines put the rest in other words.
        self.assertTrue(run.stderr.startswith(f"{self.database}: Error Domain=SQLite Code=26 "), run.stderr)

    def test_says_so_when_it_has_no_terminal(self):
        run = self.run_example("chat-window", self.database, STREAM, "bruno")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(run.stderr, "this is no terminal that a window can be shown on\n")

    def test_wants_a_stream_that_is_a_uuid(self):
        run = self.run_example("chat-window", self.database, "family", "bruno")
        self.assertEqual(run.returncode, 2)
        self.assertFalse(self.database.exists())


if __name__ == "__main__":
    example_programs.main()
