#!/bin/sh
# The project's commands. Each installs what it lacks on Debian 12 and goes on.
set -eu
cd "$(dirname "$0")"

usage() {
    cat << 'END'
usage: ./do VERB

  build [PRESET]           build everything; the program lies at build/release/stagemgr
  run [ARGUMENTS]          build, then bring two database servers up in stages, use them, and take
                           them down; with arguments: stagemgr with those instead
  test [--quick] [PRESET]  build and test with both compilers, with the sanitizers and optimized;
                           --quick: with g++ and the sanitizers only; PRESET: that one only
  bench [ARGUMENTS]        build, measure what progressions cost beside floors and peers, and show
                           which goals are met; with arguments: run the benchmarks with those
  conformance [--seeds N] [--first S] [--stop]
                           build, then compare the library with its independent model on random
                           journals; --stop: only until the first difference
  coverage                 build with clang++ 19, run the tests of the library, and show which of its
                           lines, branches and conditions they miss
  fuzz [TARGET] [--seconds N] [--keep]
                           build, then let a fuzzer look for bytes that show a fault, N seconds
                           long (60); TARGET: journal or entities (both, at the same time); --keep:
                           take what it found into the tree, as few files as say as much
  mutation [--jobs N] [--only PATTERN|NUMBER...] [--list]
                           plant the small faults of tests/mutation/mutants.txt in the library, one
                           at a time, and count those that the tests or random journals catch
  format [--check]         format the sources; --check only tells what is not formatted
  lint [--all]             clang-tidy over the library and the program; --all: over tests, too
  install [--prefix DIR]   build, then install below DIR (default /usr/local)
  install --deb            build, then make the Debian packages in build/release/packages

Presets: release (default), debug, clang, clang-release, thread.
END
}

say() { printf '==> %s\n' "$*" >&2; }

fail() {
    printf './do: %s\n' "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo > /dev/null; then
        sudo "$@"
    else
        fail "this needs root or sudo: $*"
    fi
}

# need PACKAGE...: installs those that are missing; looks at nothing but dpkg's list when none is.
need() {
    command -v dpkg-query > /dev/null || {
        say "no dpkg here; taking for granted what these Debian packages hold: $*"
        return 0
    }
    missing=
    for package; do
        status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2> /dev/null) || status=
        case $status in
        installed*) ;;
        *) case " $missing " in *" $package "*) ;; *) missing="$missing $package" ;; esac ;;
        esac
    done
    [ -n "$missing" ] || return 0

    say "installing what is missing:$missing"
    # One source of several that fails need not be the one that has them.
    as_root apt-get -qq update > /dev/null || say "apt-get update failed; trying all the same"
    # Never at the price of a package that is there: another Boost is the user's to give up.
    # shellcheck disable=SC2086  # a list of words
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends \
        --no-remove -o DPkg::Lock::Timeout=300 $missing > /dev/null ||
        fail "could not install:$missing; see above (libboost1.81-dev cannot stand beside another Boost's -dev packages: remove those), then run this again"
}

# need_to_build PRESET...
need_to_build() {
    compilers=
    for preset; do
        case $preset in
        coverage) compilers="$compilers clang-19 libclang-rt-19-dev llvm-19 python3" ;;
        *clang*) compilers="$compilers clang libclang-rt-14-dev" ;;
        *) compilers="$compilers g++" ;;
        esac
    done
    # shellcheck disable=SC2086  # a list of words
    need cmake ninja-build pkg-config python3 libboost1.81-dev libcli11-dev libfmt-dev \
        libyaml-dev python3-jsonschema python3-yaml libgtest-dev libgmock-dev libbenchmark-dev \
        $compilers
}

cores() { getconf _NPROCESSORS_ONLN 2> /dev/null || echo 2; }

# build PRESET [TARGET]: speaks on standard error, which leaves standard output to what is run.
build() {
    say "building $1"
    {
        cmake --preset "$1" > /dev/null &&
            cmake --build --preset "$1" -j "$(cores)" ${2:+--target "$2"}
    } >&2
}

known_preset() {
    case $1 in
    release | debug | clang | clang-release | thread) ;;
    *) fail "no preset '$1'; there are release, debug, clang, clang-release and thread" ;;
    esac
}

do_build() {
    preset=${1:-release}
    known_preset "$preset"
    need_to_build "$preset"
    build "$preset"
}

