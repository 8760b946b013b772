#!/bin/sh
# Configures, builds and tests with presets: scripts/check-presets.sh [PRESET...]
# Without names it takes the shared library and the engine that can encrypt. A brief run leaves the packages out.
set -eu
cd "$(dirname "$0")/.."
[ $# -gt 0 ] || set -- shared sqlcipher
for preset in "$@"; do
    [ "$preset" != amalgamation ] || scripts/fetch-engine.sh
    cmake --preset "$preset"
    cmake --build --preset "$preset"
    if [ "${ZAV_TEST_EFFORT:-}" = brief ]; then
        ctest --preset "$preset" --label-exclude packaging
    else
        ctest --preset "$preset"
    fi
done
