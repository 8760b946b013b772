#!/usr/bin/env python3
"""Draws what the example chat-window shows: draw_chat_window.py EXAMPLES-DIRECTORY ZAVEVENTS [--check]

Runs it in a terminal, on the sample conversation and a message that is sent there, and writes chat-window.svg beside
this script; with --check it fails instead when the file is not what it would write.
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unicodedata
from xml.sax.saxutils import escape

HERE = pathlib.Path(__file__).resolve().parent
PICTURE = HERE / "chat-window.svg"
SAMPLE = HERE.parent / "Examples/sample-conversation.jsonl"
sys.path.insert(0, str(HERE.parent / "Tests/Examples"))
sys.dont_write_bytecode = True
import terminal  # noqa: E402

STREAM = "48714726-d247-5be7-8537-0a57a788e38b"
COLUMNS, ROWS = 72, 21
WIDTH, LINE, EDGE = 8.4, 19, 18  # of a column and a row in pixels, and around all of them

BACKGROUND, TEXT, FAINT = "#1d2430", "#dde3ea", "#8b97a6"
COLOURS = {32: "#8fd694", 33: "#f0c674", 36: "#7cc7e8"}


def look():
    """What the terminal shows, row by row with its escape sequences, and where the cursor is."""
    examples, tool = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
    with tempfile.TemporaryDirectory() as directory:
        database = pathlib.Path(directory) / "chat.db"
        for arguments in (["import", database, SAMPLE], ["tombstone", database, "--stream-row", "1", "--seq", "5"]):
            subprocess.run([tool, *arguments], check=True, capture_output=True, timeout=terminal.PATIENCE)
        window = terminal.Terminal(directory, [examples / "chat-window", database, STREAM, "ada"], COLUMNS, ROWS)
        try:
            window.wait_for("View from the bus")
            window.type("Is there a seat left for my sister?")
            window.press("Enter")
            window.wait_until(lambda rows: "my sister" in rows[-3], "the message does not appear")
            window.type("She brings")
            window.wait_until(lambda rows: "She brings" in rows[-1], "the next one does not appear")
            return window.styled_rows(), (int(window.tells("cursor_x")), int(window.tells("cursor_y")))
        finally:
            window.close()


def width_of(text):
    """In columns: those of East Asia and pictures take two."""
    return sum(0 if unicodedata.combining(character) else 1 + (unicodedata.east_asian_width(character) in "WF")
               for character in text)


def pieces_of(rows):
    """Row, column, text and style (bold, faint, reversed, colour) of what has one style."""
    plain = (False, False, False, None)
    style = plain
    for row, line in enumerate(rows):
        column = 0
        for codes, text in re.findall(r"\x1b\[([0-9;]*)m|([^\x1b]+)", line):
            if text:
                yield row, column, text, style
                column += width_of(text)
                continue
            for code in map(int, (codes or "0").split(";")):
                bold, faint, is_reversed, colour = style
                if code == 0:
                    style = plain
                elif code in (1, 2, 7):
                    style = (bold or code == 1, faint or code == 2, is_reversed or code == 7, colour)
                elif 30 <= code <= 37 or code == 39:
                    style = (bold, faint, is_reversed, None if code == 39 else COLOURS[code])
                elif code != 49:
                    sys.exit(f"this script cannot draw what the program shows by {code}")


def draw(rows, cursor):
    def box(column, row, columns, colour):
        return (f'<rect x="{EDGE + column * WIDTH:g}" y="{EDGE + row * LINE}" width="{columns * WIDTH:g}" '
                f'height="{LINE}" fill="{colour}"/>')

    width, height = 2 * EDGE + COLUMNS * WIDTH, 2 * EDGE + ROWS * LINE
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:g} {height}" width="{width:g}" '
           f'height="{height}" font-family="monospace" font-size="14" fill="{TEXT}">',
           "<title>A chat window in a terminal</title>",
           f'<rect x="0.5" y="0.5" width="{width - 1:g}" height="{height - 1}" rx="10" fill="{BACKGROUND}" '
           f'stroke="{FAINT}"/>']
    for row, column, text, (bold, faint, is_reversed, colour) in pieces_of(rows):
        if is_reversed:
            out.append(box(column, row, width_of(text), TEXT))
        fill = BACKGROUND if is_reversed else FAINT if faint else colour
        look = (f' fill="{fill}"' if fill else "") + (' font-weight="bold"' if bold else "")
        # From blanks on the next words have a place of their own, whatever the font makes of the widths.
        for words in re.finditer(r"\S+(?: \S+)*", text):
            x = EDGE + (column + width_of(text[:words.start()])) * WIDTH
            out.append(f'<text x="{x:g}" y="{EDGE + row * LINE + 14}" textLength="{width_of(words.group()) * WIDTH:g}"'
                       f'{look}>{escape(words.group())}</text>')
    out.append(box(*cursor, 1, TEXT))
    return "\n".join([*out, "</svg>", ""])


def main():
    picture = draw(*look())
    if sys.argv[3:] != ["--check"]:
        PICTURE.write_text(picture, encoding="utf-8")
    elif not PICTURE.exists() or PICTURE.read_text(encoding="utf-8") != picture:
        sys.exit(f"{PICTURE} is not what the program shows; run {pathlib.Path(__file__).name}")


main()
