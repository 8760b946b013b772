#!/bin/sh
# Builds for the toolchains of other platforms: scripts/check-toolchains.sh [BUILD_DIR]
# With clang++ and libc++ each public header is compiled alone, the library, the tool and the first example are built,
# and both programs run. For 32 bits the library and the tool are compiled, and nothing is linked: what they stand on is
# installed for 64 bits only.
set -eu
cd "$(dirname "$0")/.."
build="${1:-build/toolchains}"
jobs=$(nproc 2> /dev/null || echo 2)

# configure FOLDER COMPILER [OPTION...]
configure() {
    folder=$1
    compiler=$2
    shift 2
    cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_UNITY_BUILD=ON -DZAV_BUILD_TESTS=OFF -DZAV_INSTALL=OFF "$@" > /dev/null
}

echo "clang++ with libc++"
# The installed fmt and spdlog were built with another C++ library; their headers alone serve with any.
configure "$build/libcxx" clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++ -Dfmt_DIR="$PWD/cmake/HeaderOnly" \
    -Dspdlog_DIR="$PWD/cmake/HeaderOnly"
# Each with nothing included before it.
headers="$build/libcxx/Code/include"
find "$headers/ZAVEventRepository" -name '*.h' -exec basename {} \; | xargs -n 1 -P "$jobs" sh -c '
    echo "#include <ZAVEventRepository/$2>" | clang++ -stdlib=libc++ -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic \
        -Wconversion -Wshadow -Werror -I "$1" -x c++ - || exit 255' sh "$headers"
cmake --build "$build/libcxx" -j "$jobs" --target zavevents first-program
store="$build/libcxx/sample.db"
rm -f "$store" "$store-wal" "$store-shm"
"$build/libcxx/Tools/zavevents/zavevents" import "$store" Examples/sample-conversation.jsonl
"$build/libcxx/Tools/zavevents/zavevents" check "$store"
(cd "$build/libcxx" && rm -f first-program.db* && Examples/first-program)

echo "g++ for 32 bits"
# As flags of the build type: the libraries are looked for as for 64 bits, and their headers are what is wanted.
configure "$build/32-bit" g++ -DCMAKE_CXX_FLAGS_NONE=-m32 -DZAV_BUILD_EXAMPLES=OFF
objects=$(ninja -C "$build/32-bit" -t targets all | sed -n 's/^\(Tools\/.*\.dir\/.*\.o\): .*/\1/p')
# shellcheck disable=SC2086 # a list of words
ninja -C "$build/32-bit" -j "$jobs" ZAVEventRepository $objects
