#!/usr/bin/env python3
"""The example cache-cleaner: what it removes, and what it leaves alone."""

import example_programs


class CacheCleaner(example_programs.ExampleTest):
    def store(self, *parts):
        """Parts as (path below the cache, bytes, last access), of one message, each with its file."""
        for path, size, _ in parts:
            self.cached_file(f"cache/{path}", size)
        self.import_events([{
            "stream_id": "48714726-d247-4be7-8537-0a57a788e38b", "client_id": "88411fdb-0a57-4b91-95f2-032b7d16ded5",
            "type": 4, "seq": 1,
            "content": [{"media_type": "image/png", "size": size, "transfer_status": 4, "last_accessed": accessed,
                         "file_path": path} for path, size, accessed in parts]}])

    def clean(self, limit, status=0):
        run = self.run_example("cache-cleaner", self.database, self.cache, limit)
        self.assertEqual(run.returncode, status, run.stderr + run.stdout)
        return run

    def files(self):
        return sorted(str(file.relative_to(self.cache)) for file in self.cache.rglob("*") if not file.is_dir())

    def purged(self):
        return [bool(row[0]) for row in self.query("SELECT purged FROM event_content_parts "
                                                   "ORDER BY event_content_part_id")]

    def test_removes_what_was_not_used_for_longest_until_the_limit_holds(self):
        self.store(("a/new", 40, 3000), ("a/old", 30, 1000), ("b/middle", 20, 2000))
        run = self.clean(65)
        self.assertEqual(self.files(), ["a/new", "b/middle"], "one file too many, or another one")
        self.assertEqual(self.purged(), [False, True, False])
        self.assertEqual(run.stdout, "removed 30 bytes: a/old\n60 bytes remain\n")

    def test_removes_no_more_than_the_limit_asks_for(self):
        self.store(("new", 40, 3000), ("old", 30, 1000), ("middle", 20, 2000))
        self.clean(60)
        self.assertEqual(self.files(), ["middle", "new"], "exactly the limit is within the limit")

    def test_removes_nothing_below_the_limit(self):
        self.store(("new", 40, 3000), ("old", 30, 1000))
        self.assertEqual(self.clean(70).stdout, "70 bytes remain\n")
        self.assertEqual(self.files(), ["new", "old"])
        self.assertEqual(self.purged(), [False, False])

    def test_empties_the_cache_for_a_limit_of_zero(self):
        self.store(("new", 40, 3000), ("old", 30, 1000))
        self.clean(0)
        self.assertEqual(self.files(), [])
        self.assertEqual(self.purged(), [True, True])

    def test_never_removes_a_file_outside_the_cache(self):
        outside = self.cached_file("outside/precious")
        named_alike = self.cached_file("cache-of-somebody-else/precious")
        self.store(("first", 10, 1000), ("second", 10, 2000), ("third", 10, 3000), ("fourth", 10, 4000))
        (self.cache / "link").symlink_to(self.directory / "outside")
        for index, path in enumerate(["../outside/precious", "link/precious",
                                      "../cache-of-somebody-else/precious"]):
            self.query("UPDATE event_content_parts SET file_path = ? WHERE event_content_part_id = ?", path, index)
        run = self.clean(30)
        self.assertTrue(outside.exists() and named_alike.exists(), "a file outside the cache is gone")
        self.assertEqual(self.purged(), [False, False, False, True], "the part that may go has to go instead")
        self.assertIn("left alone", run.stderr)
        self.assertEqual(self.clean(20, status=1).stdout, "30 bytes remain\n", "nothing is left that may go")

    def test_removes_a_link_in_the_cache_and_not_what_it_leads_to(self):
        outside = self.cached_file("outside/precious")
        self.store(("picture", 10, 1000))
        (self.cache / "picture").unlink()
        (self.cache / "picture").symlink_to(outside)
        self.clean(0)
        self.assertTrue(outside.exists())
        self.assertEqual(self.files(), [])

    def test_marks_a_part_whose_file_is_gone_already(self):
        self.store(("old", 30, 1000))
        (self.cache / "old").unlink()
        self.clean(0)
        self.assertEqual(self.purged(), [True])

    def test_leaves_a_directory_alone(self):
        self.store(("kept/picture", 30, 1000))
        (self.cache / "empty").mkdir()
        for directory in ["kept", "empty", "kept/.", "empty/.."]:
            self.query("UPDATE event_content_parts SET file_path = ?", directory)
            self.clean(0, status=1)
            self.assertEqual(self.files(), ["kept/picture"])
            self.assertTrue((self.cache / "empty").is_dir(), f"{directory} was taken for a file")

    def test_counts_what_takes_more_than_32_bits(self):
        for size in [2**31, 2**32 + 5, 3 * 2**32]:
            with self.subTest(size):
                self.database.unlink(missing_ok=True)
                self.store(("old", 10, 1000), ("new", 20, 2000))
                self.query("UPDATE event_content_parts SET size = ? WHERE event_content_part_id = 0", size)
                self.assertEqual(self.clean(size + 20).stdout, f"{size + 20} bytes remain\n")
                self.assertEqual(self.purged(), [False, False], "nothing has to go below the limit")
                self.clean(size)
                self.assertEqual(self.purged(), [True, False], "the oldest part has to go")

    def test_leaves_what_is_still_to_be_uploaded(self):
        self.store(("own", 30, 1000))
        self.query("UPDATE event_content_parts SET transfer_status = 1")
        self.clean(0, status=1)
        self.assertEqual(self.files(), ["own"])

    def test_leaves_a_download_in_progress(self):
        self.store(("fetched", 30, 1000), ("old", 10, 2000), ("new", 20, 3000))
        self.query("UPDATE event_content_parts SET transfer_status = 3 WHERE event_content_part_id = 0")
        self.clean(20)
        self.assertEqual(self.files(), ["fetched", "new"], "another part goes instead")
        self.assertEqual(self.purged(), [False, True, False], "a purged download would never be finished")

    def test_refuses_a_limit_that_is_no_number(self):
        self.store(("old", 30, 1000))
        for limit in ["", "-1", "10x", "1e3"]:
            self.clean(limit, status=2)
        self.assertEqual(self.files(), ["old"])


if __name__ == "__main__":
    example_programs.main()
