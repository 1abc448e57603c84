#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
#
# From nothing to hair on a head: installs what is missing, builds the program, and leaves the
# built-in sample groom, its USD and two pictures of it in out/.
set -euo pipefail
cd "$(dirname "$0")"

echo "== What the machine lacks"
scripts/install-deps.sh build
echo "== Building (the first time takes some minutes)"
cmake --preset release
cmake --build --preset release --target kestrane

kestrane=build/bin/kestrane
mkdir -p out
echo "== Growing"
"$kestrane" sample out/sample.groom
"$kestrane" export out/sample.groom out/sample.usda
"$kestrane" draw out/sample.groom out/front.png --camera front
"$kestrane" draw out/sample.groom out/three-quarter.png --camera three-quarter

echo
echo "The sample groom:  out/sample.groom"
echo "Its strands:       out/sample.usda"
echo "Two pictures:      out/front.png  out/three-quarter.png"
echo "The program:       build/bin/kestrane --help"
