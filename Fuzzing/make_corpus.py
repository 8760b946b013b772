#!/usr/bin/env python3
"""Makes the first inputs of the fuzz targets: corpus/<target>/. Run it again after changing the form of an input."""

import json
import pathlib
import sqlite3
import struct
import tempfile

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"


def write(target, name, data):
    directory = CORPUS / target
    directory.mkdir(parents=True, exist_ok=True)
    (directory / name).write_bytes(data if isinstance(data, bytes) else data.encode())


def uuid(letter):
    return f"{letter * 8}-0000-4000-8000-00000000000{letter}"


def make_identifiers():
    texts = {
        "object_identifier": f"zav:///messages/{uuid('a')}/parts/7",
        "object_identifier_of_the_last_part": f"zav:///messages/{uuid('f')}/parts/4294967295",
        "object_identifier_past_the_last_part": f"zav:///messages/{uuid('a')}/parts/4294967296",
        "object_identifier_relative": f"zav:///messages/\n{uuid('b')}/parts/0",
        "uuid": uuid("c"),
        "uuid_of_capitals": uuid("D").upper(),
        "sixteen_bytes": bytes(range(240, 256)),
        "file": "file:///cache/ZAVEventRepository/\nfiles/5/part-0",
        "dots": "http://host.example:8080/a/b/c?q=1#f\n../../../d/./e/..//f?g#h",
        "host": "http://host/a\n//other.example/b",
        "scheme": "http://host/a\nmailto:someone@example.com",
        "query": "http://host/a?b\n?c",
        "fragment": "http://host/a\n#c",
        "empty_reference": "http://host/a/b\n",
        "no_scheme": "a/b/c\n../d",
        "colon_in_segment": "file:///x/\n./a:b",
        "user_and_address": "ftp://user:word@[2001:db8::7]:21/%7Euser/a%20b",
        "address_of_numbers": "http://192.0.2.16:80/x\ny",
        "opaque_base": "urn:isbn:1\n..//c",
        "empty_segments": "zav:/..//a\n/.//b",
        "escapes": "file:///%41%00%2f%C3%A9\n%2E%2e/%zz",
        "formats": "a %@ b %d c %u d %ld e %lld f %lu g %llu h %% %x %",
        "utf8": "ä€😀\u0000\uffff",
        "utf8_broken": b"\xc3\xa4\xed\xa0\x80\xf4\x90\x80\x80\xc0\x80\xe2\x82",
        "base64": "gID/AAEC",
        "base64_padded": "gA==",
        "base64_of_two": "gID=",
        "empty": "",
    }
    for name, text in texts.items():
        write("identifiers", name, text)


