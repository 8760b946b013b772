#!/usr/bin/env python3
"""Checks that includes point down the layers: check_layers.py CODE-FOLDER

A layer may include itself and those before it; the tool and the tests lie above all of them. A public header is included
as <ZAVEventRepository/Name.h>, an internal one by its path below the code folder.
"""

import pathlib
import re
import sys

LAYERS = [["Private/Foundation"], ["Private/Logging"], ["Private/Database"], ["Messaging", "."],
          ["Private/Model/Querying", "Private/Model/Synchronization"], ["Private/Model/Repositories"],
          ["Store"]]
RANK = {folder: rank for rank, folders in enumerate(LAYERS) for folder in folders}
INTERNAL = "Internal"
# Made by the build, from what stands beside the public records.
GENERATED = {"ZAVVersion.h": "."}


def layer_of(file):
    """The folder that a file belongs to; internal headers belong to the one that their own folder stands in."""
    folder = file.parent
    return (folder.parent if folder.name == INTERNAL else folder).as_posix()


code = pathlib.Path(sys.argv[1])
files = sorted([*code.rglob("*.h"), *code.rglob("*.cpp")])
public = {file.name: layer_of(file.relative_to(code)) for file in files if file.suffix == ".h" and file.parent.name != INTERNAL}
public.update(GENERATED)
wrong = []
for file in files:
    folder = layer_of(file.relative_to(code))
    text = file.read_text(encoding="utf-8")
    targets = [(name, public.get(name)) for name in re.findall(r"^#include <ZAVEventRepository/([^>]+)>", text, re.MULTILINE)]
    for target in re.findall(r'^#include "([^"]+)"', text, re.MULTILINE):
        path = pathlib.PurePosixPath(target)
        targets.append((target, layer_of(path) if path.parent.name == INTERNAL else None))
    for target, layer in targets:
        if layer is None:
            wrong.append(f"{file}: includes {target}, which is neither a public header nor the path of an internal one")
        elif RANK.get(layer, len(LAYERS)) > RANK[folder]:
            wrong.append(f"{file}: includes {target} of a layer above its own")
if wrong or not files:
    sys.exit("\n".join(wrong) or f"{code}: no files")
