#!/usr/bin/env python3
"""Checks that links between files of the project lead to files, and to headings: check_links.py PROJECT"""

import pathlib
import re
import sys

FENCES = re.compile(r"^```.*?^```$|<!--.*?-->", re.DOTALL | re.MULTILINE)


def headings(page):
    text = FENCES.sub("", page.read_text(encoding="utf-8"))
    return {re.sub(r"[^\w -]", "", heading.lower()).strip().replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)$", text, re.MULTILINE)}


def main():
    project = pathlib.Path(sys.argv[1]).resolve()
    pages = [*project.glob("*.md"), *project.glob("Documentation/*.md"), *project.glob("Examples/*.md"),
             *project.glob("Fuzzing/*.md")]
    links, broken = 0, []
    for page in pages:
        for target in re.findall(r"\]\(([^)]+)\)", FENCES.sub("", page.read_text(encoding="utf-8"))):
            if "://" in target:
                continue
            links += 1
            path, _, heading = target.partition("#")
            file = (page.parent / path).resolve() if path else page
            if not file.exists() or (heading and heading not in headings(file)):
                broken.append(f"{page.relative_to(project)}: {target} leads nowhere")
    if broken or not links:
        sys.exit("\n".join(broken) or "no links were found")


main()
