#!/bin/sh
# Configures, builds and tests with presets: scripts/check-presets.sh [PRESET...]
# Without names it takes the shared library and the engine that can encrypt. A brief run leaves the packages out, and
# compiles the product several sources at a time, and runs the tests in a few processes.
set -eu
cd "$(dirname "$0")/.."
[ $# -gt 0 ] || set -- shared sqlcipher
for preset in "$@"; do
    [ "$preset" != amalgamation ] || scripts/fetch-engine.sh
    if [ "${ZAV_TEST_EFFORT:-}" = brief ]; then
        cmake --preset "$preset" -DCMAKE_UNITY_BUILD=ON -DZAV_TEST_SHARES=16
    else
        cmake --preset "$preset"
    fi
    cmake --build --preset "$preset"
    if [ "${ZAV_TEST_EFFORT:-}" = brief ]; then
        ctest --preset "$preset" --label-exclude packaging
    else
        ctest --preset "$preset"
    fi
done
