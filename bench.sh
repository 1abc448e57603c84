#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
#
# Builds all benchmarks and prints one table: name, time, rate. Arguments go to every benchmark
# program (./bench.sh --benchmark_filter=Interpolate).
set -euo pipefail
cd "$(dirname "$0")"

scripts/install-deps.sh build bench
cmake --preset bench
cmake --build --preset bench
exec scripts/bench-table.py build/bench/bin "$@"
