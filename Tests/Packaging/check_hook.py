#!/usr/bin/env python3
"""Checks the hook that git runs before a commit: check_hook.py SETTINGS

It judges what is staged, whatever lies in the working tree.
"""

import shutil

from packaging import SOURCE, WORK, expect, fresh, run

folder = fresh(WORK / "hook")
for part in ("Code", ".githooks", "Tests/check_layers.py", ".clang-format"):
    (folder / part).parent.mkdir(parents=True, exist_ok=True)
    (shutil.copytree if (SOURCE / part).is_dir() else shutil.copy2)(SOURCE / part, folder / part)


def git(*words, succeeds=True):
    return run("git", "-c", "user.name=Tester", "-c", "user.email=tester@example.org", "-c", "commit.gpgsign=false",
               "-c", "core.hooksPath=.githooks", *words, cwd=folder, succeeds=succeeds)


def stage(name, text):
    (folder / name).write_text(text, encoding="utf-8")
    git("add", name)


git("init", "-q")
git("add", ".")
git("commit", "-q", "-m", "All of it")

stage("Code/Private/Foundation/ZAVNew.h", "#pragma once\n\nint  crooked( ) ;\n")
output = git("commit", "-q", "-m", "Crooked", succeeds=False)
expect("ZAVNew.h" in output and "clang-format" in output, f"what is not formatted is refused:\n{output}")
(folder / "Code/Private/Foundation/ZAVNew.h").write_text("#pragma once\n\nint straight();\n", encoding="utf-8")
output = git("commit", "-q", "-m", "Mended, but not staged", succeeds=False)
expect("clang-format" in output, f"what is staged counts, not what lies in the working tree:\n{output}")

stage("Code/Private/Foundation/ZAVNew.h", '#pragma once\n\n#include <ZAVEventRepository/FMDatabase.h>\n')
output = git("commit", "-q", "-m", "Upwards", succeeds=False)
expect("includes FMDatabase.h of a layer above" in output, f"an include that points upwards is refused:\n{output}")

stage("Code/Private/Foundation/ZAVNew.h", "#pragma once\n\nint straight();\n")
(folder / "Code/Private/Foundation/ZAVNew.h").write_text("int  crooked( ) ;\n", encoding="utf-8")
git("commit", "-q", "-m", "Straight")
git("rm", "-q", "-f", "Code/Private/Foundation/ZAVNew.h")
git("commit", "-q", "-m", "Removed")
expect(git("log", "--format=%s").splitlines() == ["Removed", "Straight", "All of it"], "what is right is committed")
