#!/bin/sh
# Static analysis of what was compiled in a build directory: scripts/check-static.sh [BUILD_DIR]
# cppcheck reads all of it; clang-tidy reads the library, the tool and the examples, with the checks that .clang-tidy
# chooses. Fails when either finds something.
set -eu
cd "$(dirname "$0")/.."
build="${1:-build}"
jobs=$(nproc 2> /dev/null || echo 2)
for tool in cppcheck clang-tidy; do
    command -v "$tool" > /dev/null || { echo "$tool is missing" >&2; exit 2; }
done
if [ ! -f "$build/compile_commands.json" ]; then
    echo "nothing was built in $build" >&2
    exit 2
fi
status=0

echo "cppcheck"
# A view of a text is passed by value.
check="cppcheck -j $jobs --quiet --std=c++20 --inline-suppr --error-exitcode=1 --suppress=passedByValue"
# The tests, which look on purpose at what was moved away, and what is generated, but for units (.cxx) of sources that are
# compiled together. The rest is read next, with these checks and more.
$check --enable=warning,performance,portability --suppress='accessMoved:*Test.cpp' --library=googletest \
    --file-filter='Tests/*' --file-filter='Fuzzing/*' --file-filter="$build/*.cpp" \
    --project="$build/compile_commands.json" || status=1
# Not taken up: conversions that are implicit on purpose, loops that read better than an algorithm, locals that share
# the name of a getter, members of tables, whose readers it does not follow, and references to what is changed only
# in the parts that it holds. Tests are left out, whose comparisons it takes for superfluous.
$check --enable=style --suppress=noExplicitConstructor --suppress=useStlAlgorithm --suppress=shadowFunction \
    --suppress=unusedStructMember --suppress=constParameter \
    -I Code -I "$build/Code/include" Code Tools Examples || status=1

echo "clang-tidy"
# Most of the time goes into the headers that all sources share, so they are read thirty at a time, as units that are
# configured for this alone. On standard error it only counts the warnings that it leaves out.
units="$build/units"
engine=$(sed -n 's/^ZAV_ENGINE:STRING=//p' "$build/CMakeCache.txt")
cmake -S . -B "$units" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DZAV_ENGINE="$engine" \
    -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=30 -DZAV_BUILD_TESTS=OFF -DZAV_BUILD_EXAMPLES=ON -DZAV_INSTALL=OFF \
    > /dev/null
# shellcheck disable=SC2046 # a list of words
ninja -C "$units" --quiet $(ninja -C "$units" -t targets all | sed -n 's/^\(.*\.cpp\): CUSTOM_COMMAND$/\1/p')
sed -n 's/^ *"file": "\(.*\)".*$/\1/p' "$units/compile_commands.json" |
    grep -E "^$(cd "$units" && pwd)/(Code|Tools|Examples)/" |
    xargs -d '\n' -n 1 -P "$jobs" clang-tidy -p "$units" --quiet 2> /dev/null || status=1

exit $status
