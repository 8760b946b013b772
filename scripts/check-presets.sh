#!/bin/sh
# Configures, builds and tests with presets: scripts/check-presets.sh [PRESET...]
# Without names it takes the shared library, the one kind of build that no other check covers.
set -eu
cd "$(dirname "$0")/.."
[ $# -gt 0 ] || set -- shared
for preset in "$@"; do
    cmake --preset "$preset"
    cmake --build --preset "$preset"
    ctest --preset "$preset"
done
