#!/bin/sh
# A process of an older build goes on while, and after, this one brings the schema of its file up to date:
# scripts/check-migration.sh TOOL FOLDER [REVISION]
# TOOL is this build's zavevents. The older one is built in FOLDER, of the commit before the newest migration came, or of
# REVISION.
set -eu
cd "$(dirname "$0")/.."
tool="$1"
folder="$2"
newest=$(find Code/Private/Database/Migrations -name '*.sql' | sort | tail -n 1)
revision="${3:-$(git log --diff-filter=A --format=%H -n 1 -- "$newest")^}"

mkdir -p "$folder"
folder=$(cd "$folder" && pwd)
if [ ! -x "$folder/build/Tools/zavevents/zavevents" ]; then
    rm -rf "$folder/source"
    mkdir "$folder/source"
    git archive "$revision" | tar -x -C "$folder/source"
    cmake -S "$folder/source" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZAV_BUILD_TESTS=OFF \
        -DZAV_BUILD_EXAMPLES=OFF > /dev/null
    cmake --build "$folder/build" --target zavevents > /dev/null
fi
older="$folder/build/Tools/zavevents/zavevents"

fail() {
    echo "$*" >&2
    exit 1
}

# One event a line; $1 tells them apart.
event() {
    printf '{"stream_id":"48714726-d247-4be7-8537-0a57a788e38b","client_id":"88411fdb-0a57-4b91-95f2-%012d",' "$1"
    printf '"type":4,"seq":%d,"content":[{"text":"event %d"}]}\n' "$1" "$1"
}

events_in() {
    "$tool" stats "$1" --json | sed 's/.*"events": *\([0-9]*\).*/\1/'
}

wait_for() {
    tries=0
    until [ "$("$older" stats "$database" --json 2> /dev/null | sed 's/.*"events": *\([0-9]*\).*/\1/')" = "$1" ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 100 ] || fail "the older build has not stored $1 events"
        sleep 0.1
    done
}

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
database="$place/chat.db"
"$older" init "$database" > /dev/null
mkfifo "$place/lines"
"$older" import "$database" "$place/lines" --batch 1 > "$place/told" 2>&1 &
import=$!
exec 3> "$place/lines"
event 1 >&3
event 2 >&3
wait_for 2

"$tool" init "$database" > /dev/null || fail "the file could not be brought up to date beside the older build"
for number in 3 4 5 6; do
    event "$number" >&3
done
exec 3>&-
wait "$import" || fail "the older build did not go on: $(cat "$place/told")"
[ "$(events_in "$database")" = 6 ] || fail "events are missing: $(events_in "$database") of 6 are there"
"$tool" check "$database" > "$place/checked" || fail "the file is not sound: $(cat "$place/checked")"
"$tool" events "$database" --all | grep -q 'event 6' || fail "what the older build stored afterwards cannot be read"
if "$older" stats "$database" > /dev/null 2> "$place/told"; then
    fail "the older build opens a file of a newer schema"
fi
grep -q 'the database has schema version' "$place/told" || fail "the older build does not say why it refuses the file: $(cat "$place/told")"
echo "a process of the build before the newest migration went on while its file was migrated: 6 of 6 events, and sound"
