#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Fails when a folder of core/ includes a floor above it or anything of a host.

The order of the floors is read from CMakeLists.txt, where it is set for the build.
  scripts/check-floors.py [ROOT]         checks the tree (that of this script, unless told)
  scripts/check-floors.py --self-test    checks that every kind of fault is found
"""
import re
import sys
import tempfile
from pathlib import Path

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
# What the core may not reach for, wherever it stands: it names no host and no window system.
HOST_HEADERS = re.compile(r"^(hosts|gpu|tests|bench|CLI|EGL|GL|GLES\d|X11|maya|Qt\w*)/")
# What the core may not do: print, or end the process.
DEEDS = re.compile(r"\bstd::(cout|cerr|clog)\b|(?<![\w.>])(std::)?(printf|puts|exit|_Exit|quick_exit)\s*\(")
# The task library stands behind one header.
TASKS = re.compile(r"^(tbb|oneapi)/")
TASKS_HOME = "core/base/parallel.cpp"


def floors_of(root):
    text = (root / "CMakeLists.txt").read_text()
    found = re.search(r"set\(KESTRANE_FLOORS\s+([^)]*)\)", text)
    if not found:
        sys.exit("check-floors: CMakeLists.txt sets no KESTRANE_FLOORS")
    return found.group(1).split()


def faults_of(root):
    """All faults as (file, line, sentence), and how many files were read."""
    floors = floors_of(root)
    rank = {name: index for index, name in enumerate(floors)}
    faults = []
    count = 0
    for path in sorted((root / "core").rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        count += 1
        name = path.relative_to(root).as_posix()
        floor = path.relative_to(root / "core").parts[0]
        if floor not in rank:
            faults.append((name, 1, f"'{floor}' is no floor of KESTRANE_FLOORS"))
            continue
        for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
            include = INCLUDE.match(line)
            if not include:
                if DEEDS.search(line.split("//")[0]):
                    faults.append((name, number, "the core prints nothing and never exits"))
                continue
            bracket, target = include.groups()
            if HOST_HEADERS.match(target):
                faults.append((name, number, f"the core includes '{target}'"))
            elif TASKS.match(target) and name != TASKS_HOME:
                faults.append((name, number, f"only {TASKS_HOME} includes '{target}'"))
            elif bracket == '"' and not target.startswith("core/"):
                faults.append((name, number, f"'{target}' is not written from the root"))
            elif target.startswith("core/"):
                other = target.split("/")[1]
                if other not in rank:
                    faults.append((name, number, f"'{target}' lies on no floor"))
                elif rank[other] > rank[floor]:
                    faults.append((name, number, f"{floor} includes {other}, a floor above it"))
    return faults, count


def self_test():
    cases = {
        '#include "core/base/vec.h"': None,
        '#include "core/data/strand_set.h"': None,
        "#include <vector>": None,
        "// std::cout << 1;": None,
        "pool.exit(1);": None,
        "std::snprintf(buffer, 9, text);": None,
        '#include "core/graph/graph.h"': "a floor above it",
        '#  include  "core/session/groom_session.h"': "a floor above it",
        '#include "core/nowhere/x.h"': "on no floor",
        '#include "hosts/view/camera.h"': "the core includes",
        "#include <EGL/egl.h>": "the core includes",
        "#include <tbb/parallel_for.h>": "only core/base/parallel.cpp",
        '#include "strand_set.h"': "from the root",
        "std::cerr << 1;": "prints nothing",
        "  std::exit(1);": "prints nothing",
    }
    failed = 0
    for line, wanted in cases.items():
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            (root / "core/data").mkdir(parents=True)
            (root / "CMakeLists.txt").write_text("set(KESTRANE_FLOORS base data graph session)\n")
            (root / "core/data/a.cpp").write_text(line + "\n")
            got = [fault[2] for fault in faults_of(root)[0]]
        good = got == [] if wanted is None else len(got) == 1 and wanted in got[0]
        if not good:
            print(f"check-floors: self-test: {line!r} gave {got}, not {wanted!r}", file=sys.stderr)
            failed += 1
    return failed


def main():
    arguments = sys.argv[1:]
    if arguments == ["--self-test"]:
        return 1 if self_test() else 0
    root = Path(arguments[0]) if arguments else Path(__file__).resolve().parent.parent
    if self_test():
        return 1
    faults, count = faults_of(root)
    for name, line, sentence in faults:
        print(f"{name}:{line}: {sentence}", file=sys.stderr)
    if faults:
        return 1
    print(f"check-floors: {count} files of the core keep to their floors")
    return 0


if __name__ == "__main__":
    sys.exit(main())
