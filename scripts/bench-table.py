#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Runs every benchmark program of a folder and prints one table: name, time, rate.

  scripts/bench-table.py FOLDER [arguments of the programs]
A benchmark that repeats itself is shown by its median.
"""
import json
import subprocess
import sys
import tempfile
from pathlib import Path

SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def scaled(value, units):
    """The value with the first unit that leaves it at 1 or more."""
    for factor, unit in units:
        if value >= factor:
            return f"{value / factor:.3g} {unit}"
    return f"{value / units[-1][0]:.3g} {units[-1][1]}"


def time_text(seconds):
    return scaled(seconds, [(1.0, "s"), (1e-3, "ms"), (1e-6, "us"), (1e-9, "ns")])


def rate_text(run):
    rates = []
    if "items_per_second" in run:
        label = run.get("label") or "items"
        rates.append(scaled(run["items_per_second"],
                            [(1e9, "G"), (1e6, "M"), (1e3, "k"), (1.0, "")]) + f" {label}/s")
    if "bytes_per_second" in run:
        rates.append(scaled(run["bytes_per_second"],
                            [(1e9, "GB/s"), (1e6, "MB/s"), (1e3, "kB/s"), (1.0, "B/s")]))
    return ", ".join(rates)


def shown(runs):
    """One run per benchmark: the median where it was repeated, the run itself otherwise."""
    repeated = {run["run_name"] for run in runs if run.get("aggregate_name") == "median"}
    for run in runs:
        if run.get("run_type") == "aggregate":
            if run.get("aggregate_name") == "median":
                yield run
        elif run["run_name"] not in repeated:
            yield run


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    programs = sorted(path for path in Path(sys.argv[1]).glob("*_bench") if path.is_file())
    if not programs:
        sys.exit(f"bench-table: no benchmark programs in {sys.argv[1]}")
    failed = False
    print(f"{'benchmark':<64} {'time':>10}  rate")
    for program in programs:
        with tempfile.NamedTemporaryFile(suffix=".json") as out:
            done = subprocess.run([program, f"--benchmark_out={out.name}", *sys.argv[2:]],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            text = Path(out.name).read_text()
        if done.returncode != 0 or not text.strip():
            if "Failed to match" not in done.stderr:
                print(f"{program.name}: failed ({done.returncode})\n{done.stderr}", file=sys.stderr)
                failed = True
            continue
        runs = json.loads(text)["benchmarks"]
        for run in shown(runs):
            if run.get("error_occurred"):
                print(f"{run['name']:<64} {'':>10}  {run.get('error_message', 'failed')}")
                failed = True
                continue
            seconds = run["real_time"] * SECONDS[run["time_unit"]]
            print(f"{run['run_name']:<64} {time_text(seconds):>10}  {rate_text(run)}", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
