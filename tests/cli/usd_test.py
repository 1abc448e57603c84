# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Layers read by an independent library, where it could be installed; skipped elsewhere."""
import json
import os
import subprocess
import sys
import unittest
from pathlib import Path

from program import ProgramTest

SOURCE = Path(os.environ.get("KESTRANE_SOURCE", ".")).resolve()
READER = SOURCE / "build/usd-reader/bin/python"
CHECK = SOURCE / "tests/usd/check_usd.py"


class Usd(ProgramTest):
    def check(self, *arguments):
        done = subprocess.run([READER, "-B", CHECK, *map(str, arguments)], cwd=self.path,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=280)
        self.assertEqual(done.returncode, 0, done.stdout)

    def test_the_writers_own_samples(self):
        (self.path / "layers").mkdir()
        subprocess.run([os.environ["KESTRANE_USD_SAMPLES"], self.path / "layers"], check=True,
                       timeout=280)
        self.check("layers")

    def test_exports_of_the_program(self):
        self.run_program("sample", "sample.groom")
        self.new_groom("grid.groom")
        for groom, settings, frames in (
                ("sample.groom", ("--set", "scatter.density=20"), None),
                ("grid.groom", ("--set", "scatter.density=50"), "1:3"),
                ("grid.groom", ("--set", "scatter.density=0"), None)):
            with self.subTest(groom=groom, settings=settings):
                answer = self.json_of("evaluate", groom, *settings)
                strands = answer["stats"]["strands"]
                more = ("--frames", frames) if frames else ()
                self.run_program("export", groom, "out.usda", *settings, *more)
                times = [1, 2, 3] if frames else [0]
                summary = {"upAxis": "Y", "metersPerUnit": 0.01,
                           "frames": [{"time": time, "counts": [17] * strands} for time in times]}
                self.write("out.json", json.dumps(summary))
                self.check("out.usda", "out.json")


if __name__ == "__main__":
    if not READER.exists():
        print("skipped: no USD reader; scripts/usd-reader.sh build/usd-reader makes one")
        sys.exit(77)
    unittest.main()
