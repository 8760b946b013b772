#!/bin/sh
# Runs each fuzz target for SECONDS and says what came of it: scripts/fuzz.sh SECONDS [BUILD_DIR]
# The kept inputs are where it starts from; new ones, and findings, go to BUILD_DIR/fuzzing/TARGET/. Ends with status 1
# when there are findings.
set -eu
cd "$(dirname "$0")/.."
seconds="${1:?usage: scripts/fuzz.sh SECONDS [BUILD_DIR]}"
build="${2:-build-fuzz}"

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER="${CXX_FUZZ:-clang++}" \
    -DZAV_SANITIZE=address,undefined,fuzzer-no-link -DZAV_BUILD_FUZZERS=ON -DZAV_BUILD_TESTS=ON > /dev/null
cmake --build "$build" --target zav_fuzzers -j "${JOBS:-2}"
build="$(cd "$build" && pwd)"
sources="$PWD/Fuzzing"

# Damaged stores are written anew for every input: memory is the place for them.
[ -w /dev/shm ] && export TMPDIR=/dev/shm
TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

status=0
for target in identifiers event_lines row_mappers database_file; do
    scratch="$build/fuzzing/$target"
    mkdir -p "$scratch/corpus" "$scratch/findings"
    # Findings of an earlier run are tried again.
    find "$scratch/findings" -type f -exec mv {} "$scratch/corpus/" \;
    cp -r "$sources/corpus/$target/." "$scratch/corpus/"
    dictionary=""
    [ -f "$sources/$target.dict" ] && dictionary="-dict=$sources/$target.dict"
    # What a target prints of an input goes to its log: a finding's reason stands at the end of it.
    # shellcheck disable=SC2086 # no word when there is no dictionary
    "$build/Fuzzing/fuzz_$target" -max_total_time="$seconds" -timeout=25 -print_final_stats=1 \
        $dictionary -artifact_prefix="$scratch/findings/" "$scratch/corpus" > "$scratch/log" 2>&1 || status=1
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$scratch/log")
    coverage=$(grep -o 'cov: [0-9]*' "$scratch/log" | tail -n 1)
    findings=$(find "$scratch/findings" -type f | wc -l)
    echo "fuzzing: $target: ${executions:-0} executions, ${coverage:-cov: 0} edges, $findings findings"
    if [ "$findings" -ne 0 ]; then
        status=1
        grep -E '^Expected: |ERROR: |runtime error: |terminate called' "$scratch/log" || true
        find "$scratch/findings" -type f
    fi
done
exit $status