def make_event_lines():
    part = {"media_type": "text/plain", "size": 5, "text": "hello", "transfer_status": 4, "purged": False}
    download = {"media_type": "image/png", "size": 70000, "external_url": "https://content.example.com/1"}
    kept = dict(download, transfer_status=3, file_path="files/1/part-0", last_accessed=1700000000.25,
                external_content_url_expiration=1800000000, purged=True)
    event = {"stream_id": uuid("a"), "client_id": uuid("b"), "type": 2, "seq": 1}
    full = dict(event, subtype=3, preceding_seq=0, client_seq=9, server_timestamp=1700000000000, target_seq=4,
                creator_id="member-1", creator_name='A "name" \\ \n\t\u0001 ä😀\u0000', member_id="",
                transient_metadata={"locale": "de", "key": {"base64": "gID/"}, "": "\u0000"},
                content=[part, dict(part, text="", size=0), {"media_type": "a/b", "body": "gIA="}, kept])
    draft = {"client_id": uuid("c"), "type": 4, "stream_database_identifier": 3}
    inputs = {
        "one": (0, [event]),
        "full": (1, [full]),
        "download": (16, [dict(event, content=[download, kept])]),
        "download_of_nobody": (0, [dict(event, content=[download])]),
        "batches": (1, [dict(event, seq=number, client_id=uuid(letter))
                        for number, letter in enumerate("abcdef", 1)]),
        "batch_with_a_bad_line": (2, [event, dict(event, seq=2), dict(event, seq=3), {"type": 2}, event]),
        "bad_lines_skipped": (4 + 8, [event, "no JSON", {"type": 0}, dict(event, seq=2, type="2"), full]),
        "changes_recorded": (8 + 3, [event, dict(event, seq=2), draft]),
        "draft_and_its_sequence": (2, [{**event, "seq": None} | {}, event]),
        "drafts": (3, [draft, dict(draft, client_id=uuid("d")), dict(draft, stream_id=uuid("a")), draft]),
        "draft_then_sequenced": (0, [dict(draft, stream_id=uuid("a")),
                                     dict(event, client_id=uuid("c")), dict(draft, seq=5)]),
        "limits": (4, [dict(event, seq=2147483647, subtype=255, server_timestamp=-(2**63), target_seq=-(2**31),
                            type=-(2**31), client_seq=2**31 - 1, preceding_seq=-1),
                       dict(event, seq=2**31), dict(event, subtype=256), dict(event, server_timestamp=2**63),
                       dict(event, seq=2, content=[dict(part, last_accessed=1e308, size=2**63 - 1)]),
                       dict(event, seq=3, content=[dict(part, last_accessed=-5e-324, size=-1)])]),
        "long_line": (32, [event, full]),
        "unnamed_streams": (1, [dict(draft, seq=1), dict(draft, client_id=uuid("e"), stream_database_identifier=4),
                                {"client_id": uuid("f"), "type": 1, "seq": 1}]),
    }
    for name, (options, lines) in inputs.items():
        lines = [line if isinstance(line, str) else
                 json.dumps({key: value for key, value in line.items() if value is not None}, ensure_ascii=False)
                 for line in lines]
        write("event_lines", name, bytes([options]) + "\n".join(lines).encode() + b"\n")
    write("event_lines", "blank_lines_and_no_last_break",
          b"\0\n \t\r\n" + json.dumps(event).encode() + b"\r\n\n" + json.dumps(draft).encode())
    write("event_lines", "no_utf8", b"\4" + json.dumps(event).replace("bbbb", "\0").encode() + b"\n\xff\n"
          + json.dumps(dict(event, creator_id="X")).encode().replace(b"X", b"\xed\xa0\x80"))


NULL = b"\0"
NAN, INFINITY, HALF, HUGE = b"\x08\x07", b"\x08\x05", b"\x08\x00", b"\x08\x02"
INT32_MAX, INT32_MIN, NOT_SET, INT64_MIN, TWO_TO_32 = (b"\x07" + bytes([index]) for index in (5, 6, 11, 10, 8))


def integer(number):
    return b"\x02" + struct.pack("<b", number) if -128 <= number < 128 else b"\x01" + struct.pack("<q", number)


def real(number):
    return b"\x03" + struct.pack("<d", number)


def text(string):
    data = string.encode() if isinstance(string, str) else string
    return b"\x04" + bytes([len(data)]) + data


def blob(data):
    return b"\x05" + bytes([len(data)]) + data


def row_uuid(byte):
    return b"\x09" + bytes([byte])


def row(*values):
    return b"".join(integer(value) if isinstance(value, int) else text(value) if isinstance(value, str) else value
                    for value in values)


