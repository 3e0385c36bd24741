#!/bin/sh
# program.sh PROGRAM: what only a process of its own can show, its descriptors and its errors.
set -eu
program=$1

failed=0
# wrong WHAT...
wrong() {
    echo "$*" >&2
    failed=1
}

work=$(mktemp -d)
trap 'chmod -R u+w "$work"; rm -rf "$work"' EXIT
cd "$work"
cat > plan.yaml << 'END'
version: 1
stages:
  first: {takes: 50ms}
  second: {after: first, command: echo done}
END
cat > external.yaml << 'END'
version: 1
stages: {first: {external: true, limit: infinity}}
END

# Whoever closed standard output gets no file of ours in its place.
status=0
"$program" run plan.yaml --record record.jsonl >&- 2> err || status=$?
[ "$status" -eq 70 ] || wrong "with standard output closed, run ended with $status"
"$program" replay record.jsonl > /dev/null || wrong "its record cannot be replayed"
status=0
"$program" run plan.yaml --record record.jsonl >&- 2>&- <&- || status=$?
[ "$status" -eq 70 ] || wrong "with all closed, run ended with $status"
"$program" replay record.jsonl > /dev/null || wrong "its record cannot be replayed"

status=0
"$program" run external.yaml --reports <&- > out 2> err || status=$?
[ "$status" -eq 1 ] || wrong "with standard input closed, run ended with $status"
grep -q "^stagemgr: no reports can be read: Bad file descriptor$" err ||
    wrong "with standard input closed, run said: $(cat err)"

# What the system says is told, not what came of a second look. Root may write everywhere.
mkdir locked
chmod a-w locked
if [ ! -w locked ]; then
    "$program" simulate plan.yaml --record locked/x > out 2> err || true
    grep -q "locked/x: Permission denied$" err || wrong "a locked folder: $(cat err)"
fi

# Nothing that is read is overwritten.
cp plan.yaml mine.yaml
for verb in run simulate; do
    status=0
    "$program" $verb mine.yaml --record ./mine.yaml > out 2> err || status=$?
    [ "$status" -eq 2 ] || wrong "$verb over its own plan ended with $status"
    cmp -s plan.yaml mine.yaml || wrong "$verb wrote over its own plan"
done
cp record.jsonl mine.jsonl
for verb in replay plot; do
    status=0
    "$program" $verb mine.jsonl --out mine.jsonl > out 2> err || status=$?
    [ "$status" -eq 2 ] || wrong "$verb over its own journal ended with $status"
    cmp -s record.jsonl mine.jsonl || wrong "$verb wrote over its own journal"
done
exit $failed
