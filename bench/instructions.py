#!/usr/bin/env python3
"""Counts the instructions of whole runs, and holds them against the figures in instructions.txt.

    instructions.py PROGRAM [--update]

PROGRAM is stagemgr-instructions; valgrind has to be installed. Instructions do not move with the
load of the machine, so that a change of the code is seen for what it is: more than a tenth above
the figure fails. --update writes the figures as they are now. The exit status is 77 when they
cannot be counted here.
"""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

FIGURES = pathlib.Path(__file__).with_name("instructions.txt")
SLACK = 1.10


class NotCounted(Exception):
    """Why nothing can be counted here."""


def figures():
    """The kept figures: workload, such as "chain 1000", to instructions per item."""
    kept = {}
    for number, line in enumerate(FIGURES.read_text().splitlines(), 1):
        fields = line.split("#")[0].split()
        if not fields:
            continue
        if len(fields) < 3 or not fields[-1].isdigit():
            sys.exit(f"{FIGURES}:{number}: expected a workload and a number, not '{line}'")
        kept[" ".join(fields[:-1])] = int(fields[-1])
    return kept


def count(program, workload):
    """Instructions per item of one run, and what an item is: "report" or "stage"."""
    if not shutil.which("valgrind"):
        raise NotCounted("valgrind is not there; install the package valgrind")
    if not os.access(program, os.X_OK):
        raise NotCounted(f"{program} is not there; it is built when valgrind/callgrind.h is found "
                         "(package valgrind)")
    with tempfile.TemporaryDirectory() as folder:
        ran = subprocess.run(
            ["valgrind", "--tool=callgrind", "--instr-atstart=no",
             f"--callgrind-out-file={folder}/out", program, *workload.split()],
            capture_output=True, text=True)
    collected = re.search(r"Collected : (\d+)", ran.stderr)
    items = re.fullmatch(r"(\d+) (report|stage)s\n", ran.stdout)
    if ran.returncode != 0 or not collected or not items or int(collected[1]) == 0:
        sys.exit(f"counting '{workload}' failed:\n{ran.stdout}{ran.stderr}")
    return round(int(collected[1]) / int(items[1])), items[2]


def main():
    parser = argparse.ArgumentParser(description="Counts the instructions of whole runs.")
    parser.add_argument("program", help="stagemgr-instructions")
    parser.add_argument("--update", action="store_true", help="keep the figures as they are now")
    arguments = parser.parse_args()

    kept = figures()
    counted = {}
    above = []
    print(f"{'workload':20} {'now':>8} {'kept':>8}   instructions")
    try:
        for workload, figure in kept.items():
            counted[workload], item = count(arguments.program, workload)
            change = counted[workload] / figure - 1
            note = ""
            if counted[workload] > SLACK * figure:
                above.append(workload)
                note = "  TOO MANY"
            print(f"{workload:20} {counted[workload]:8} {figure:8}   a {item}, "
                  f"{change:+.1%}{note}", flush=True)
    except NotCounted as reason:
        print(f"skipped: {reason}")
        return 77
    if arguments.update:
        head = [line for line in FIGURES.read_text().splitlines() if line.startswith("#")]
        rows = [f"{workload:20} {number}" for workload, number in counted.items()]
        FIGURES.write_text("\n".join(head + rows) + "\n")
        print(f"kept in {FIGURES}")
    elif above:
        print(f"more than a tenth above what is kept: {', '.join(above)}.\n"
              "If that is what the change is worth, keep the new figures in the same commit and say\n"
              "why there:  python3 bench/instructions.py "
              "build/release/bench/stagemgr-instructions --update")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