def make_row_mappers():
    event = row(row_uuid(1), 3, "creator", "member", 2, 1, 4, 5, 100000, 4, 6, 7, row_uuid(2), 9, "name")
    part = row(0, 1, "text/plain", blob(b"hello"), NULL, NULL, 5, 4, "files/1/part-0", real(1.5), 0, row_uuid(1), 6,
               row_uuid(2))
    external = row(1, 1, "image/png", blob(b"left"), real(1800000000.75), "https://content.example.com/1", 70000, 3,
                   "a%20b/../c:d", 2, 1, row_uuid(1), NULL, NULL)
    stream, stored, stored_part, keyed, change, message = (bytes([number]) for number in range(6))
    streams = stream + row(1, row_uuid(2), 20) + stream + row(2, NULL, NULL)

    def event_row(number, *, seq=NULL, stream_row=1, client=None):
        return stored + row(number, 4, "creator", seq, 1700000000, 1, 2, 3, "member", NULL, stream_row,
                            client or row_uuid(number), "name")

    def part_row(number, event_number, index, path="files/1/part-0"):
        return stored_part + row(number, index, event_number, "text/plain", blob(b"hello"), NULL, NULL, 5, 4, path,
                                 real(1.5), 0)

    def metadata(number, key, value):
        return keyed + row(number, "event", 1, key, value, NULL)

    none = b"\0" + NULL * 15 + b"\0" + NULL * 14
    write("row_mappers", "nulls", none)
    write("row_mappers", "ordinary", b"\0" + event + b"\0" + part)
    write("row_mappers", "external", b"\0" + event + b"\0" + external)
    write("row_mappers", "more_columns", b"\2" + event + row(1, 2) + b"\3" + external + row(1, 2, 3))
    write("row_mappers", "fewer_columns", b"\xfd" + event[:-12] + b"\xfd" + part[:-6])
    write("row_mappers", "numbers", b"\0" + (INT32_MIN + NAN + INFINITY + TWO_TO_32 + HALF) * 3
          + b"\0" + (NOT_SET + HUGE + INT64_MIN + INT32_MAX + NAN + real(-0.5) + integer(-1)) * 2)
    write("row_mappers", "texts", b"\0" + text(b"a\0b\xff") * 15 + b"\0" + text("1e3\0x") * 14)
    write("row_mappers", "blobs", b"\0" + blob(b"") * 15 + b"\0" + b"\x06\x10" * 14)
    write("row_mappers", "long_values", b"\0" + b"\x06\xff" * 15 + b"\0" + text("x" * 255) * 14)
    write("row_mappers", "store", none + streams + event_row(1, seq=integer(1)) + event_row(2)
          + event_row(3, stream_row=2) + event_row(4, seq=integer(2), stream_row=9)
          + part_row(1, 1, 0) + part_row(2, 1, 1, "a b") + part_row(3, 2, 0, "http://x/y")
          + part_row(4, 8, 0, "//h/p")
          + metadata(1, "locale", text("de")) + metadata(1, "key", blob(b"\xff\0")) + metadata(2, "n", integer(5))
          + change + row(1, "events", 1, 1) + change + row(2, "events", 1, 1) + message + row(1, 1, 3))
    write("row_mappers", "store_of_odd_types", none + stream + row(1, text("0123456789abcdef"), text("x"))
          + stored + row(1, text("four"), blob(b"\0\1"), HALF, INFINITY, text("5"), NAN, integer(300), blob(b"m\0"),
                         INT64_MIN, integer(1), text("client"), HUGE)
          + stored + row(NOT_SET, 4, NULL, INT32_MAX, NULL, NULL, NULL, NULL, NULL, NULL, 1, blob(b""), NULL)
          + stored_part + row(1, text("zero"), integer(1), blob(b"t"), text("v"), text("soon"), NULL, HALF, integer(9),
                              text(b"p\0q"), text("then"), text("yes"))
          + stored_part + row(2, integer(-1), NOT_SET, NULL, NULL, INFINITY, blob(b"\xff"), INT64_MIN, INT32_MIN,
                              text(""), INFINITY, real(0.1))
          + keyed + row(1, "event", 1, blob(b"k"), real(0.5), NAN))
    write("row_mappers", "paths", none + streams + event_row(1, seq=integer(1)) + b"".join(
        part_row(number, 1, number, path) for number, path in
        enumerate(["", ".", "../x", "a/./b//c", "%41", "%zz", "?q", "#f", "/root", "//host/x", "s:x", "a:b", "ä"])))


