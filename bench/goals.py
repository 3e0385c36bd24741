#!/usr/bin/env python3
"""Measures what a progression costs, and says which goals are met.

    goals.py [--build DIR] [--only GOAL]... [--quick]

DIR is where the release build lies. Times are ratios within one run: the load of the machine falls
on both sides, of each benchmark's repetitions the fastest counts, and they take turns. Exit status 1
when something could not be measured. --quick measures less often, for a first look.
"""

import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import instructions

DEEP = 1000000


class Missing(Exception):
    """What a goal needs and nobody measured."""


class Measured:
    """Figures by name; each is asked for twice: to know what to run, and for its value."""

    def __init__(self):
        self.benchmarks = None  # None: only the names are collected
        self.names = set()
        self.counts = {}
        self.figures = {}

    def benchmark(self, name):
        if self.benchmarks is None:
            self.names.add(name)
            return {"time": 1, "item": 1}
        if name not in self.benchmarks:
            raise Missing(f"no benchmark {name}")
        return self.benchmarks[name]

    def time(self, name):
        """Seconds of one iteration."""
        return self.benchmark(name)["time"]

    def item(self, name):
        """Seconds per item: a stage, a report, an event."""
        return self.benchmark(name)["item"]

    def count(self, workload):
        """Instructions per item."""
        if self.benchmarks is None:
            self.counts[workload] = 1
        if isinstance(self.counts[workload], Missing):
            raise self.counts[workload]
        return self.counts[workload]

    def figure(self, name):
        """What a program of its own has printed."""
        if self.benchmarks is None:
            self.figures[name] = 1
        if isinstance(self.figures[name], Missing):
            raise self.figures[name]
        return self.figures[name]


def goals():
    """Yields (goal, what, figure of a Measured, bound, unit); a figure is met up to its bound."""
    def ratio(a, b):
        return lambda m: m.time(a) / m.time(b)

    def growth(a, b):
        return lambda m: m.item(a) / m.item(b)

    for size in ("100x100", "1000x100"):
        yield (1, f"report, events {size}: keyed",
               ratio(f"run/ours/events/{size}", f"run/keyed/events/{size}"), 5, "x")
    yield 1, "report, events 100x100", lambda m: int(m.count("events 100 100")), 3000, "instructions"

    for shape in ("chain", "fan", "layered"):
        for size in (1000, 10000):
            yield (2, f"stage, {shape} of {size}: keyed",
                   ratio(f"run/ours/{shape}/{size}", f"run/keyed/{shape}/{size}"), 8, "x")
    for shape in ("chain", "fan", "layered"):
        yield (2, f"stage, {shape} of 1000", lambda m, s=shape: int(m.count(f"{s} 1000")), 6000,
               "instructions")

    yield (3, "stage, chain of 100000: of 1000",
           growth("run/ours/chain/100000", "run/ours/chain/1000"), 4, "x")
    for shape in ("chain", "fan", "layered"):
        yield (3, f"instructions of a stage, {shape} of 10000: of 1000",
               lambda m, s=shape: m.count(f"{s} 10000") / m.count(f"{s} 1000"), 1.15, "x")

    yield (4, "report, 100000 agents in a stage: 1000",
           growth("fanin/ours/100000", "fanin/ours/1000"), 5, "x")
    for size in (1000, 100000):
        yield (4, f"report, {size} agents in a stage: keyed",
               ratio(f"fanin/ours/{size}", f"fanin/keyed/{size}"), 10, "x")

    yield (5, f"chain of {DEEP} on a stack of 8 MB, failures", lambda m: m.figure("deep"), 0, "")

    yield 6, "criticality join of 10000: of 1000", ratio("join/10000", "join/1000"), 15, "x"

    for where, text in (("spread", "in stages of their own"), ("onestage", "in one stage")):
        for size in (1000, 10000):
            yield (7, f"registering {size} agents {text}: maps",
                   ratio(f"register/ours/{where}/{size}", f"register/maps/{where}/{size}"), 10, "x")
        yield (7, f"registering an agent of 10000 {text}: of 1000",
               growth(f"register/ours/{where}/10000", f"register/ours/{where}/1000"), 1.5, "x")

    for told, bound in ((1, 2), (100, 1.3)):
        yield (8, f"notification of {told}: virtual observers",
               ratio(f"notification/ours/{told}", f"notification/observers/{told}"), bound, "x")
    yield (8, "connecting with 10000 connected: with 1",
           ratio("connection/ours/10000", "connection/ours/1"), 1.5, "x")
    yield (8, "notification of 1: signals2",
           ratio("notification/ours/1", "notification/signals2/1"), 0.2, "x")

    for size, bound in ((1000, 1.0), (100000, 0.7)):
        yield (9, f"keyed change among {size}: unordered_map",
               ratio(f"keyed/ours/{size}", f"keyed/unordered_map/{size}"), bound, "x")

    for peer, bound in (("libuv", 1), ("libevent", 1), ("libev", 2)):
        yield (10, f"arming with 100000 armed: {peer}",
               ratio("timer/ours/100000", f"timer/{peer}/100000"), bound, "x")
    yield (10, "setting a timer at never to never: arming",
           ratio("timer/never", "timer/ours/100000"), 0.1, "x")

    for name, bound in (("per stage with one event", 1500),
                        ("per further event in a further instance", 500)):
        yield 11, f"memory {name}", lambda m, n=name: m.figure(n), bound, "bytes"

    yield 12, "replay of an input line", lambda m: m.figure("replay"), 1 / 0.3, "us"
    yield (12, "peak memory of replay, 600000 lines: 60000 lines",
           lambda m: m.figure("replay memory"), 1.05, "x")
    yield (12, "50 stages and 200 events, from nothing to complete",
           lambda m: m.time("whole/ours/50x4") * 1000, 1, "ms")


