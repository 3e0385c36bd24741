#!/usr/bin/env python3
"""Plants the small faults of mutants.txt in the library, one at a time, and counts how many the
tests, the random journals or the random inputs catch. Usage: ./do help"""

import argparse
import concurrent.futures
import json
import os
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LIST = Path(__file__).with_name("mutants.txt")
WORK = ROOT / "build/mutation"
TREE = WORK / "tree"  # a copy, so that the checkout may be edited while this runs
INPUTS = WORK / "inputs"  # for fuzz-entities-corpus
COPIED = ["CMakeLists.txt", "LICENSE", "cmake", "runtime", "model", "StageMgr", "host", "examples",
          "tests"]
JOURNALS = 20000
SANITIZED_JOURNALS = 300
INPUT_COUNT = 1500
INPUT_SEED = 11
TESTS_LIMIT = 60  # seconds of a processor; a hang counts as caught
JOURNALS_LIMIT = 300
INPUTS_LIMIT = 120
WANTED = 0.95
BUILDS = {
    "plain": ["-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -g0"],
    "sanitized": ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g0",
                  "-DSTAGEMGR_SANITIZE=address,undefined,float-cast-overflow"],
}


class Mutant:
    def __init__(self, number, file, kind):
        self.number, self.file, self.kind = number, file, kind
        self.old, self.new, self.reason = [], [], []

    def text(self):
        return "\n".join([f"{self.number} {self.file} {self.kind}"]
                         + ["  - " + line for line in self.old]
                         + ["  + " + line for line in self.new]
                         + ["  = " + line for line in self.reason])

    def fit(self):
        """Keeps the file's text with the fault, and its line; returns in how many places it fits."""
        lines = (ROOT / self.file).read_text().splitlines()
        filled = [i for i, line in enumerate(lines) if line.strip()]
        bare = [lines[i].strip() for i in filled]
        size = len(self.old)
        places = [i for i in range(len(bare) - size + 1) if bare[i:i + size] == self.old]
        if len(places) != 1:
            return len(places)
        first, last = filled[places[0]], filled[places[0] + size - 1]
        lines[first:last + 1] = self.new
        self.planted, self.line = "\n".join(lines) + "\n", first + 1
        return 1


def read_list():
    mutants, file, mutant = [], None, None
    for place, line in enumerate(LIST.read_text().splitlines(), 1):
        mark, rest = line[:1], line[1:].strip()
        if mark in ("", "#"):
            continue
        if mark == "*":
            file, mutant = rest, None
        elif mark == "@" and file and re.fullmatch(r"\d+ [\w-]+", rest):
            number, kind = rest.split()
            mutant = Mutant(int(number), file, kind)
            mutants.append(mutant)
        elif mark in " -+=" and mutant:
            if mark in " -":
                mutant.old.append(rest)
            if mark in " +":
                mutant.new.append(rest)
            if mark == "=":
                mutant.reason.append(rest)
        else:
            raise ValueError(f"{LIST.name}:{place}: not understood: {line}")
    seen = set()
    wrong = []
    for mutant in mutants:
        if mutant.number in seen:
            wrong.append(f"the number {mutant.number} is there twice")
        seen.add(mutant.number)
        if not mutant.old or mutant.old == mutant.new:
            wrong.append(f"mutant {mutant.number} changes nothing")
            continue
        places = mutant.fit()
        if places != 1:
            wrong.append(f"mutant {mutant.number} has to fit in one place, and fits in {places}; "
                         f"bring it up to date:\n{mutant.text()}")
    if wrong:
        raise ValueError(f"{LIST.name}: " + f"\n{LIST.name}: ".join(wrong))
    return mutants


def run(command, seconds=None, memory=None, **more):
    """(status, output); the status is None when it did not end by itself. All that it started ends
    with it. The seconds are the processor's, so that a busy machine changes no verdict."""
    def limits():
        os.setpgid(0, 0)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        if seconds:
            resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))
        if memory:
            resource.setrlimit(resource.RLIMIT_AS, (memory, memory))
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True, errors="replace",
                               preexec_fn=limits, **more)
    try:
        output, _ = process.communicate(timeout=seconds and 100 * seconds)
        hangs = process.returncode in (-signal.SIGXCPU, -signal.SIGKILL)
        return None if hangs else process.returncode, output
    except subprocess.TimeoutExpired:
        return None, ""
    finally:
        if process.returncode is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()


