#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Runs every benchmark program of a folder and prints one table.

  scripts/bench-table.py FOLDER [--peers | --quick [--record]] [arguments of the programs]

--peers   at least five runs of each (fewer only of what takes long), Blender's hair as well
--quick   under two minutes: pairs whose ratio says something on any machine, against
          bench/expected.json; always answers 0, for it is read by people
--record  with --quick: writes those ratios to bench/expected.json

A benchmark xxxByPeer/args is somebody else's way to do the work of xxx/args. Beside it stands
ours/theirs: our time for the work over theirs, so that below 1 ours is the faster one. Times are
medians where there is more than one run.
"""
import json
import re
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
BENCH = Path(__file__).resolve().parent.parent / "bench"
EXPECTED = BENCH / "expected.json"
PEER = re.compile(r"(\w+?)By([A-Z]\w*)(/.*)?")
# What the measuring library adds to names and to the figures of a run.
ADDED = re.compile(r"/(real_time|manual_time|process_time|(repeats|iterations|min_time):[^/]*)")
OWN_KEYS = {"name", "run_name", "run_type", "family_index", "per_family_instance_index",
            "repetitions", "repetition_index", "threads", "iterations", "real_time", "cpu_time",
            "time_unit", "items_per_second", "bytes_per_second", "label", "aggregate_name",
            "aggregate_unit", "error_occurred", "error_message"}
# Against copying, the standard library and, where they are built in, other libraries. Operators at
# a size beyond any cache, the others at sizes that take milliseconds.
QUICK = "|".join([
    r"^operator(ByCopying)?/[A-Za-z]+/1000000/",
    r"^blocksOfPoints(By[A-Za-z]+)?/170000$",
    r"^strandsOfField(By[A-Za-z]+)?/10000$",
    r"^closestPoint(By[A-Za-z]+)?/ktris:100/height:(0/|100/random:0)",
    r"^subdivisionPoints(By[A-Za-z]+)?/levels:2$",
    r"^formatFloats(By[A-Za-z]+)?/",
    r"^usdExport(By[A-Za-z]+)?/100000/",
    r"^groom(Text|Parse)(By[A-Za-z]+)?/100000/",
    r"^(png|deflate)Atlas(By[A-Za-z]+)?/strands:60/cores:1/",
])
SLOWER = 1.3


@dataclass
class Row:
    name: str
    seconds: float = 0.0
    runs: int = 1
    items: float = 0.0  # a second
    bytes: float = 0.0
    label: str = "items"
    counters: dict = field(default_factory=dict)
    error: str = ""


def scaled(value, units):
    """The value with the first unit that leaves it at 1 or more."""
    for factor, unit in units:
        if value >= factor:
            return f"{value / factor:.3g} {unit}"
    return f"{value / units[-1][0]:.3g} {units[-1][1]}"


def time_text(seconds):
    return scaled(seconds, [(1.0, "s"), (1e-3, "ms"), (1e-6, "us"), (1e-9, "ns")])


def rate_text(row):
    rates = []
    if row.items:
        amount = scaled(row.items, [(1e9, "G"), (1e6, "M"), (1e3, "k"), (1.0, "")])
        rates.append(f"{amount}{'' if amount.endswith(' ') else ' '}{row.label}/s")
    if row.bytes:
        rates.append(scaled(row.bytes, [(1e9, "GB/s"), (1e6, "MB/s"), (1e3, "kB/s"), (1.0, "B/s")]))
    rates += [f"{name} {value:.4g}" for name, value in row.counters.items()]
    return ", ".join(rates)


def rows_of(runs):
    """One row per benchmark: the median where it was repeated, the run itself otherwise."""
    repeated = {run["run_name"] for run in runs if run.get("aggregate_name") == "median"}
    failed = set()
    for run in runs:
        name = ADDED.sub("", run["run_name"])
        if run.get("error_occurred"):
            if name not in failed:
                yield Row(name, error=run.get("error_message", "failed"))
            failed.add(name)
            continue
        if run.get("run_type") == "aggregate":
            if run.get("aggregate_name") != "median":
                continue
        elif run["run_name"] in repeated:
            continue
        counters = {key: value for key, value in run.items() if key not in OWN_KEYS}
        yield Row(name, run["real_time"] * SECONDS[run["time_unit"]], run.get("repetitions", 1),
                  run.get("items_per_second", 0.0), run.get("bytes_per_second", 0.0),
                  run.get("label") or "items", counters)


def run_program(program, arguments):
    """The program's rows; one row with the error where it fails."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        done = subprocess.run([program, f"--benchmark_out={out.name}", *arguments],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        text = Path(out.name).read_text()
    if done.returncode == 0 and text.strip():
        return list(rows_of(json.loads(text)["benchmarks"]))
    if "Failed to match" in done.stderr:
        return []
    return [Row(program.name, error=f"failed ({done.returncode})\n{done.stderr}")]