do_run() {
    need_to_build release
    if [ $# -gt 0 ]; then
        build release stagemgr
        exec build/release/stagemgr "$@"
    fi
    need redis-tools # has the server too, but starts none when it is installed
    build release stagemgr
    root=$PWD
    folder=$(mktemp -d)
    trap 'rm -rf "$folder"' EXIT
    say "stagemgr run examples/services.yaml --until complete"
    (cd "$folder" && "$root/build/release/stagemgr" run "$root/examples/services.yaml" \
        --until complete)
}

# The programs of all compilers and builds give the same bytes; those with g++ and clang++ and the
# sanitizers are there already.
determinism() {
    build clang-release replay-journal || return 1
    say "comparing what the builds' programs observe"
    sh tests/replay/determinism.sh build/release/tests/replay-journal \
        build/debug/tests/replay-journal build/clang/tests/replay-journal \
        build/clang-release/tests/replay-journal >&2
}

# fuzz TARGET SECONDS: one fuzzed program, on what the tree has and what earlier runs found. What it
# tells goes to build/fuzz/TARGET.log; of that, the end is shown.
fuzz() {
    found=build/fuzz/found/$1
    log=build/fuzz/$1.log
    mkdir -p "$found"
    # A schedule that counts every feature of every run takes twice as long as the runs themselves.
    options="-max_len=400 -entropic=0"
    [ "$1" != journal ] || options="-max_len=8192 -entropic=0 -dict=tests/fuzz/journal.dict"
    started=$(date +%s)
    code=0
    # shellcheck disable=SC2086  # a list of words
    env ASAN_OPTIONS=strict_string_checks=1:malloc_context_size=8:quarantine_size_mb=32 \
        UBSAN_OPTIONS=print_stacktrace=1 \
        build/clang/tests/fuzz/fuzz-$1 -max_total_time="$2" -timeout=25 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$PWD/build/fuzz/$1-" $options \
        "$found" "tests/fuzz/corpus/$1" > "$log" 2>&1 || code=$?
    if [ "$code" -eq 0 ]; then
        say "fuzz-$1: nothing found in $(($(date +%s) - started)) s; $(
            sed -n 's/^#[0-9]*.*DONE *\(cov: [0-9]*\).*/\1/p' "$log"), $(
            sed -n 's/^stat::number_of_executed_units: *//p' "$log") executions, $(
            sed -n 's/^stat::average_exec_per_sec: *//p' "$log") a second"
        return 0
    fi
    tail -n 60 "$log" >&2
    artifact=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
    say "fuzz-$1 ended with status $code; all that it told is in $log"
    [ -z "$artifact" ] || say "the bytes are in $artifact; to see what they do:
    FUZZ_SHOW=1 build/clang/tests/fuzz/fuzz-$1 $artifact"
    return 1
}

# fuzz_all SECONDS TARGET...: at the same time; failed_targets is those that found something.
fuzz_all() {
    seconds=$1
    shift
    build clang fuzz || {
        failed_targets=$*
        return 0
    }
    say "fuzzing $* for $seconds s"
    for target; do
        rm -f "build/fuzz/$target.failed"
        { fuzz "$target" "$seconds" || : > "build/fuzz/$target.failed"; } &
    done
    wait
    failed_targets=
    for target; do
        [ ! -e "build/fuzz/$target.failed" ] || failed_targets="$failed_targets $target"
    done
}

# count ATTRIBUTE FILE: a number from the first element of a JUnit report, 0 where there is none.
count() {
    number=$(sed -n '1,20p' "$2" 2> /dev/null | tr '\n\t' '  ' |
        sed -n "s/^[^<]*<?[^>]*>[^<]*<testsuite[^>]* $1=\"\([0-9][0-9]*\)\".*/\1/p")
    echo "${number:-0}"
}

