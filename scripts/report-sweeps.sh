#!/bin/sh
# Prints what the sweeps of a test run have to say: how many faults each kind injected and survived, and the closing
# sentences of the others. The argument is the log that ctest left.
set -eu

sed -n 's/^sweep: //p' "$1" | awk '
    match($0, /^(file|memory) faults in .*: [0-9]+ faults/) {
        kind = $1
        sub(/^.*: /, "")
        faults[kind] += $1
        subjects[kind]++
        next
    }
    { print }
    END {
        for (kind in faults) {
            printf "%s faults: %d injected and survived in %d operations\n", kind, faults[kind], subjects[kind]
        }
    }'
