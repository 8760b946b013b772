#!/bin/sh
# Configures, builds and tests with presets: scripts/check-presets.sh [PRESET...]
# Without names it takes the shared library and the engine that can encrypt.
set -eu
cd "$(dirname "$0")/.."
[ $# -gt 0 ] || set -- shared sqlcipher
for preset in "$@"; do
    [ "$preset" != amalgamation ] || scripts/fetch-engine.sh
    cmake --preset "$preset"
    cmake --build --preset "$preset"
    ctest --preset "$preset"
done
