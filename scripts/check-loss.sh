#!/bin/sh
# Shows that a checkpoint which is paused at the worst moment loses commits on an engine with that defect, not with the
# guard of the library, and not on an engine that is mended: scripts/check-loss.sh [BUILD_DIR]
# Fetches both engines' sources and compiles them with a place to pause.
set -eu
cd "$(dirname "$0")/.."
build="${1:-build/loss}"

# build_and_run NAME URL SHA256
build_and_run() {
    ZAV_ENGINE_URL="$2" ZAV_ENGINE_SHA256="$3" scripts/fetch-engine.sh "$build/$1-source"
    mkdir -p "$build/$1-pausing"
    {
        echo 'void (*zavPauseInCheckpoint)(void) = 0;'
        sed '/^static int walCheckpoint($/,/^}/ s/^  szPage = walPagesize(pWal);$/  if( zavPauseInCheckpoint ) zavPauseInCheckpoint();\n&/' \
            "$build/$1-source/sqlite3.c"
    } > "$build/$1-pausing/sqlite3.c"
    [ "$(grep -c 'zavPauseInCheckpoint()' "$build/$1-pausing/sqlite3.c")" = 1 ] || {
        echo "there is no place to pause in the engine of $2" >&2
        exit 1
    }
    cp "$build/$1-source/sqlite3.h" "$build/$1-pausing/"
    cmake -S . -B "$build/$1" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZAV_ENGINE=amalgamation \
        -DZAV_ENGINE_SOURCE="$(cd "$build/$1-pausing" && pwd)" -DZAV_BUILD_TESTS=OFF -DZAV_BUILD_TOOLS=OFF \
        -DZAV_BUILD_EXAMPLES=OFF -DZAV_BUILD_CHECKPOINT_LOSS=ON > "$build/$1.log"
    cmake --build "$build/$1" --target zav_checkpoint_loss >> "$build/$1.log" || { cat "$build/$1.log"; exit 1; }
    "$build/$1/Tests/CheckpointLoss/zav_checkpoint_loss"
}

mkdir -p "$build"
registry=https://registry.npmjs.org/better-sqlite3/-
build_and_run affected "$registry/better-sqlite3-12.4.1.tgz" \
    14398acbf00d1e8fe0a2753df7d4f15c13138e4b874f4e6e96791f65b4536d0d
build_and_run mended "$registry/better-sqlite3-12.11.1.tgz" \
    ebf0ed75a7a59dbcb3b24bbd014ef49d9f15bc328e4adcbf516f2a8fadfa2835
