#!/usr/bin/env python3
"""Checks that the first program in the README is the one that is built: check_readme.py README PROGRAM"""

import re
import sys

readme, program = (open(path, encoding="utf-8").read() for path in sys.argv[1:3])
shown = re.search(r"```cpp\n(.*?)```", readme, re.DOTALL)
if not shown or shown[1] != program:
    sys.exit(f"{sys.argv[1]}: the first program differs from {sys.argv[2]}")
