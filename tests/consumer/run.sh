#!/bin/sh
# Usage: run.sh cmake      PROJECT INSTALLED BUILD CXX GENERATOR
#        run.sh pkg-config PROJECT INSTALLED BUILD CXX LIBDIR
# Builds the host in PROJECT in the folder BUILD against the tree in INSTALLED, and runs it.
set -eu
way=$1 project=$2 installed=$3 build=$4 cxx=$5

rm -rf "$build"
mkdir -p "$build"
case $way in
cmake)
    cmake -S "$project" -B "$build" -G "$6" -DCMAKE_PREFIX_PATH="$installed" \
        -DCMAKE_CXX_COMPILER="$cxx"
    cmake --build "$build"
    ;;
pkg-config)
    PKG_CONFIG_PATH=$installed/$6/pkgconfig
    export PKG_CONFIG_PATH
    # shellcheck disable=SC2046  # a list of flags
    "$cxx" -std=c++20 "$project/main.cpp" -o "$build/consumer" $(pkg-config --cflags --libs stagemgr) \
        -Wl,-rpath,"$(pkg-config --variable=libdir stagemgr)"
    ;;
*)
    echo "run.sh: no way '$way'; use cmake or pkg-config" >&2
    exit 2
    ;;
esac

# The program must have found the library that was installed, not the one in the build folder.
found=$(ldd "$build/consumer" | sed -n 's/.*libStageMgr\.so[^ ]* => \([^ ]*\) .*/\1/p')
case $(readlink -f "$found") in
"$(readlink -f "$installed")"/*) ;;
*)
    echo "run.sh: the host runs with '$found', not with the library in $installed" >&2
    exit 1
    ;;
esac
"$build/consumer"