def say(text):
    print(f"==> {text}", file=sys.stderr, flush=True)


def run(command):
    ran = subprocess.run(command, stdout=subprocess.PIPE, text=True)
    if ran.returncode != 0:
        raise Missing(f"{pathlib.Path(command[0]).name} ended with status {ran.returncode}")
    return ran.stdout


def run_benchmarks(program, names, quick):
    say(f"timing {len(names)} benchmarks")
    wanted = "|".join(re.escape(name) for name in sorted(names))
    told = json.loads(run([
        program, f"--benchmark_filter=^({wanted})$", "--benchmark_format=json",
        f"--benchmark_min_time={0.01 if quick else 0.1}",
        f"--benchmark_repetitions={1 if quick else 5}",
        "--benchmark_enable_random_interleaving=true"]))
    fastest = {}
    for one in told["benchmarks"]:
        if one.get("run_type") != "iteration":
            continue
        name = one["run_name"]
        if one.get("error_occurred"):
            say(f"{name}: {one['error_message']}")
            continue
        time = one["cpu_time"] * {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}[one["time_unit"]]
        item = 1 / one["items_per_second"] if "items_per_second" in one else time
        best = fastest.setdefault(name, {"time": time, "item": item})
        best["time"] = min(best["time"], time)
        best["item"] = min(best["item"], item)
    return fastest


