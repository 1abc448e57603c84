#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
#
# Installs what a Debian 12 machine lacks to build and try Kestrane, and nothing else.
#   scripts/install-deps.sh [build] [test] [bench] [lint]      no argument: all four
#   scripts/install-deps.sh peers                              what benchmarks compare us with
set -euo pipefail

# A compiler, the libraries of the core and the program, and a software driver to draw with.
build=(g++ cmake ninja-build libtbb-dev nlohmann-json3-dev libstb-dev libcli11-dev
       libegl-dev libgl-dev libegl1 libegl-mesa0 libgl1-mesa-dri)
# GoogleTest, readers to check our images with, and Python for the tests of the program and of its USD.
test=(libgtest-dev libgmock-dev libpng-dev zlib1g-dev python3 python3-venv ca-certificates)
bench=(libbenchmark-dev python3)
lint=(clang-format-14 git python3)
peers=(libembree-dev libosd-dev libmuparser-dev libluajit-5.1-dev libpng-dev zlib1g-dev blender)

groups=("$@")
[ ${#groups[@]} -gt 0 ] || groups=(build test bench lint)
wanted=()
for group in "${groups[@]}"; do
  case $group in
    build) wanted+=("${build[@]}") ;;
    test) wanted+=("${test[@]}") ;;
    bench) wanted+=("${bench[@]}") ;;
    lint) wanted+=("${lint[@]}") ;;
    peers) wanted+=("${peers[@]}") ;;
    *) echo "install-deps: unknown group '$group' (build, test, bench, lint or peers)" >&2; exit 2 ;;
  esac
done

if ! command -v dpkg-query >/dev/null; then
  echo "install-deps: this is no Debian system, so nothing was installed. Kestrane needs what these" >&2
  echo "Debian packages hold: ${wanted[*]}" >&2
  echo "With all of them in place, set KESTRANE_SKIP_DEPS=1 to go on." >&2
  [ "${KESTRANE_SKIP_DEPS:-}" = 1 ] && exit 0
  exit 1
fi

missing=()
for package in "${wanted[@]}"; do
  state=$(dpkg-query -W -f='${db:Status-Status} ' "$package" 2>/dev/null || true)
  [[ " $state" == *" installed "* ]] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0
echo "install-deps: missing: ${missing[*]}" >&2
if [ "${KESTRANE_SKIP_DEPS:-}" = 1 ]; then
  echo "install-deps: KESTRANE_SKIP_DEPS is set; nothing was installed" >&2
  exit 0
fi

as_root=()
if [ "$(id -u)" != 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install-deps: not root, and sudo is not there. Ask an administrator to run:" >&2
    echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
install_missing() {
  "${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}" >&2
}
# A machine that never fetched its package lists, or whose lists are old, fails the first time.
if ! install_missing; then
  "${as_root[@]}" apt-get update -q >&2
  if ! install_missing; then
    echo "install-deps: apt-get could not install: ${missing[*]}" >&2
    exit 1
  fi
fi
