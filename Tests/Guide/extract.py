#!/usr/bin/env python3
"""Makes a program of the snippets in a page: extract.py PAGE.md OUTPUT.cpp

Each block ```cpp runs in order, in one function, as does a comment "<!-- cpp ... -->". A block ```text right after
one is what it prints; one without prints nothing. Lines "#include" go to the top of the program.
"""

import re
import sys

BLOCKS = re.compile(r"^(?:```(?P<language>\w+)\n(?P<shown>.*?)^```|<!-- cpp\n(?P<hidden>.*?)^-->)$",
                    re.DOTALL | re.MULTILINE)


def main():
    page_path, output_path = sys.argv[1:3]
    with open(page_path, encoding="utf-8") as file:
        page = file.read()
    includes, body, snippets, after = [], [], 0, None
    for block in BLOCKS.finditer(page):
        line = page.count("\n", 0, block.start()) + 2
        if block["language"] == "text":
            if after is None or page[after:block.start()].strip():
                sys.exit(f"{page_path}:{line}: this output stands below no snippet")
            body[-1] = f'    guide.ended(R"==({block["shown"]})==");'
            after = None
        elif block["language"] in (None, "cpp"):
            code = []
            for text in (block["hidden"] or block["shown"]).splitlines():
                is_include = text.startswith("#include")
                if is_include:
                    includes.append(text)
                code.append("" if is_include else text)
            body += [f"    guide.begins({line});", f'#line {line} "{page_path}"', *code, '    guide.ended("");']
            snippets += 1
            after = block.end()
        else:
            sys.exit(f"{page_path}:{line}: a block of an unknown language, {block['language']}")
    with open(output_path, "w", encoding="utf-8") as file:
        file.write("\n".join(['#include "Guide/GuideRun.h"', *sorted(set(includes)), "",
                              f"const int zav::test::snippetsInTheGuide = {snippets};", "",
                              "void zav::test::runGuide(GuideRun& guide) {", *body, "}", ""]))


main()
