#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
#
# Installs what is missing, builds, and runs every test. Arguments go to ctest (./test.sh -R usd).
set -euo pipefail
cd "$(dirname "$0")"

echo "== What the machine lacks"
scripts/install-deps.sh build test
# An independent reader of USD, for the one test that compares our layers with it.
scripts/usd-reader.sh build/usd-reader
echo "== Building"
cmake --preset dev
cmake --build --preset dev
echo "== Testing"
exec ctest --preset dev --parallel "$(nproc)" "$@"
