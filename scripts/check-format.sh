#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
#
# Fails when a tracked C++ file is not as clang-format 14 leaves it, or lacks the licence lines.
#   scripts/check-format.sh [--fix]
set -euo pipefail
cd "$(dirname "$0")/.."

formatter=$(command -v clang-format-14 || command -v clang-format || true)
if [ -z "$formatter" ]; then
  echo "check-format: clang-format is missing (scripts/install-deps.sh lint)" >&2
  exit 1
fi
mapfile -d '' -t files < <(git ls-files -z -- '*.h' '*.cpp')
present=()
for file in "${files[@]}"; do
  [ -f "$file" ] && present+=("$file")
done

if [ "${1:-}" = --fix ]; then
  printf '%s\0' "${present[@]}" | xargs -0 -n 32 -P "$(nproc)" "$formatter" -i
  exit 0
fi
failed=0
# The formatter prints every place; the lines alone are enough to look at.
places=$(printf '%s\0' "${present[@]}" |
  xargs -0 -n 32 -P "$(nproc)" "$formatter" --dry-run -Werror 2>&1 |
  grep 'error:' | cut -d: -f1,2 | sort -u -t: -k1,1 -k2,2n || true)
if [ -n "$places" ]; then
  echo "$places" >&2
  echo "check-format: not as clang-format leaves it (scripts/check-format.sh --fix)" >&2
  failed=1
fi
for file in "${present[@]}"; do
  if ! head -n 2 "$file" | grep -q 'SPDX-License-Identifier: Apache-2.0'; then
    echo "$file: the two SPDX lines are missing" >&2
    failed=1
  fi
done
[ $failed = 0 ] && echo "check-format: ${#present[@]} files are well formatted"
exit $failed
