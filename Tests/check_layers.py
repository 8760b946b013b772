#!/usr/bin/env python3
"""Checks that includes point down the layers: check_layers.py CODE-FOLDER

A layer may include itself and those before it; the tool and the tests lie above all of them.
"""

import pathlib
import re
import sys

LAYERS = [["Private/Foundation"], ["Private/Logging"], ["Private/Database"], ["Messaging", "."],
          ["Private/Model/Querying", "Private/Model/Synchronization"], ["Private/Model/Repositories"]]
RANK = {folder: rank for rank, folders in enumerate(LAYERS) for folder in folders}
# Neither knows of the other.
APART = {("Private/Logging", "Private/Database"), ("Private/Database", "Private/Logging")}

code = pathlib.Path(sys.argv[1])
files = sorted([*code.rglob("*.h"), *code.rglob("*.cpp")])
wrong = []
for file in files:
    folder = file.relative_to(code).parent.as_posix()
    for target in re.findall(r'^#include "([^"]+)"', file.read_text(encoding="utf-8"), re.MULTILINE):
        target_folder = pathlib.PurePosixPath(target).parent.as_posix()
        if target_folder not in RANK or RANK[target_folder] > RANK[folder] or (folder, target_folder) in APART:
            wrong.append(f"{file}: includes {target}")
if wrong or not files:
    sys.exit("\n".join(wrong) or f"{code}: no files")
