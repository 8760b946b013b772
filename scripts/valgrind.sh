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
shards=$(nproc 2> /dev/null || echo 2)

# The tool, and tests that run in a process of their own, are followed as well: what valgrind has to say of them fails
# the test that started them. One of them runs as another user, who could not serve a debugger.
memcheck="valgrind --quiet --vgdb=no --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect
    --show-leak-kinds=definite,indirect --trace-children=yes --num-callers=30"

# The sweeps take one fault of seven: with all of them they would go on for hours.
ZAV_TEST_EFFORT="${ZAV_TEST_EFFORT:-brief}"
export ZAV_TEST_EFFORT

status=0
for program in "$@"; do
    # Valgrind runs one thread at a time, so each processor gets a share of the tests.
    processes=""
    for shard in $(seq 0 $((shards - 1))); do
        GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$shard $memcheck "$build/Tests/$program" --gtest_brief=1 \
            > "$build/$program-valgrind-$shard.txt" 2>&1 &
        processes="$processes $!"
    done
    for process in $processes; do
        wait "$process" || status=1
    done
    cat "$build/$program"-valgrind-*.txt
done
exit $status