def run_blender(arguments):
    """Blender's rows; none where it is not installed."""
    blender = shutil.which("blender")
    if not blender:
        print("Blender is not installed")
        return
    chosen = [a.split("=", 1)[1] for a in arguments if a.startswith("--benchmark_filter=")]
    done = subprocess.run([blender, "-b", "--factory-startup", "-P",
                           BENCH / "peers" / "blender_hair.py", "--", *chosen],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    for line in done.stdout.splitlines():
        if line.startswith("{"):
            found = json.loads(line)
            yield Row(found["name"], found["seconds"], found["runs"],
                      found["strands"] / found["seconds"], label="strands")
    if "Traceback" in done.stdout or done.returncode != 0:
        yield Row("blender_hair.py", error=done.stdout)


class Results:
    """All rows so far, by name, and what pairs of them say."""

    def __init__(self):
        self.rows = {}

    def add(self, row):
        self.rows[row.name] = row

    def ours(self, row):
        """Our benchmark that this one of a peer belongs to."""
        match = PEER.fullmatch(row.name)
        ours = match and self.rows.get(match[1] + (match[3] or ""))
        return ours if ours and not ours.error and not row.error else None

    def ratio(self, row):
        """Our time for one item over the peer's; of whole runs where items are not counted."""
        ours = self.ours(row)
        if not ours:
            return None
        if ours.items and row.items:
            return row.items / ours.items
        return ours.seconds / row.seconds


def programs_in(folder):
    programs = sorted(path for path in Path(folder).glob("*_bench") if path.is_file())
    if not programs:
        sys.exit(f"bench-table: no benchmark programs in {folder}")
    return programs


def whole_table(programs, arguments, peers):
    if peers and not any(a.startswith("--benchmark_repetitions") for a in arguments):
        arguments = ["--benchmark_repetitions=5", "--benchmark_min_time=0.1", *arguments]
    results = Results()
    failed = False
    print("time: the median of so many runs. ours/theirs: our time over theirs for the same work;\n"
          "below 1 ours is the faster one.")
    print(f"{'benchmark':<56} {'time':>8} {'runs':>4} {'ours/theirs':>11}  rate")

    def show(rows):
        nonlocal failed
        for row in rows:
            results.add(row)
        for row in rows:
            if row.error:
                failed = True
                print(f"{row.name:<56} {'':>8} {'':>4} {'':>11}  {row.error}", flush=True)
                continue
            ratio = results.ratio(row)
            ratio_text = "" if ratio is None else f"{ratio:.2f}"
            print(f"{row.name:<56} {time_text(row.seconds):>8} {row.runs:>4} {ratio_text:>11}  "
                  f"{rate_text(row)}", flush=True)

    for program in programs:
        show(run_program(program, arguments))
    if peers:
        show(list(run_blender(arguments)))
    return 1 if failed else 0


def quick_table(programs, arguments, record):
    arguments = [f"--benchmark_filter={QUICK}", "--benchmark_repetitions=5",
                 "--benchmark_min_time=0.05", "--benchmark_enable_random_interleaving=true",
                 *arguments]
    results = Results()
    for program in programs:
        for row in run_program(program, arguments):
            results.add(row)
            if row.error:
                print(f"{row.name}: {row.error}")
    expected = json.loads(EXPECTED.read_text()) if EXPECTED.exists() else {}
    measured = {}
    print("Our time over theirs for the same work, each the median of 5 runs; below 1 ours is the\n"
          "faster one.")
    print(f"{'pair':<60} {'ours':>8} {'theirs':>8} {'ratio':>6} {'expected':>8}")
    for row in results.rows.values():
        ratio = results.ratio(row)
        if ratio is None:
            continue
        measured[row.name] = ratio
        told = expected.get(row.name)
        note = ""
        if told is None:
            note = "  new"
        elif ratio > SLOWER * told:
            note = f"  SLOWER by {100 * (ratio / told - 1):.0f} %"
        told_text = "" if told is None else f"{told:.2f}"
        print(f"{row.name:<60} {time_text(results.ours(row).seconds):>8} "
              f"{time_text(row.seconds):>8} {ratio:>6.2f} {told_text:>8}{note}")
    slower = [n for n, r in measured.items() if n in expected and r > SLOWER * expected[n]]
    print(f"{len(slower)} of {len(measured)} are slower by more than 30 % than expected.json says"
          + "".join(f"\n  {name}" for name in slower))
    fresh = [name for name in measured if name not in expected]
    if fresh and not record:
        print(f"{len(fresh)} have no expectation yet (--quick --record writes them):"
              + "".join(f"\n  {name}" for name in fresh))
    absent = [name for name in expected if name not in measured]
    if absent:
        print(f"{len(absent)} were not measured (filtered out, or their peer is not built in):"
              + "".join(f"\n  {name}" for name in absent))
    if record:
        # Pairs that this build cannot measure keep what they had.
        expected.update({name: float(f"{ratio:.3g}") for name, ratio in measured.items()})
        EXPECTED.write_text(json.dumps(dict(sorted(expected.items())), indent=2) + "\n")
        print(f"{EXPECTED.relative_to(BENCH.parent)} holds {len(expected)} ratios")
    return 0


def main():
    arguments = sys.argv[1:]
    modes = {mode for mode in ("--peers", "--quick", "--record") if mode in arguments}
    arguments = [a for a in arguments if a not in modes]
    if not arguments:
        sys.exit(__doc__)
    programs = programs_in(arguments.pop(0))
    if "--quick" in modes:
        return quick_table(programs, arguments, "--record" in modes)
    return whole_table(programs, arguments, "--peers" in modes)


if __name__ == "__main__":
    sys.exit(main())
