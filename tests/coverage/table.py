#!/usr/bin/env python3
"""Usage: table.py ROOT EXCLUSIONS CONDITIONS EXPORT...

Prints how much of the library was run, by what `llvm-cov export` wrote to each file EXPORT: a table
of lines, branches and conditions per file, then each that is missing with its place. Fails when
something is missing that the lists EXCLUSIONS (lines, branches) and CONDITIONS (conditions that
were not shown to decide by themselves) do not name, and when they name what is not missing.

A list has one entry per line, `FILE | TEXT | WHAT | REASON`. TEXT is the whole line of code, so
that an entry survives changes elsewhere. WHAT is `line`, `true` or `false` (the side of a branch
that was never taken; `2.true` for that of the second branch of the line), or `condition N`; with
`maybe ` before it where threads decide whether it is missing. '#' begins a comment.

Code in a header counts as run when one of its instantiations ran. A branch inside a macro counts
once for each place where the macro is used.
"""

import collections
import json
import os
import sys

FOLDERS = ("runtime/", "model/", "StageMgr/")

EXPANSION = 1  # of the kinds of regions


class Missing(collections.namedtuple("Missing", "file line column text what")):
    """Something that was not run; `what` as in the lists."""

    def entry(self):
        return (self.file, self.text, self.what)


class Sources:
    def __init__(self, root):
        self.root = os.path.realpath(root)
        self.lines = {}

    def name(self, path):
        """The path below the root, or None for what is not the library's."""
        name = os.path.relpath(os.path.realpath(path), self.root)
        return name if name.startswith(FOLDERS) else None

    def text(self, name, line):
        if name not in self.lines:
            with open(os.path.join(self.root, name), encoding="utf-8") as file:
                self.lines[name] = file.read().splitlines()
        return self.lines[name][line - 1].strip()


def lines_of(segments):
    """{line: count} of the lines that hold code, as llvm-cov counts them."""
    by_line = collections.defaultdict(list)
    for segment in segments:
        by_line[segment[0]].append(segment)
    counts = {}
    wrapped = None  # the segment that reaches into the line
    for line in range(segments[0][0], segments[-1][0] + 1) if segments else ():
        here = by_line.get(line, [])
        starts = [s for s in here if s[3] and s[4] and not s[5]]
        skipped = bool(here) and not here[0][3] and here[0][4]
        mapped = not skipped and ((wrapped is not None and wrapped[3]) or starts)
        if mapped or any(s[3] and s[4] for s in here):
            counts[line] = max([wrapped[2] if wrapped else 0] + [s[2] for s in starts])
        if here:
            wrapped = here[-1]
    return counts


class Outcomes:
    """Branches or conditions by the place where they stand: what any instantiation has shown."""

    def __init__(self):
        self.at = {}  # (file, its region, place inside a macro) to a list of numbers

    def add(self, place, counts):
        # A fold over a parameter pack has as many conditions as the pack has members.
        held = self.at.setdefault((*place, len(counts)), [0] * len(counts))
        for i, count in enumerate(counts):
            held[i] += count

    def of(self, file):
        return sorted((place, counts) for place, counts in self.at.items() if place[0] == file)


def read(exports, sources):
    """The library's files: {file: {line: count}}, and its branches and conditions."""
    lines, branches, conditions = collections.defaultdict(collections.Counter), Outcomes(), Outcomes()
    for data in exports:
        for file in data["files"]:
            name = sources.name(file["filename"])
            if name is not None:
                lines[name].update(lines_of(file["segments"]))
        for function in data["functions"]:
            names = [sources.name(path) for path in function["filenames"]]
            used_at = {r[6]: r for r in function["regions"] if r[7] == EXPANSION}

            def place(file, region):
                inside = ()
                while file in used_at:
                    inside += (file and names[file], *region[:4])
                    region = used_at[file]
                    file = region[5]
                return (names[file], *region[:4], inside)

            for branch in function["branches"]:
                where = place(branch[6], branch)
                if where[0] is not None:
                    branches.add(where, branch[4:6])
            for decision in function.get("mcdc_records", ()):
                where = place(decision[4], decision)
                if where[0] is not None:
                    conditions.add(where, [int(shown) for shown in decision[6]])
    return lines, branches, conditions


