#!/bin/sh
# How much of the library the tests reach, in lines and branches: scripts/coverage.sh [BUILD_DIR]
# Builds without optimisation, runs every test, lists what none of them reached, and fails below 98 % of the lines or
# 90 % of the branches. The list is kept in BUILD_DIR/coverage.txt.
set -eu
cd "$(dirname "$0")/.."
build="${1:-build/coverage}"
jobs=$(nproc 2> /dev/null || echo 2)

# One test runs the tool as a user without privileges, who must be able to count too.
umask 0

cmake --preset coverage -B "$build"
cmake --build "$build" -j "$jobs"
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" --output-on-failure -j "$jobs"

# Every call that might throw is a branch to the compiler; those that lead to an exception's way out are left out.
gcovr --root . --filter Code/ --exclude-throw-branches --exclude-unreachable-branches -j "$jobs" \
    --json "$build/coverage.json" "$build/Code" "$build/Tests" "$build/Tools"
{
    gcovr --root . --add-tracefile "$build/coverage.json"
    gcovr --root . --add-tracefile "$build/coverage.json" --branches
} > "$build/coverage.txt"
cat "$build/coverage.txt"
gcovr --root . --add-tracefile "$build/coverage.json" --print-summary --output /dev/null --fail-under-line 98 \
    --fail-under-branch 90
