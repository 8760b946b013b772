#!/bin/sh
# Formats the sources in place, or with --check says which are not formatted. Generated files are left out.
set -eu
cd "$(dirname "$0")/.."
mode="-i"
[ "${1:-}" = "--check" ] && mode="--dry-run --Werror"
# shellcheck disable=SC2086 # two words
git ls-files --cached --others --exclude-standard '*.h' '*.cpp' | grep -v '^Code/Messaging/' | xargs clang-format $mode
