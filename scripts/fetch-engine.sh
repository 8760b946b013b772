#!/bin/sh
# Fetches SQLite's source, in one file, for builds with ZAV_ENGINE=amalgamation: scripts/fetch-engine.sh [DIR]
# Writes sqlite3.c and sqlite3.h into DIR (build/engine) unless they are there. What is fetched must have the hash below.
# ZAV_ENGINE_URL and ZAV_ENGINE_SHA256 name another archive, a .tar.gz that holds both files.
set -eu
cd "$(dirname "$0")/.."
folder="${1:-build/engine}"
url="${ZAV_ENGINE_URL:-https://registry.npmjs.org/better-sqlite3/-/better-sqlite3-12.11.1.tgz}"
hash="${ZAV_ENGINE_SHA256:-ebf0ed75a7a59dbcb3b24bbd014ef49d9f15bc328e4adcbf516f2a8fadfa2835}"

if [ "$(cat "$folder/fetched" 2> /dev/null)" = "$hash" ]; then
    exit 0
fi
mkdir -p "$folder"
archive="$folder/archive.tar.gz"
trap 'rm -f "$archive"' EXIT
curl --fail --silent --show-error --location --retry 3 --output "$archive" "$url"
echo "$hash  $archive" | sha256sum --check --quiet || {
    echo "what $url holds is not what it should be" >&2
    exit 1
}
for file in sqlite3.c sqlite3.h; do
    member=$(tar -tzf "$archive" | grep -E "(^|/)$file\$" | head -n 1)
    [ -n "$member" ] || { echo "$url holds no $file" >&2; exit 1; }
    tar -xzOf "$archive" "$member" > "$folder/$file"
done
echo "$hash" > "$folder/fetched"
