# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Meshes as artists make them, where they lie beside the project; skipped elsewhere."""
import os
import sys
import unittest
from pathlib import Path

from program import ProgramTest, read_png

DATA = Path(os.environ.get("KESTRANE_DATA") or
            Path(os.environ.get("KESTRANE_SOURCE", ".")) / "../shared/data").resolve()

# Mesh, guides, polygons, settings that keep the strands few, and their number.
GROOMS = {
    "head.obj": ("head_guides.obj", 4304, "scatter.density=2", 140),
    "scalp.obj": ("head_guides.obj", 174, "scatter.density=2", 140),
    "spot.obj": (None, 5856, "scatter.density=200", 0),
}


class RealData(ProgramTest):
    def test_every_mesh_goes_the_whole_road(self):
        for mesh, (guides, polygons, setting, guide_count) in GROOMS.items():
            with self.subTest(mesh):
                more = ("--guides", DATA / guides) if guides else ()
                self.run_program("new", "r.groom", "--scalp", DATA / mesh, *more)
                info = self.json_of("info", "r.groom")
                self.assertEqual(info["scalp"]["polygons"], polygons)
                self.assertEqual(info["guides"]["count"], guide_count)
                self.assertTrue(info["scalp"]["uvs"])
                answer = self.json_of("evaluate", "r.groom", "--set", setting)
                self.assertFalse(any(m["isError"] for m in answer["messages"]), answer["messages"])
                strands = answer["stats"]["strands"]
                density = float(setting.split("=")[1])
                self.assertAlmostEqual(strands / (density * info["scalp"]["area"]), 1.0, delta=0.1)
                self.run_program("export", "r.groom", "r.usda", "--set", setting)
                self.assertGreater((self.path / "r.usda").stat().st_size, 20 * strands)
                self.run_program("draw", "r.groom", "r.png", "--set", setting, "--size", "64x64")
                self.assertEqual(read_png(self.path / "r.png")[:2], (64, 64))


if __name__ == "__main__":
    if not (DATA / "head.obj").exists():
        print(f"skipped: no meshes in {DATA}")
        sys.exit(77)
    unittest.main()