def need(command, **more):
    status, output = run(command, **more)
    if status != 0:
        sys.exit(f"{output}\nmutation: failed: {shlex.join(map(str, command))}")
    return output


def write_inputs():
    """What fuzz-entities-corpus tries out. It does each input twice, with indexes and with walks, so
    it notices what journals cannot: faults in what happens inside of callbacks."""
    chance = random.Random(INPUT_SEED)
    corpus = [file.read_bytes() for file in sorted((TREE / "tests/fuzz/corpus/entities").iterdir())]
    shutil.rmtree(INPUTS, ignore_errors=True)
    INPUTS.mkdir(parents=True)
    for number in range(INPUT_COUNT):
        if number % 2 == 0:
            made = bytearray(chance.randbytes(chance.randint(60, 500)))
        else:
            made = mixture(chance, corpus)
        # A first byte that four divides leaves the callbacks alone, as the journals do.
        if made[0] % 4 == 0 and chance.random() < 0.8:
            made[0] += 1
        (INPUTS / f"{number:06d}").write_bytes(made)


def mixture(chance, corpus):
    """The beginning of one file and the end of another, with a few changes, and some more bytes."""
    made = bytearray(chance.choice(corpus))
    if chance.random() < 0.5:
        other = chance.choice(corpus)
        made[chance.randint(0, len(made)):] = other[chance.randint(0, len(other)):]
    for _ in range(chance.randint(1, 12)):
        place, length = chance.randint(0, len(made)), chance.randint(1, 10)
        change = chance.choice(["overwrite", "overwrite", "insert", "delete"])
        if change == "overwrite":
            made[place:place + 1] = chance.randbytes(1)
        elif change == "insert":
            made[place:place] = chance.randbytes(length)
        else:
            del made[place:place + length]
    return made + chance.randbytes(chance.randint(1, 200))


