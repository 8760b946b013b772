#!/bin/sh
# Makes sure that the compilers, tools and libraries of the build are there: installs what is missing through apt-get
# on Debian and Ubuntu, and names it elsewhere. With --tool only what the library and zavevents need, and no other
# compiler than $CXX. With ENGINE=amalgamation also what fetches that engine. With --checks also what the static checks,
# valgrind, coverage, the benchmarks, the reference, the other engines, the other toolchains and those tests need that
# ask mandoc and zsh.
set -eu

packages="cmake ninja-build pkg-config
    libsqlite3-dev liburiparser-dev libspdlog-dev libfmt-dev libcli11-dev libsimdjson-dev nlohmann-json3-dev"
tools="cmake ninja"
libraries="SQLite 3.15 or later, uriparser, spdlog, fmt, CLI11, simdjson and nlohmann-json"
if [ "${1:-}" = --tool ]; then
    if ! command -v "${CXX:-g++}" > /dev/null; then
        case "${CXX:-g++}" in
        *clang*) packages="clang $packages" ;;
        *) packages="g++ $packages" ;;
        esac
    fi
else
    packages="g++ clang libclang-rt-dev clang-format python3 binutils dpkg-dev file git $packages
        libgtest-dev librapidcheck-dev libcpp-httplib-dev libncurses-dev tmux"
    tools="$tools python3 pkg-config git readelf tmux"
    libraries="$libraries, GoogleTest and RapidCheck; examples also cpp-httplib and ncurses"
fi
if [ "${ENGINE:-}" = amalgamation ]; then
    packages="$packages curl ca-certificates"
fi
if [ "${1:-}" = --checks ]; then
    packages="$packages doxygen clang-tidy cppcheck valgrind gcovr libbenchmark-dev libsqlitecpp-dev libsoci-dev
        libsqlcipher-dev groff-base mandoc zsh libc++-dev libc++abi-dev g++-multilib curl
        ca-certificates"
fi

if ! command -v dpkg-query > /dev/null || ! command -v apt-get > /dev/null; then
    missing=""
    for tool in $tools; do
        command -v "$tool" > /dev/null || missing="$missing $tool"
    done
    if [ -n "$missing" ]; then
        echo "Please install:$missing" >&2
        exit 1
    fi
    echo "Packages are installed by themselves only on Debian and Ubuntu. The build needs: a C++20 compiler," \
        "$libraries." >&2
    exit 0
fi

missing=""
for package in $packages; do
    status=$(dpkg-query -W -f '${Status}' "$package" 2> /dev/null || true)
    case "$status" in
    *"ok installed") ;;
    *) missing="$missing $package" ;;
    esac
done
[ -z "$missing" ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo > /dev/null; then
        echo "Please install as root: apt-get install$missing" >&2
        exit 1
    fi
    sudo="sudo"
fi
echo "Installing:$missing"
$sudo apt-get update -qq
# shellcheck disable=SC2086 # a list of words
$sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing > /dev/null
