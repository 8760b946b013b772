#!/usr/bin/env python3
"""The example downloader against a content server of its own, also when it is killed on the way."""

import os
import signal
import subprocess
import time

import example_programs

STREAM = "48714726-d247-4be7-8537-0a57a788e38b"


class Downloader(example_programs.ExampleTest):
    def setUp(self):
        super().setUp()
        self.store = self.directory / "store"
        self.store.mkdir()
        self.log = self.directory / "server.log"

    def start_server(self, delay=0, validity=3600):
        with open(self.log, "w", encoding="utf-8") as log:
            server = subprocess.Popen([example_programs.EXAMPLES / "content-server", self.store, str(delay),
                                       str(validity)], stdout=log)
        self.addCleanup(lambda: (server.kill(), server.wait()))
        self.wait_for(lambda: self.log.read_text().endswith("\n"), "the server does not say where it is")
        self.address = self.log.read_text().splitlines()[0]

    def wait_for(self, condition, complaint):
        end = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), end, complaint)
            time.sleep(0.002)

    def requests(self):
        return self.log.read_text().splitlines()[1:]

    def make_parts(self, downloads, uploads, size):
        """Stores events: `downloads` whose content the server has, `uploads` whose content is in the cache."""
        self.wanted, self.own, events = {}, {}, []
        for number in range(downloads + uploads):
            client = f"00000000-0000-4000-8000-{number:012x}"
            part = {"media_type": "image/png", "size": size}
            if number < downloads:
                part["external_url"] = f"https://content.example.com/{number}"
                self.wanted[f"{client}-0"] = self.cached_file(f"store/{client}-0", size).read_bytes()
            else:
                part |= {"transfer_status": 0, "file_path": f"own/{number}"}
                self.own[f"{client}-0"] = self.cached_file(f"cache/own/{number}", size).read_bytes()
            events.append({"stream_id": STREAM, "client_id": client, "type": 4, "seq": number + 1,
                           "preceding_seq": number, "content": [part]})
        self.import_events(events)

    def start(self):
        return subprocess.Popen([example_programs.EXAMPLES / "downloader", self.database, self.cache, self.address],
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

    def run_to_the_end(self):
        run = self.run_example("downloader", self.database, self.cache, self.address)
        self.assertEqual(run.returncode, 0, run.stderr)
        return run

    def parts(self, condition):
        """Name at the server and file of each part that the database has under a condition."""
        return {f"{client.hex()[:8]}-{client.hex()[8:12]}-{client.hex()[12:16]}-{client.hex()[16:20]}-"
                f"{client.hex()[20:]}-{index}": self.cache / path
                for client, index, path in self.query(
                    "SELECT client_id, event_content_part_id, file_path FROM event_content_parts JOIN events "
                    f"ON events.database_identifier = event_database_identifier WHERE {condition}")}

    def partial_files(self, path=None):
        """What was fetched so far of the file at a path, or of any."""
        return list(path.parent.glob(f".zav-partial-*-{path.name}") if path else self.cache.rglob(".zav-partial-*"))

    def expect_everything_in_place(self):
        files = self.parts("transfer_status = 4")
        self.assertEqual(set(files), set(self.wanted) | set(self.own), "not every part is complete in the database")
        for name, content in self.wanted.items():
            self.assertEqual(files[name].read_bytes(), content, f"{name} is not what the server holds")
        for name, content in self.own.items():
            self.assertEqual((self.store / name).read_bytes(), content, f"the server did not get {name} as it is")
        self.assertEqual(self.partial_files(), [])

    def test_moves_everything_in_both_directions(self):
        self.start_server()
        self.make_parts(downloads=5, uploads=3, size=100_000)
        self.run_to_the_end()
        self.expect_everything_in_place()
        before = self.requests()
        self.run_to_the_end()
        self.assertEqual(self.requests(), before, "there was nothing left to do")

    def test_keeps_content_from_other_users(self):
        self.start_server()
        self.make_parts(downloads=1, uploads=0, size=1000)
        self.run_to_the_end()
        for path in self.parts("transfer_status = 4").values():
            self.assertEqual(oct(path.stat().st_mode & 0o777), "0o600", path)
            self.assertEqual(oct(path.parent.stat().st_mode & 0o777), "0o700", path.parent)

    def test_asks_for_a_new_url_when_one_expires(self):
        self.start_server()
        self.make_parts(downloads=3, uploads=0, size=1000)
        # What an earlier run was given, and the server does not honour any more though the database thinks so.
        for name in self.wanted:
            self.query("UPDATE event_content_parts SET transfer_status = 3, access_expiration = ?, url = ? WHERE "
                       "event_database_identifier = (SELECT database_identifier FROM events WHERE client_id = ?)",
                       time.time() + 1000, f"{self.address}/content/{name[:36]}/0/1000",
                       bytes.fromhex(name[:36].replace("-", "")))
        self.run_to_the_end()
        self.expect_everything_in_place()

    def test_does_not_fetch_a_file_that_was_finished_before_the_database_heard_of_it(self):
        self.start_server()
        self.make_parts(downloads=1, uploads=0, size=1000)
        for name, path in self.parts("file_path NOT NULL").items():
            path.parent.mkdir(parents=True)
            path.write_bytes(self.wanted[name])
        self.run_to_the_end()
        self.expect_everything_in_place()
        self.assertEqual([line for line in self.requests() if line.startswith("get")], [])

    def test_says_so_when_the_service_does_not_have_a_content(self):
        self.start_server()
        self.make_parts(downloads=1, uploads=0, size=1000)
        name = next(iter(self.wanted))
        (self.store / name).unlink()
        run = self.run_example("downloader", self.database, self.cache, self.address)
        self.assertEqual(run.returncode, 1)
        self.assertIn("cannot fetch", run.stderr)
        self.assertEqual(self.parts("transfer_status = 4"), {})

    def kill_midway(self):
        """Kills a run of the downloader while it has a file half way."""
        downloader = self.start()
        try:
            self.wait_for(lambda: len(self.parts("transfer_status = 4")) >= len(self.own) + 3 and
                          any(file.stat().st_size for file in self.partial_files()),
                          "the downloader does not get on")
        except FileNotFoundError:
            pass  # the file was finished while it was looked at: killed a little later
        finally:
            os.kill(downloader.pid, signal.SIGKILL)
            status = downloader.wait()
            downloader.stderr.close()
        self.assertEqual(status, -signal.SIGKILL, "the downloader was through before it was killed")

    def test_goes_on_where_it_was_killed(self):
        self.start_server(delay=3)
        self.make_parts(downloads=20, uploads=3, size=300_000)
        self.kill_midway()
        complete = self.parts("transfer_status = 4")
        self.assertGreaterEqual(len(complete), 6)
        self.assertLess(len(complete), 23, "everything was done before the kill")
        halfway = {name: partial.stat().st_size for name, path in self.parts("transfer_status = 3").items()
                   for partial in self.partial_files(path)}
        self.assertTrue(halfway, "no file was half way when the downloader was killed")
        before = len(self.requests())

        self.run_to_the_end()
        self.expect_everything_in_place()
        after = self.requests()[before:]
        for name in complete:
            self.assertFalse([line for line in after if name in line], f"{name} was complete, and moved again")
        for name, size in halfway.items():
            if 0 < size < 300_000:
                self.assertIn(f"get {name} from {size}", after, f"{name} was not gone on with")


if __name__ == "__main__":
    example_programs.main()