class Build:
    """The tree without a fault, built once; a mutant compiles and links only what it changes."""

    PROGRAMS = ["tests-runtime", "tests-model", "tests-StageMgr", "tests-scenario", "conformance",
                "fuzz-entities-corpus"]
    # What is compiled anew when it reads the file with the fault: the library, and the tests of the
    # lower layers, which are the ones to use its templates by themselves. What else reads a header
    # is linked behind the library, and so takes the functions of that, unless they are inlined.
    FOLDERS = ("runtime", "model", "StageMgr", "tests/runtime", "tests/model")

    def __init__(self, name):
        self.name, self.folder = name, WORK / name
        self.sanitized = name == "sanitized"
        need(["cmake", "-S", TREE, "-B", self.folder, "-G", "Ninja", "-DCMAKE_CXX_COMPILER=g++",
              "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DSTAGEMGR_BUILD_BENCH=OFF",
              "-DSTAGEMGR_BUILD_PROGRAM=OFF",
              "-DSTAGEMGR_TEST_FOLDERS=runtime;model;StageMgr;scenario;conformance;fuzz",
              *BUILDS[name]])
        need(["cmake", "--build", self.folder, "-j", str(os.cpu_count()), "--target", *self.PROGRAMS])
        # What is compiled of those folders: per object, the command and all that it reads.
        commands = json.loads((self.folder / "compile_commands.json").read_text())
        folders = [TREE / folder for folder in self.FOLDERS]
        words = [shlex.split(c["command"]) for c in commands
                 if Path(c["file"]).parent in folders]
        self.compile = {w[w.index("-o") + 1]: w for w in words}
        self.reads = {}
        for line in need(["ninja", "-C", self.folder, "-t", "deps"]).splitlines():
            if line.startswith(" "):
                self.reads[obj].add(os.path.normpath(self.folder / line.strip()))
            elif line:
                obj = line.partition(":")[0]
                self.reads[obj] = set()
        self.link, self.program, self.objects = {}, {}, {}
        for program in self.PROGRAMS:
            lines = need(["ninja", "-C", self.folder, "-t", "commands", program]).splitlines()
            self.link[program] = next(
                shlex.split(part) for line in reversed(lines) for part in line.split(" && ")
                if re.search(rf" -o \S*{program}( |$)", part))
            words = self.link[program]
            self.program[program] = self.folder / words[words.index("-o") + 1]
            linked = {os.path.normpath(word) for word in words}
            self.objects[program] = [obj for obj in self.compile if obj in linked]

    def plant(self, mutant, folder, program):
        """Links the program with the fault and returns true; returns false when nothing in it reads
        the file, or when that does not compile."""
        overlay = folder / "overlay"
        planted = overlay / mutant.file
        planted.parent.mkdir(parents=True, exist_ok=True)
        planted.write_text(mutant.planted)
        objects = {}
        for obj in self.objects[program]:
            if str(TREE / mutant.file) not in self.reads[obj]:
                continue
            fresh = objects[obj] = folder / self.name / obj
            if fresh.exists():  # compiled for another program
                continue
            fresh.parent.mkdir(parents=True, exist_ok=True)
            command = [str(planted) if word == str(TREE / mutant.file) else word
                       for word in self.compile[obj]]
            command[command.index("-o") + 1] = str(fresh)
            compiler = next(i for i, word in enumerate(command) if word.endswith("g++"))
            # Compiling takes the most time of all, and -O0 the least of it.
            command = [*command[compiler:compiler + 1], f"-I{overlay}", *command[compiler + 1:],
                       "-w", "-O0"]
            status, output = run(command, cwd=self.folder)
            if status != 0:
                mutant.trouble = output
                return False
        path = folder / self.name / program
        if objects and not path.exists():
            # In front, so that the faulty one of several inline functions is taken.
            words = [word for word in self.link[program] if os.path.normpath(word) not in objects]
            words[words.index("-o") + 1] = str(path)
            first = next(i for i, word in enumerate(words) if word.endswith(".o"))
            need(words[:first] + [str(fresh) for fresh in objects.values()] + words[first:],
                 cwd=self.folder)
        return bool(objects)

    def caught(self, judge, folder=None):
        """What the program says when it notices a fault; an empty text when it does not. folder:
        where it was planted; the program without one by default."""
        program = judge.program
        path = folder / self.name / program if folder else self.program[program]
        environment = dict(os.environ, ASAN_OPTIONS="detect_stack_use_after_return=1:"
                           "hard_rss_limit_mb=3000", **judge.environment)
        status, output = run([path, *judge.arguments], seconds=judge.limit, cwd=TREE,
                             env=environment, memory=None if self.sanitized else 4 << 30)
        if status == 0:
            return ""
        if status is None:
            return f"{program} hangs"
        found = re.search(r"(?m)^\[  FAILED  \] ([\w./]+)|^(seed \d+|seeds that differ: \d+)"
                          r"|(ERROR: \w+Sanitizer: [\w-]+|runtime error: .*)"
                          r"|(?<=^found: )(the \w+ do(es)? otherwise|broken: .*)", output)
        return found.group(0).strip("[] ").replace("FAILED  ] ", "") if found else (
            f"{program} ends with status {status}")


class Judge:
    def __init__(self, by, build, program, arguments, limit, environment=None):
        self.by, self.build, self.program = by, build, program
        self.arguments, self.limit, self.environment = arguments, limit, environment or {}


TESTS = ["--gtest_fail_fast", "--gtest_brief=1"]


def journals(count):
    return ["--seeds", str(count), "--jobs", "1", "--show", "0", "--stop"]


def judges(plain, sanitized):
    """What judges a mutant, the cheapest first."""
    return [Judge("tests", plain, "tests-runtime", TESTS, TESTS_LIMIT),
            Judge("tests", plain, "tests-model", TESTS, TESTS_LIMIT),
            Judge("tests", plain, "tests-StageMgr", TESTS, TESTS_LIMIT),
            Judge("tests", plain, "tests-scenario", TESTS, TESTS_LIMIT),
            Judge("journals", plain, "conformance", journals(JOURNALS), JOURNALS_LIMIT),
            # Traced, the library walks instead of asking its indexes.
            Judge("traced tests", plain, "tests-StageMgr", TESTS, TESTS_LIMIT,
                  {"STAGEMGR_TRACED": "1"}),
            Judge("sanitized tests", sanitized, "tests-model", TESTS, 4 * TESTS_LIMIT),
            Judge("sanitized tests", sanitized, "tests-StageMgr", TESTS, 4 * TESTS_LIMIT),
            Judge("sanitized journals", sanitized, "conformance", journals(SANITIZED_JOURNALS),
                  JOURNALS_LIMIT),
            Judge("inputs", plain, "fuzz-entities-corpus", [INPUTS], INPUTS_LIMIT)]