def write_journal(path, lines):
    """Agents of 50 stages that report, and take their reports back, in a class without instances."""
    with open(path, "w") as out:
        def line(at, op, path, **more):
            out.write(json.dumps({"at": at, "op": op, "path": path, **more}) + "\n")
        for place, kind in (("/stage/boot", "Orv::Dir"), ("/stage/boot/config", "Orv::Dir"),
                            ("/stage/boot/config/config", "Stage::Config"),
                            ("/stage/boot/status", "Stage::Status"),
                            ("/stage/boot/completionstatus", "Stage::CompletionStatusDir"),
                            ("/stage/boot/progress", "Stage::ProgressDir"),
                            ("/stage/boot/log", "Stage::Log"), ("/input/boot", "Orv::Dir"),
                            ("/agentstatus/boot", "Orv::Dir"),
                            ("/enable/boot", "Stage::EnabledConfig")):
            line(0, "create", place, type=kind)
        for agent in range(200):
            line(0, "create", f"/input/boot/{agent}", type="Stage::AgentConfig")
            line(0, "set", f"/input/boot/{agent}", attr="event", key=str(agent % 50))
            line(0, "create", f"/agentstatus/boot/{agent}", type="Stage::AgentStatus")
        for number in range(lines):
            agent = number % 200
            line(1 + number // 1000, "set", f"/agentstatus/boot/{agent}", attr="complete",
                 key={"agent": str(agent), "stage": str(agent % 50), "instance": "main"},
                 value=number // 200 % 2 == 0)


def run_replay(program):
    """Microseconds of the processor per line, and how the peak of memory grows with the file."""
    told = {}
    with tempfile.TemporaryDirectory() as folder:
        for lines in (60000, 600000):
            journal = f"{folder}/{lines}.jsonl"
            write_journal(journal, lines)
            # Peak memory can be asked for a process that has ended.
            child = subprocess.Popen([program, "replay", "--out", f"{folder}/out", journal])
            _, status, usage = os.wait4(child.pid, 0)
            child.returncode = os.waitstatus_to_exitcode(status)
            if child.returncode != 0:
                raise Missing(f"stagemgr replay ended with status {child.returncode}")
            told[lines] = usage
    used = told[600000].ru_utime + told[600000].ru_stime - told[60000].ru_utime - \
        told[60000].ru_stime
    return {"replay": used / 540000 * 1e6,
            "replay memory": told[600000].ru_maxrss / told[60000].ru_maxrss}


def measure(wanted, programs, quick):
    needed = Measured()
    for _, _, figure, _, _ in wanted:
        figure(needed)
    measured = Measured()
    measured.benchmarks = {}
    if needed.names:
        measured.benchmarks = run_benchmarks(str(programs / "stagemgr-bench"), needed.names, quick)
    for workload in needed.counts:
        say(f"counting the instructions of {workload}")
        try:
            measured.counts[workload], _ = instructions.count(
                str(programs / "stagemgr-instructions"), workload)
        except instructions.NotCounted as reason:
            measured.counts[workload] = Missing(str(reason))
    if "deep" in needed.figures:
        say(f"a chain of {DEEP} stages")
        try:
            say(run([str(programs / "stagemgr-deep"), str(DEEP)]).strip())
            measured.figures["deep"] = 0
        except Missing as reason:
            say(str(reason))
            measured.figures["deep"] = 1
    if "replay" in needed.figures:
        say("replaying journals")
        try:
            measured.figures.update(run_replay(str(programs.parent / "stagemgr")))
        except Missing as reason:
            measured.figures.update({"replay": reason, "replay memory": reason})
    memory = [name for name in needed.figures if name.startswith("per ")]
    if memory:
        say("memory")
        try:
            told = run([str(programs / "stagemgr-memory")])
            for line in told.splitlines():
                number, _, name = line.partition("\t")
                measured.figures[name] = int(number)
        except Missing as reason:
            measured.figures.update((name, reason) for name in memory)
        for name in memory:
            measured.figures.setdefault(name, Missing(f"nothing said of '{name}'"))
    return measured


def main():
    parser = argparse.ArgumentParser(description="Says which goals are met.")
    parser.add_argument("--build", default="build/release", help="where the release build lies")
    parser.add_argument("--only", type=int, action="append", metavar="GOAL")
    parser.add_argument("--quick", action="store_true", help="measure less often")
    arguments = parser.parse_args()

    wanted = [row for row in goals() if not arguments.only or row[0] in arguments.only]
    if not wanted:
        parser.error("there is no such goal")
    measured = measure(wanted, pathlib.Path(arguments.build) / "bench", arguments.quick)

    missed, unmeasured = 0, 0
    print(f"| goal | {'what':62} | {'figure':>19} | {'at most':>7} |         |")
    print(f"|-----:|{'-' * 64}|{'-' * 20}:|{'-' * 8}:|---------|")
    for goal, what, figure, bound, unit in wanted:
        try:
            value = figure(measured)
            shown = f"{value} {unit}".strip() if isinstance(value, int) else f"{value:.2f} {unit}"
            met = "met" if value <= bound else "NOT MET"
        except Missing as reason:
            shown, met = "not measured", "NOT MET"
            unmeasured += 1
            say(str(reason))
        missed += met != "met"
        print(f"| {goal:4} | {what:62} | {shown:>19} | {bound:>7.4g} | {met:7} |")
    print(f"{len(wanted) - missed} of {len(wanted)} met")
    return 1 if unmeasured else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Missing as failure:
        sys.exit(f"goals.py: {failure}")
