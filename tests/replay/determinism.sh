#!/bin/sh
# determinism.sh PROGRAM PROGRAM...: every journal of the tests and examples gives the same bytes,
# whichever of these builds of replay-journal does it, with and without tracing.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)

[ $# -ge 2 ] || {
    echo "usage: $0 PROGRAM PROGRAM..." >&2
    exit 2
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

journals=0
differing=0
for journal in "$root"/examples/*.jsonl "$root"/tests/scenario/cases/*.in.jsonl; do
    [ -e "$journal" ] || continue
    journals=$((journals + 1))
    rm -f "$work/first"
    for program; do
        for trace in '' 9; do
            "$program" "$journal" "$work/now" $trace > "$work/printed" 2> "$work/trace" || {
                echo "$program${trace:+ with traces} ends with status $? on $journal" >&2
                differing=$((differing + 1))
                continue
            }
            if [ ! -e "$work/first" ]; then
                mv "$work/now" "$work/first"
            elif ! cmp -s "$work/first" "$work/now"; then
                echo "$program${trace:+ with traces} differs on $journal" >&2
                differing=$((differing + 1))
            fi
        done
    done
done

echo "$journals journals, $# programs, $differing differences"
[ "$journals" -gt 0 ] && [ "$differing" -eq 0 ]