do_test() {
    presets=
    for argument; do
        case $argument in
        --quick) presets="$presets debug" ;;
        -*) fail "test has no option '$argument'; there is --quick" ;;
        *)
            known_preset "$argument"
            presets="$presets $argument"
            ;;
        esac
    done
    every=
    if [ -z "$presets" ]; then
        every=yes
        presets='release debug clang thread'
    fi
    # shellcheck disable=SC2086  # a list of words
    need_to_build $presets
    # What counts instructions, and what the example plans start.
    case " $presets " in *" release "*) need valgrind redis-tools ;; esac

    passed=0
    failed=0
    for preset in $presets; do
        started=$(date +%s)
        if ! build "$preset"; then
            say "$preset does not build, which counts as one failure"
            failed=$((failed + 1))
            continue
        fi
        say "testing $preset"
        report=$PWD/build/$preset/tests.xml
        rm -f "$report"
        ended=$(
            exec 3>&1 >&2
            {
                code=0
                ctest --preset "$preset" -j "$(cores)" --output-junit "$report" 2>&1 || code=$?
                echo "$code" >&3
            } | grep -vE '^ *Start +[0-9]+:| Passed +[0-9.]+ sec$'
        ) || :

        bad=$(count failures "$report")
        good=$(($(count tests "$report") - bad - $(count disabled "$report") - \
            $(count skipped "$report")))
        if [ "$good" -eq 0 ] && [ "$bad" -eq 0 ]; then
            say "$preset ran no test, which counts as one failure"
            bad=1
        elif [ "$ended" -ne 0 ] && [ "$bad" -eq 0 ]; then
            say "ctest ended with status $ended though no test failed, which counts as one failure"
            bad=1
        fi
        say "$preset: $good passed, $bad failed, $(($(date +%s) - started)) s"
        passed=$((passed + good))
        failed=$((failed + bad))
    done

    if [ -n "$every" ]; then
        if determinism; then
            passed=$((passed + 1))
        else
            say "the builds differ, which counts as one failure"
            failed=$((failed + 1))
        fi
        fuzz_all 60 journal entities
        for target in journal entities; do
            case " $failed_targets " in
            *" $target "*) failed=$((failed + 1)) ;;
            *) passed=$((passed + 1)) ;;
            esac
        done
    fi

    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
}