def missing_in(file, lines, branches, conditions, sources):
    """What was not run in a file: of lines and branches, and of conditions."""
    run, shown = [], []
    for line, count in sorted(lines.items()):
        if count == 0:
            run.append(Missing(file, line, 1, sources.text(file, line), "line"))
    number = collections.Counter()
    for (_, line, column, *_), counts in branches:
        number[line] += 1
        for side, count in zip(("true", "false"), counts):
            if count == 0 and lines.get(line) != 0:
                what = side if number[line] == 1 else f"{number[line]}.{side}"
                run.append(Missing(file, line, column, sources.text(file, line), what))
    for (_, line, column, *_), counts in conditions:
        for i, count in enumerate(counts):
            if count == 0:
                what = f"condition {i + 1}"
                shown.append(Missing(file, line, column, sources.text(file, line), what))
    return run, shown


def entries(path):
    """{(file, text, what): number of the line, 0 for one that may be run as well} of a list."""
    listed = {}
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            if not line.strip() or line.startswith("#"):
                continue
            parts = [part.strip() for part in line.split(" | ")]
            if len(parts) != 4 or not all(parts):
                sys.exit(f"{path}:{number}: an entry is FILE | TEXT | WHAT | REASON, all of them given")
            file_name, text, what = parts[:3]
            certain = what.removeprefix("maybe ")
            listed[file_name, text, certain] = number if certain == what else 0
    return listed


def judge(title, missing, path):
    """Prints what is missing, and returns how many faults that is."""
    listed = entries(path)
    faults = 0
    if missing:
        print(f"\n{title}")
    for one in missing:
        known = one.entry() in listed
        faults += not known
        print(f"  {one.file}:{one.line}:{one.column}: {one.what}: {one.text}" + ("   (listed)" if known else ""))
    found = {one.entry() for one in missing}
    for entry, number in listed.items():
        if entry not in found and number:
            faults += 1
            print(f"  {path}:{number}: nothing of the kind is missing; take the entry out")
    return faults


def share(hit, all_of_them):
    percent = 100 * hit / all_of_them if all_of_them else 100
    # Never rounded up to a hundred.
    return f"{hit:5}/{all_of_them:<5}{min(percent, 99.9) if hit < all_of_them else percent:6.1f} %"


def loaded(exports):
    for export in exports:
        with open(export, encoding="utf-8") as file:
            yield from json.load(file)["data"]


def main(root, exclusions, gaps, *exports):
    sources = Sources(root)
    lines, branches, conditions = read(loaded(exports), sources)
    if not lines:
        sys.exit(f"{exports}: nothing of {', '.join(FOLDERS)}; were the tests built for coverage?")

    row = "{:34}{:>20}{:>20}{:>20}"
    print(row.format("", "lines", "branches", "conditions"))
    total = [0] * 6
    run, shown = [], []
    for name in sorted(lines):
        b, c = branches.of(name), conditions.of(name)
        numbers = [
            sum(n > 0 for n in lines[name].values()),
            len(lines[name]),
            sum(n > 0 for _, counts in b for n in counts),
            sum(len(counts) for _, counts in b),
            sum(n > 0 for _, counts in c for n in counts),
            sum(len(counts) for _, counts in c),
        ]
        total = [t + n for t, n in zip(total, numbers)]
        print(row.format(name, *(share(*numbers[i : i + 2]) for i in (0, 2, 4))))
        not_run, not_shown = missing_in(name, lines[name], b, c, sources)
        run += not_run
        shown += not_shown
    print(row.format("together", *(share(*total[i : i + 2]) for i in (0, 2, 4))))

    faults = judge("Not run:", run, exclusions)
    faults += judge("Conditions that were not shown to decide by themselves:", shown, gaps)
    if faults:
        print(f"\n{faults} to mend: write a test, remove what cannot run, or say why it stays in the lists")
    return 1 if faults else 0


if __name__ == "__main__":
    if len(sys.argv) < 5:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
