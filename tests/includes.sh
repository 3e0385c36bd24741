#!/bin/sh
# Usage: includes.sh ROOT
# Holds the includes of the tree below ROOT against the arrow runtime <- model <- StageMgr <- host,
# those of the library's three folders against the standard library, and all against the rule that
# they are written from the root. Prints a line for every
# include that breaks it and fails if there is one.
set -eu
cd "${1:?usage: includes.sh ROOT}"

folders=
for folder in runtime model StageMgr host tests bench examples; do
    if [ -d "$folder" ]; then folders="$folders $folder"; fi
done
# shellcheck disable=SC2086  # a list of words
files=$(find ${folders:-/dev/null} -type f \( -name '*.h' -o -name '*.cpp' \) | sort)
if [ -z "$files" ]; then
    echo "includes.sh: no sources below $1; give the root of the source tree" >&2
    exit 1
fi

# shellcheck disable=SC2016  # awk's own $0
printf '%s\n' "$files" | xargs awk '
BEGIN {
    below["runtime"] = "runtime"
    below["model"] = "runtime model"
    below["StageMgr"] = "runtime model StageMgr"
    below["host"] = "runtime model StageMgr host"
    n = split("algorithm any array atomic barrier bit bitset charconv chrono codecvt compare" \
        " complex concepts condition_variable coroutine deque exception execution filesystem" \
        " format forward_list fstream functional future initializer_list iomanip ios iosfwd" \
        " iostream istream iterator latch limits list locale map memory memory_resource mutex" \
        " new numbers numeric optional ostream queue random ranges ratio regex" \
        " scoped_allocator semaphore set shared_mutex source_location span sstream stack" \
        " stdexcept stop_token streambuf string string_view syncstream system_error thread tuple" \
        " type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant" \
        " vector version cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath" \
        " csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring ctime cuchar cwchar" \
        " cwctype", names, " ")
    for (i = 1; i <= n; i++) standard[names[i]] = 1
}

function refuse(why) {
    printf "%s:%d: %s\n", FILENAME, FNR, why
    bad = 1
}

function exists(path,   line, found) {
    found = (getline line < path) >= 0
    close(path)
    return found
}

/^[ \t]*(#|%:)[ \t]*(include|include_next|import)/ {
    layer = FILENAME
    sub(/\/.*/, "", layer)
    what = $0
    sub(/^[ \t]*(#|%:)[ \t]*[a-z_]+[ \t]*/, "", what)

    if (what ~ /^"[^"]+"/) {
        sub(/^"/, "", what)
        sub(/".*/, "", what)
        folder = what
        sub(/\/.*/, "", folder)
        if (layer in below && index(" " below[layer] " ", " " folder " ") == 0) {
            refuse(layer "/ includes \"" what "\"; it may include only from: " below[layer])
        } else if (FILENAME ~ /conformance\/Model[^\/]*$/ && folder in below) {
            # The model is worth something only as long as it shares nothing with what it judges.
            refuse("the independent model includes \"" what "\"; it shares no code with " folder "/")
        } else if (!exists(what)) {
            refuse("no file \"" what "\"; includes are written from the root of the tree")
        }
    } else if (layer in below && layer != "host") {
        name = what
        if (name !~ /^<[^>]+>/) {
            refuse("cannot tell what is included here; name the header")
        } else {
            sub(/^</, "", name)
            sub(/>.*/, "", name)
            if (!(name in standard))
                refuse(layer "/ includes <" name ">; the library uses the C++ standard library alone")
        }
    }
}

END { exit bad }
'
