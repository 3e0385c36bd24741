#!/bin/sh
# Usage: includes_test.sh EMPTY_FOLDER
# Shows that includes.sh accepts what is allowed and refuses each way of breaking it.
set -eu
check=$(cd "$(dirname "$0")" && pwd)/includes.sh
work=${1:?usage: includes_test.sh EMPTY_FOLDER}
failures=0

# tree FILE LINE: a small sound tree, with LINE at the end of FILE.
tree() {
    rm -rf "$work"
    mkdir -p "$work/runtime" "$work/model" "$work/StageMgr" "$work/host" "$work/tests/conformance"
    echo '#include <string>' > "$work/runtime/Ptr.h"
    echo '#include "runtime/Ptr.h"' > "$work/model/Config.h"
    printf '#include "model/Config.h"\n#include <cmath>\n' > "$work/StageMgr/StageSm.cpp"
    printf '#include "model/Config.h"\n#include <fmt/core.h>\n' > "$work/host/main.cpp"
    echo '#include <vector>' > "$work/tests/conformance/Model.h"
    echo '#include "model/Config.h"' > "$work/tests/conformance/RunTest.cpp"
    printf '%s\n' "$2" >> "$work/$1"
}

accepts() {
    tree "$1" "$2"
    if ! sh "$check" "$work"; then
        echo "refused, but allowed: $2 in $1"
        failures=$((failures + 1))
    fi
}

refuses() {
    tree "$1" "$2"
    if output=$(sh "$check" "$work"); then
        echo "accepted, but forbidden: $2 in $1"
        failures=$((failures + 1))
    elif ! printf '%s\n' "$output" | grep -q "^$1:[0-9]*: "; then
        echo "does not name the place: $2 in $1 gave: $output"
        failures=$((failures + 1))
    fi
}

accepts runtime/Ptr.h '#include <atomic>  // <pthread.h> is not needed'
accepts model/Config.h '#include "model/Config.h"'
accepts StageMgr/StageSm.cpp '#include "runtime/Ptr.h"'
accepts host/main.cpp '#include <unistd.h>'
accepts tests/conformance/Model.h '#include "tests/conformance/RunTest.cpp"'
accepts tests/conformance/RunTest.cpp '#include <gtest/gtest.h>'
accepts tests/conformance/RunTest.cpp '#include "host/main.cpp"'

refuses runtime/Ptr.h '#include "model/Config.h"'
refuses runtime/Ptr.h '#  include "StageMgr/StageSm.h"'
refuses model/Config.h '	#include "StageMgr/StageSm.cpp"'
refuses model/Config.h '#include "host/main.cpp"'
refuses StageMgr/StageSm.cpp '#include "host/main.cpp"'
refuses StageMgr/StageSm.cpp '#include "tests/conformance/Model.cpp"'
refuses runtime/Ptr.h '#include "Ptr.h"'
refuses runtime/Ptr.h '#include "../model/Config.h"'
refuses model/Config.h '#include "runtime/Missing.h"'
refuses runtime/Ptr.h '#include <unistd.h>'
refuses model/Config.h '#include <fmt/core.h>'
refuses StageMgr/StageSm.cpp '#include<boost/json.hpp>'
refuses StageMgr/StageSm.cpp '#include HEADER'
refuses host/main.cpp '#include "bench/Chain.h"'
refuses tests/conformance/Model.h '#include "StageMgr/StageSm.cpp"'
refuses tests/conformance/RunTest.cpp '#include "Model.h"'

rm -rf "$work"
mkdir -p "$work"
if sh "$check" "$work" 2> /dev/null; then
    echo "accepted a tree without sources"
    failures=$((failures + 1))
fi

rm -rf "$work"
[ "$failures" -eq 0 ]