do_bench() {
    # Who else is measured, and what counts instructions.
    need python3 valgrind pkg-config libtbb-dev libsigc++-2.0-dev libev-dev libuv1-dev libevent-dev
    need_to_build release
    if [ $# -gt 0 ]; then
        build release stagemgr-bench
        exec build/release/bench/stagemgr-bench "$@"
    fi
    build release all
    exec python3 bench/goals.py --build build/release
}

do_conformance() {
    need_to_build release
    build release conformance
    exec build/release/tests/conformance/conformance "$@"
}

# What the tests of the library run of it: each program once, and that of the reactors once more with
# everything traced.
do_coverage() {
    [ $# -eq 0 ] || fail "coverage has no argument '$1'"
    need_to_build coverage
    build coverage || fail "coverage does not build"
    counts=build/coverage/counts
    rm -rf "$counts"
    mkdir -p "$counts"
    for tests in runtime model StageMgr scenario; do
        program=build/coverage/tests/tests-$tests
        for traced in '' traced; do
            if [ -n "$traced" ] && [ "$tests" != StageMgr ]; then continue; fi
            say "running the tests of $tests${traced:+, $traced}"
            # %m: the processes of death tests add to their program's counts.
            env ${traced:+STAGEMGR_TRACED=1} LLVM_PROFILE_FILE="$counts/$tests$traced-%m.profraw" \
                "$program" --gtest_brief=1 >&2 ||
                fail "the tests of $tests failed, and so what they run tells nothing"
        done
        llvm-profdata-19 merge -o "$counts/$tests.profdata" "$counts/$tests"*.profraw
        llvm-cov-19 export -instr-profile "$counts/$tests.profdata" "$program" \
            > "$counts/$tests.json"
    done
    python3 tests/coverage/table.py . tests/coverage/exclusions.txt tests/coverage/conditions.txt \
        "$counts"/*.json
}

do_fuzz() {
    targets=
    seconds=60
    keep=
    while [ $# -gt 0 ]; do
        case $1 in
        journal | entities) targets="$targets $1" ;;
        --seconds)
            [ $# -ge 2 ] || fail "--seconds needs a number"
            seconds=$2
            shift
            ;;
        --seconds=*) seconds=${1#--seconds=} ;;
        --keep) keep=yes ;;
        *) fail "fuzz has no argument '$1'; there are journal, entities, --seconds N and --keep" ;;
        esac
        shift
    done
    case $seconds in
    '' | *[!0-9]* | 0) fail "--seconds needs a number above 0, not '$seconds'" ;;
    esac
    targets=${targets:-journal entities}
    need_to_build clang
    # shellcheck disable=SC2086  # a list of words
    fuzz_all "$seconds" $targets
    if [ -n "$keep" ] && [ -z "$failed_targets" ]; then
        for target in $targets; do keep_found "$target"; done
    fi
    [ -z "$failed_targets" ]
}

# keep_found TARGET: the tree's files and the small ones of those found, as few as reach as much.
keep_found() {
    all=build/fuzz/all/$1
    small=build/fuzz/small/$1
    rm -rf "$all" "$small"
    mkdir -p "$all" "$small"
    find "tests/fuzz/corpus/$1" "build/fuzz/found/$1" -type f -size -5 -exec cp {} "$all" \;
    # What counts is which code is reached, not how often: so they stay a few hundred.
    "build/clang/tests/fuzz/fuzz-$1" -set_cover_merge=1 -use_counters=0 -timeout=25 "$small" \
        "$all" \
        > "build/fuzz/$1-merge.log" 2>&1 ||
        fail "could not choose among what was found; see build/fuzz/$1-merge.log"
    find "tests/fuzz/corpus/$1" -type f -exec rm -f {} +
    find "$small" -type f -exec cp {} "tests/fuzz/corpus/$1" \;
    say "tests/fuzz/corpus/$1 has $(find "$small" -type f | wc -l) files now"
}

do_mutation() {
    need_to_build debug
    exec python3 tests/mutation/mutation.py "$@"
}

do_format() {
    how=-i
    case ${1:-} in
    '') ;;
    --check) how='--dry-run -Werror' ;;
    *) fail "format has no argument '$1'; there is --check" ;;
    esac
    need clang-format
    # shellcheck disable=SC2086  # a list of words
    find runtime model StageMgr host tests bench examples -type f \
        \( -name '*.h' -o -name '*.cpp' \) -exec clang-format $how {} +
}

# Sources are read as the checked builds compile them, several at a time: an eighth of the headers.
do_lint() {
    unread='/(tests|bench)/'
    case ${1:-} in
    '') ;;
    --all) unread='^$' ;;
    *) fail "lint has no argument '$1'; there is --all" ;;
    esac
    need_to_build lint clang
    need clang-tidy
    cmake --preset lint > /dev/null
    say "reading with clang-tidy"
    sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/lint/compile_commands.json |
        grep -vE "$unread" | tr '\n' '\0' |
        xargs -0 -P "$(cores)" -n 4 clang-tidy -p build/lint --quiet \
            --header-filter='/(runtime|model|StageMgr|host|tests|bench)/.*\.(h|cpp)$' 2> /dev/null
    say "nothing found"
}

# writable DIR: whether DIR, or what there is of it, can be written.
writable() {
    dir=$1
    while [ ! -e "$dir" ]; do dir=$(dirname "$dir"); done
    [ -w "$dir" ]
}

do_install() {
    prefix=/usr/local
    deb=
    while [ $# -gt 0 ]; do
        case $1 in
        --prefix)
            [ $# -ge 2 ] || fail "--prefix needs a folder"
            prefix=$2
            shift
            ;;
        --prefix=*) prefix=${1#--prefix=} ;;
        --deb) deb=yes ;;
        *) fail "install has no argument '$1'; there are --prefix DIR and --deb" ;;
        esac
        shift
    done
    need_to_build release
    build release
    if [ -n "$deb" ]; then
        need dpkg-dev
        say "making packages in build/release/packages"
        (cd build/release && cpack -G DEB)
        return
    fi
    say "installing below $prefix"
    if writable "$prefix"; then
        cmake --install build/release --prefix "$prefix"
    else
        as_root cmake --install build/release --prefix "$prefix"
    fi
    case $prefix in
    /usr | /usr/local) as_root /sbin/ldconfig ;;
    esac
}

verb=${1:-}
[ $# -eq 0 ] || shift
case $verb in
build | run | test | bench | conformance | coverage | fuzz | mutation | format | lint | install)
    "do_$verb" "$@"
    ;;
help | -h | --help) usage ;;
'')
    usage >&2
    exit 2
    ;;
*)
    printf "./do: no verb '%s'\n" "$verb" >&2
    usage >&2
    exit 2
    ;;
esac
