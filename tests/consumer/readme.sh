#!/bin/sh
# Usage: readme.sh README HOST PROGRAM FOLDER
# What the README gives to paste is the host that is built here, and it prints what the README says.
# FOLDER is for files in between.
set -eu
readme=$1 host=$2 program=$3 folder=$4

# block NUMBER: the README's fenced block of that number, from the host on.
block() {
    awk -v wanted="$1" '
        /^```/ { if (inside) inside = 0; else { inside = 1; if (number || /cpp/) number++ }; next }
        inside && number == wanted { print }
    ' "$readme"
}

fail() {
    echo "readme.sh: $1; mend whichever is wrong" >&2
    exit 1
}

mkdir -p "$folder"
block 1 > "$folder/host.cpp"
diff "$folder/host.cpp" "$host" || fail "the host in the README is not that in tests/consumer"
block 2 > "$folder/expected"
"$program" > "$folder/printed"
diff "$folder/expected" "$folder/printed" || fail "the host prints something else than the README says"
