#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
#
# Makes a Python environment with a USD library at the given path, where the package index can be
# reached; says so and goes on where it cannot, since one test alone needs it.
set -euo pipefail
folder=$1
list=$(dirname "$0")/../tests/usd/requirements.txt

cmp -s "$list" "$folder/installed.txt" && exit 0
rm -rf "$folder"
mkdir -p "$(dirname "$folder")"
if python3 -m venv "$folder" &&
   "$folder/bin/pip" install -q --disable-pip-version-check --timeout 20 --retries 1 -r "$list"; then
  cp "$list" "$folder/installed.txt"
else
  rm -rf "$folder"
  echo "usd-reader: usd-core could not be fetched; the test that needs it will be skipped" >&2
fi