def small_database():
    """A whole file: the event store's schema on small pages, with a few rows."""
    migrations = sorted((CORPUS.parent.parent / "Code/Private/Database/Migrations").glob("*.sql"))
    with tempfile.TemporaryDirectory() as directory:
        path = pathlib.Path(directory) / "chat.db"
        connection = sqlite3.connect(path)
        connection.executescript("PRAGMA page_size=512;" + "".join(each.read_text() for each in migrations) + f"""
            PRAGMA user_version={len(migrations)};
            INSERT INTO streams VALUES (1, zeroblob(16), 3);
            INSERT INTO events VALUES (3, 4, 'a', 3, 5, 2, 1, 0, NULL, NULL, 1, zeroblob(16), 'A');
            INSERT INTO event_content_parts VALUES (1, 0, 3, 'text/plain', 'hello', NULL, NULL, 5, 4, 'f/1', 1.5, 0);
            INSERT INTO keyed_values_remote VALUES (3, 'event', 1, 'locale', 'de', NULL);""")
        connection.close()
        return path.read_bytes()


def make_database_file():
    def change(page, offset, data, *, log=False):
        return struct.pack("<HHB", page | (0x8000 if log else 0), offset, len(data)) + data

    def damaged(name, *changes, options=0):
        write("database_file", name, bytes([options]) + b"".join(changes))

    damaged("sound")
    damaged("sound_with_its_log", options=2)
    damaged("log_corrected", options=6)
    damaged("empty_file", change(0, 0, b""))
    damaged("cut_in_the_header", change(0, 50, b""))
    damaged("cut_off_in_the_middle", change(40, 100, b""))
    damaged("cut_off_at_a_page", change(60, 0, b""))
    for name, offset, data in [("no_magic", 0, b"x"), ("page_size", 16, b"\x10\x00"), ("versions", 18, b"\1\1"),
                               ("future_format", 18, b"\3\3"), ("reserved", 20, b"\x20"),
                               ("page_count", 28, b"\xff\xff\xff\xff"), ("freelist", 32, b"\0\0\0\5\0\0\0\xff"),
                               ("schema_format", 44, b"\0\0\0\x09"), ("largest_root", 52, b"\0\0\0\7"),
                               ("encoding", 56, b"\0\0\0\3"), ("newer_schema", 60, b"\0\0\0\x63"),
                               ("foreign_schema", 60, b"\0\0\0\0"), ("version_below_zero", 60, b"\xff\xff\xff\xff"),
                               ("incremental", 64, b"\0\0\0\1")]:
        damaged("header_" + name, change(0, offset, data))
    for name, version in [("newer", 99), ("foreign", 0), ("below_zero", -1)]:
        damaged(f"version_{name}_of_a_store_without_a_log", change(0, 18, b"\1\1"),
                change(0, 60, struct.pack(">i", version)))
    damaged("schema_page", change(0, 100, b"\x05\0\0\0\x02"))
    damaged("schema_text", change(0, 480, b"CREATE VIEW x AS SELECT"))
    for page in range(1, 60):
        damaged(f"page_{page:02}_as_a_leaf", change(page, 0, b"\x0d\0\0\0\3"))
    for page in range(1, 60, 3):
        damaged(f"page_{page:02}_as_an_inner_page",
                change(page, 0, b"\x05\0\0\0\2\0\x20\0\0\0\0\0" + bytes([page + 1])))
        damaged(f"page_{page:02}_of_other_cells", change(page, 8, b"\1\xf0\1\xe0\0\0\1\xff"),
                change(page, 500, b"\xff\xff\xff\xff\x0f"))
    for number in range(0, 20, 4):
        damaged(f"log_frame_{number:02}_changed", change(number, 40 + 32, b"\x0d\0\0\0\1\0\x50", log=True), options=6)
        damaged(f"log_frame_{number:02}_of_another_page", change(number, 32, struct.pack(">II", 3, number), log=True),
                options=6)
    damaged("log_cut_off", change(9, 99, b"", log=True), options=2)
    damaged("log_header", change(0, 0, b"\x37\x7f\6\x83\0\x2d\xe2\x18\0\0\4\0", log=True), options=6)
    damaged("log_broken", change(5, 60, b"\0" * 30, log=True), options=2)
    write("database_file", "whole_file", b"\1" + small_database())
    write("database_file", "whole_file_that_is_none", b"\1SQLite format 3\0" + b"\0" * 100)


if __name__ == "__main__":
    make_identifiers()
    make_event_lines()
    make_row_mappers()
    make_database_file()
