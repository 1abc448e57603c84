#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
#
# Builds all benchmarks and prints one table: name, time, rate.
#   ./bench.sh [--peers | --quick [--record]] [arguments of every benchmark program]
# --peers   also installs and measures what others offer for the same work, side by side
# --quick   under two minutes once built: ratios that any machine shows alike, against those of
#           bench/expected.json. For people to read: it answers 0 whatever it finds.
# --record  with --quick: makes what was measured the expectation
# Other arguments are the measuring library's (./bench.sh --benchmark_filter=interpolate).
set -euo pipefail
cd "$(dirname "$0")"

scripts/install-deps.sh build bench
options=()
for argument in "$@"; do
  if [ "$argument" = --peers ]; then
    scripts/install-deps.sh peers || echo "bench: going on with the peers that are there" >&2
    options=(-DKESTRANE_BENCH_PEERS=ON)
  fi
done
cmake --preset bench "${options[@]}"
cmake --build --preset bench
exec scripts/bench-table.py build/bench/bin "$@"
