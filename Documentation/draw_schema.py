#!/usr/bin/env python3
"""Draws the tables of the event store from the migrations: draw_schema.py [--check]

Writes schema.svg beside this script; with --check it fails instead when the file is not what it would write.
"""

import pathlib
import sqlite3
import sys

HERE = pathlib.Path(__file__).resolve().parent
MIGRATIONS = HERE.parent / "Code/Private/Database/Migrations"
PICTURE = HERE / "schema.svg"

# Where each table stands: column and row of a grid.
PLACES = {
    "conversations": (0, 0), "streams": (1, 0), "stream_recency": (2, 0),
    "conversation_participants": (0, 1), "events": (1, 1), "synced_changes": (2, 1),
    "messages": (0, 2), "keyed_values_remote": (1, 2), "event_content_parts": (2, 2),
    "keyed_values_local": (0, 3),
}
# What refers to what. The tables declare no foreign keys: rows may outlive what they refer to.
REFERENCES = [
    ("conversations", "streams", "stream_id"),
    ("events", "streams", "stream_database_identifier"),
    ("stream_recency", "streams", "stream_database_identifier"),
    ("synced_changes", "events", "row_identifier"),
    ("event_content_parts", "events", "event_database_identifier"),
    ("conversation_participants", "conversations", "conversation_database_identifier"),
    ("messages", "events", "event_database_identifier"),
    ("keyed_values_remote", "events", "object_database_identifier"),
]
WIDTH, COLUMN, LINE, HEAD, GAP = 290, 380, 18, 26, 50


def tables():
    database = sqlite3.connect(":memory:")
    for migration in sorted(MIGRATIONS.glob("*.sql")):
        database.executescript(migration.read_text(encoding="utf-8"))
    names = [row[0] for row in database.execute(
        "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' ORDER BY name")]
    return {name: database.execute(f"PRAGMA table_info({name})").fetchall() for name in names}


def boxes(columns_of):
    heights = {name: HEAD + LINE * len(columns) + 8 for name, columns in columns_of.items()}
    result, top = {}, 20
    for row in range(1 + max(place[1] for place in PLACES.values())):
        in_row = [name for name, place in PLACES.items() if place[1] == row]
        for name in in_row:
            result[name] = (20 + PLACES[name][0] * COLUMN, top, WIDTH, heights[name])
        top += max(heights[name] for name in in_row) + GAP
    return result, top


def line(box_from, box_to, label):
    (x1, y1, w1, h1), (x2, y2, w2, h2) = box_from, box_to
    if x1 == x2:
        down = y2 > y1
        start = (x1 + w1 / 2, y1 + h1 if down else y1)
        end = (x2 + w2 / 2, y2 if down else y2 + h2)
    else:
        start = (x1 + w1 if x2 > x1 else x1, y1 + min(h1, 90) / 2)
        end = (x2 if x2 > x1 else x2 + w2, max(y2 + 20, min(y2 + h2 - 20, start[1])))
    return (f'<line x1="{start[0]:g}" y1="{start[1]:g}" x2="{end[0]:g}" y2="{end[1]:g}" stroke="#567" '
            f'marker-end="url(#arrow)"><title>{label}</title></line>')


def draw(columns_of):
    if set(columns_of) != set(PLACES):
        sys.exit(f"these tables have no place, or no table: {sorted(set(columns_of) ^ set(PLACES))}")
    places, height = boxes(columns_of)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{2 * COLUMN + WIDTH + 40}" height="{height - GAP + 20}" '
           'font-family="sans-serif" font-size="12">',
           '<title>Tables of the event store</title>',
           '<defs><marker id="arrow" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" markerHeight="8" '
           'orient="auto"><path d="M0,0 L8,4 L0,8 z" fill="#567"/></marker></defs>',
           '<rect width="100%" height="100%" fill="white"/>']
    out += [line(places[source], places[target], f"{source}.{column}") for source, target, column in REFERENCES]
    for name, (x, y, width, box_height) in places.items():
        out.append(f'<rect x="{x}" y="{y}" width="{width}" height="{box_height}" fill="white" stroke="#345"/>')
        out.append(f'<rect x="{x}" y="{y}" width="{width}" height="{HEAD}" fill="#e4ebf2" stroke="#345"/>')
        out.append(f'<text x="{x + 8}" y="{y + 17}" font-weight="bold">{name}</text>')
        for index, (_, column, kind, _, _, key) in enumerate(columns_of[name]):
            baseline = y + HEAD + LINE * (index + 1)
            style = ' text-decoration="underline"' if key else ""
            out.append(f'<text x="{x + 8}" y="{baseline}"{style}>{column}</text>')
            out.append(f'<text x="{x + width - 8}" y="{baseline}" text-anchor="end" fill="#678">{kind}</text>')
    return "\n".join([*out, "</svg>", ""])


def main():
    picture = draw(tables())
    if sys.argv[1:] != ["--check"]:
        PICTURE.write_text(picture, encoding="utf-8")
    elif not PICTURE.exists() or PICTURE.read_text(encoding="utf-8") != picture:
        sys.exit(f"{PICTURE} is not what the migrations say; run {pathlib.Path(__file__).name}")


main()
