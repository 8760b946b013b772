"""Programs run under callgrind, and what they executed."""

import pathlib
import re
import subprocess
import sys
import tempfile


def profile(command, *options):
    """The text of the profile of a command, a list of words; ends this program where it fails."""
    with tempfile.TemporaryDirectory() as directory:
        file = pathlib.Path(directory, "profile")
        counted = ["valgrind", "--tool=callgrind", *options, f"--callgrind-out-file={file}", *command]
        done = subprocess.run(counted, capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"{' '.join(counted)}:\n{done.stderr}")
        return file.read_text(errors="replace")


def instructions_of(function, command, *options):
    """How many instructions a function and all that it calls executed, the engine's included."""
    text = profile(command, f"--toggle-collect={function}*", *options)
    return int(re.search(r"^(?:summary|totals): (\d+)", text, re.MULTILINE)[1])