def judge(mutant, builds):
    start = time.monotonic()
    folder = WORK / "mutants" / str(mutant.number)
    shutil.rmtree(folder, ignore_errors=True)
    mutant.by, mutant.how, mutant.trouble = None, "", "nothing reads the file"
    for one in judges(*builds):
        if not any(str(TREE / mutant.file) in one.build.reads[obj]
                   for obj in one.build.objects[one.program]):
            continue
        mutant.trouble = ""
        if not one.build.plant(mutant, folder, one.program):
            break
        mutant.how = one.build.caught(one, folder)
        if mutant.how:
            mutant.by = one.by
            break
    shutil.rmtree(folder, ignore_errors=True)
    mutant.seconds = time.monotonic() - start
    return mutant


def main():
    arguments = argparse.ArgumentParser(prog="./do mutation")
    arguments.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants at a time")
    arguments.add_argument("--only", nargs="+", metavar="PATTERN|NUMBER",
                           help="those with this number, or whose text in the list matches")
    arguments.add_argument("--list", action="store_true", help="only show the mutants")
    arguments.add_argument("--check", action="store_true",
                           help="only see whether every mutant fits its file")
    options = arguments.parse_args()
    try:
        mutants = read_list()
    except (ValueError, OSError) as error:
        sys.exit(f"mutation: {error}")
    if options.only:
        mutants = [m for m in mutants
                   if any(str(m.number) == only if only.isdigit() else re.search(only, m.text())
                          for only in options.only)]
    if options.list:
        print("\n\n".join(m.text() for m in mutants))
    if options.check or options.list:
        print(f"{len(mutants)} mutants fit their files")
        return 0 if mutants else 1

    start = time.monotonic()
    shutil.rmtree(TREE, ignore_errors=True)
    TREE.mkdir(parents=True)
    for name in COPIED:
        copy = shutil.copytree if (ROOT / name).is_dir() else shutil.copy2
        copy(ROOT / name, TREE / name)
    write_inputs()
    builds = []
    for name in BUILDS:
        print(f"building {name}", flush=True)
        builds.append(Build(name))
    for one in judges(*builds):
        if one.program == "conformance":
            one.arguments = journals(SANITIZED_JOURNALS)
        if said := one.build.caught(one):
            sys.exit(f"mutation: {one.program} of {one.build.name} fails without any fault: "
                     f"{said}")

    print(f"planting {len(mutants)} faults, {options.jobs} at a time", flush=True)
    table = []
    results = WORK / "results.txt"
    results.write_text("")
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        judged = [pool.submit(judge, mutant, builds) for mutant in mutants]
        for done, future in enumerate(concurrent.futures.as_completed(judged), 1):
            m = future.result()
            fate = (f"caught by {m.by}: {m.how}" if m.by else
                    "DOES NOT COMPILE" if m.trouble else "survives")
            table.append((m.number, f"{m.number:4} {m.file}:{m.line} {m.kind}: {fate} "
                                    f"({m.seconds:.0f} s)"))
            print(f"[{done}/{len(mutants)}] {table[-1][1].strip()}", flush=True)
            results.write_text("\n".join(line for _, line in sorted(table)) + "\n")
    return report(mutants, bool(options.only), time.monotonic() - start)


def report(mutants, some, seconds):
    alive = [m for m in mutants if not m.by]
    faults = [("does not compile", [m for m in mutants if m.trouble]),
              ("survives, and the list does not say why",
               [m for m in alive if not m.trouble and not m.reason]),
              ("is caught, though the list says why it survives",
               [m for m in mutants if m.by and m.reason])]
    print("\nSurvivors:")
    for m in alive:
        print(m.text())
    for what, those in faults:
        for m in those:
            print(f"mutant {m.number} {what}", m.trouble)
    print()
    for by in dict.fromkeys(one.by for one in judges(None, None)):
        print(f"{sum(m.by == by for m in mutants):5} caught by {by}")
    caught = len(mutants) - len(alive)
    print(f"{seconds / 60:.0f} min; see {WORK.relative_to(ROOT)}/results.txt")
    print(f"{len(mutants)} mutants: {caught} caught ({100 * caught / max(1, len(mutants)):.1f} %), "
          f"{len(alive)} survive")
    good = mutants and not any(those for _, those in faults)
    return 0 if good and (some or caught >= WANTED * len(mutants)) else 1


if __name__ == "__main__":
    sys.exit(main())
