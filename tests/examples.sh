#!/bin/sh
# examples.sh PROGRAM FOLDER: every example plan is checked and simulated, and ends as it is meant to;
# those with commands are run for real.
set -eu
program=$1
folder=$2

failed=0
# expect STATUS ARGUMENTS...
expect() {
    wanted=$1
    shift
    status=0
    "$program" "$@" > "$work/out" 2> "$work/err" || status=$?
    [ "$status" -eq "$wanted" ] && return 0
    echo "stagemgr $* ended with status $status, not $wanted:" >&2
    cat "$work/out" "$work/err" >&2
    failed=1
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

for plan in smallest services appliance switchover; do
    expect 0 check "$folder/$plan.yaml"
    expect 0 simulate "$folder/$plan.yaml"
done
# Every outcome means that some stages do not come to a good end.
expect 1 check "$folder/outcomes.yaml"
expect 1 simulate "$folder/outcomes.yaml"

expect 0 run "$folder/smallest.yaml" --within 1min --record smallest.jsonl --json
mv out live
expect 0 replay smallest.jsonl
cmp live out || failed=1
if command -v redis-check-rdb > /dev/null; then
    expect 0 run "$folder/services.yaml" --until complete --within 1min
else
    echo "no redis-tools here: services.yaml was not run"
fi

# None is forgotten.
for plan in "$folder"/*.yaml; do
    case $(basename "$plan" .yaml) in
    smallest | services | appliance | switchover | outcomes) ;;
    *)
        echo "$plan is not tried out; add it to examples.sh" >&2
        failed=1
        ;;
    esac
done
exit $failed
