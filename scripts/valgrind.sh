#!/bin/sh
# Runs the tests of a build directory under valgrind: scripts/valgrind.sh [BUILD_DIR [TEST_PROGRAM...]]
# Without names it runs every test program that was built. Fails when a test fails, or when memory is misused or lost.
# CMAKE_BUILD_TYPE=RelWithDebInfo is quick enough, and tells the places.
set -eu
cd "$(dirname "$0")/.."
build="${1:-build}"
[ $# -gt 0 ] && shift
if [ $# -eq 0 ]; then
    for program in "$build"/Tests/zav_*tests; do
        set -- "$@" "$(basename "$program")"
    done
fi

status=0
for program in "$@"; do
    echo "$program"
    # The tool, and tests that run in a process of their own, are followed as well: what valgrind has to say of them
    # fails the test that started them.
    valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
        --show-leak-kinds=definite,indirect --trace-children=yes --num-callers=30 \
        "$build/Tests/$program" --gtest_brief=1 || status=1
done
exit $status
