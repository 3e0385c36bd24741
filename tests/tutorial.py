#!/usr/bin/env python3
"""Does what a document tells its readers to do, and holds what comes out against what it shows.

Usage: tutorial.py PROGRAM_FOLDER DOCUMENT

Everything happens in a temporary folder. A block after a line that ends with "as `NAME`:" is saved
as that file. In a block ```console, a line that begins with "$ " is given to a shell (lines that end
with a backslash go on), and what follows is what it writes: "…" stands for any text in a line, and
alone for any lines. The program is found first in PROGRAM_FOLDER."""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

SECONDS = 60  # for one command


def blocks(text):
    """(line number, what the fence says, the lines inside, the last line of text before)."""
    fence, inside, before = None, [], ""
    for number, line in enumerate(text.splitlines(), 1):
        if fence is None and line.startswith("```"):
            fence, inside, start = line[3:].strip(), [], number
        elif fence is not None and line.startswith("```"):
            yield start, fence, inside, before
            fence, before = None, ""
        elif fence is not None:
            inside.append(line)
        elif line.strip():
            before = line.strip()
    if fence is not None:
        raise ValueError(f"line {start}: this block does not end")


def commands(start, lines):
    """(line number, command, expected lines) of a console block."""
    found = []
    for number, line in enumerate(lines, start + 1):
        if found and found[-1][1].endswith("\\") and not found[-1][2]:
            found[-1][1] += "\n" + line
        elif line.startswith("$ "):
            found.append([number, line[2:], []])
        elif found:
            found[-1][2].append(line)
        else:
            raise ValueError(f"line {number}: output before the first command")
    return found


def pattern(expected):
    parts = []
    for line in expected:
        if line.strip() == "…":
            parts.append(r"(?:[^\n]*\n)*?")
        else:
            parts.append(".*?".join(re.escape(part) for part in line.split("…")) + r"[ ]*\n")
    return re.compile("".join(parts))


def main():
    folder, document = Path(sys.argv[1]).resolve(), Path(sys.argv[2])
    environment = dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}", NO_COLOR="1",
                       COLUMNS="100", LC_ALL="C.UTF-8")
    done = failed = 0
    with tempfile.TemporaryDirectory() as place:
        for start, fence, lines, before in blocks(document.read_text()):
            if name := re.search(r"as `([\w.-]+)`:$", before):
                Path(place, name[1]).write_text("\n".join(lines) + "\n")
                continue
            if fence != "console":
                continue
            for number, command, expected in commands(start, lines):
                ran = subprocess.run(["bash", "-c", command], cwd=place, env=environment,
                                     stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, timeout=SECONDS, text=True)
                done += 1
                output = ran.stdout if ran.stdout.endswith("\n") or not ran.stdout else (
                    ran.stdout + "\n")
                if not pattern(expected).fullmatch(output):
                    failed += 1
                    print(f"{document}:{number}: $ {command}\n--- it says:\n"
                          + "\n".join(expected) + f"\n--- it wrote:\n{output}---")
    if not done:
        print(f"{document}: has no command; a console block has lines that begin with \"$ \"")
    print(f"{document}: {done} commands, {failed} otherwise than shown")
    return 1 if failed or not done else 0


if __name__ == "__main__":
    sys.exit(main())
