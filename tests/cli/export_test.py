# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""What is in exported layers, and where they go."""
import json
import math
import os
import re
import threading
import unittest

from program import ProgramTest, grid_obj


class Export(ProgramTest):
    def test_layer(self):
        self.new_groom("a.groom", "--units", "m", "--up", "Z")
        self.run_program("export", "a.groom", "a.usda", "--frame", "7")
        text = (self.path / "a.usda").read_text()
        self.assertTrue(text.startswith("#usda 1.0\n"))
        for words in ("metersPerUnit = 1\n", 'upAxis = "Z"', "startTimeCode = 7\n",
                      "endTimeCode = 7\n", "def BasisCurves \"strands\"", "primvars:strandId"):
            self.assertIn(words, text)

    def test_frames_stream(self):
        self.new_groom()
        few = ("--set", "scatter.density=20", "--set",
               "noise.amplitude={\"expression\": \"0.1 * frame\"}")
        self.run_program("export", "a.groom", "a.usda", "--frames", "1:3", *few)
        self.run_program("export", "a.groom", "b.usda", "--frames", "1:2:0.5", *few)
        a = (self.path / "a.usda").read_text()
        self.assertIn("startTimeCode = 1\n", a)
        self.assertIn("endTimeCode = 3\n", a)
        self.assertEqual(a.count("\n        2: "), a.count("timeSamples"))
        self.assertIn("\n        1.5: ", (self.path / "b.usda").read_text())
        for frames in ("1", "3:1", "1:2:0", "1:2:-1", "a:b", "1:2:3:4", "1:nan", "0:1e9:1e-9",
                       "1e17:1.0000000000000002e17", "1e9:1.0000000001e9:1e-7"):
            self.run_program("export", "a.groom", "c.usda", "--frames", frames, code=2)
        self.assertFalse((self.path / "c.usda").exists())

    # Roots that stay where they were scattered.
    still = ("--set", "noise.amplitude=0", "--set", "scatter.density=40")

    def values(self, layer, attribute):
        """The numbers of the one sample of an attribute, as a list of tuples; None without it."""
        text = (self.path / layer).read_text()
        found = re.search(re.escape(attribute) + r"\.timeSamples = {\n *\S+: \[(.*)\],\n", text)
        if found is None:
            return None
        return [tuple(map(float, item.strip("()").split(", ")))
                for item in re.findall(r"\([^)]*\)|[^(), ]+", found.group(1))]

    def roots(self, layer):
        points = self.values(layer, "points")
        counts = [int(count) for count, in self.values(layer, "curveVertexCounts")]
        return [points[sum(counts[:i])] for i in range(len(counts))]

    def test_uvs_are_those_under_the_roots(self):
        self.new_groom()
        for level in ("off", "2"):
            self.run_program("export", "a.groom", "a.usda", *self.still, "--set",
                             f'scalp.subdivision="{level}"')
            roots = self.roots("a.usda")
            uvs = self.values("a.usda", "primvars:st")
            self.assertEqual(len(uvs), len(roots))
            # Refining rounds the corners of the grid off.
            inside = [(root, uv) for root, uv in zip(roots, uvs)
                      if max(abs(root[0]), abs(root[2])) < 0.4]
            self.assertGreater(len(inside), 10)
            for (x, _, z), (u, v) in inside:
                self.assertAlmostEqual(u, x / 2 + 0.5, places=4)
                self.assertAlmostEqual(v, z / 2 + 0.5, places=4)

    def test_uvs_of_hair_on_another_mesh(self):
        """Hair on a collider without UVs has none, however many the scalp has."""
        self.new_groom()
        self.write("body.obj", grid_obj(2, size=3.0, uvs=False))
        self.run_program("new", "body.groom", "--scalp", "body.obj")
        body = json.loads((self.path / "body.groom").read_text())["scalp"]

        def grow_on_collider(d):
            d["graph"]["nodes"][0].update(type="ColliderMesh", params={"name": "body"})
            d["colliders"] = {"body": body}
        self.edit("a.groom", grow_on_collider)
        self.run_program("export", "a.groom", "a.usda", *self.still)
        self.assertGreater(max(x for x, _, _ in self.roots("a.usda")), 1.1)
        self.assertIsNone(self.values("a.usda", "primvars:st"))
        self.assertIsNotNone(self.values("a.usda", "primvars:displayColor"))

    def test_colours_are_the_pigment_s(self):
        self.new_groom()
        self.run_program("export", "a.groom", "a.usda", *self.still, "--set", "color.melanin=0.4",
                         "--set", "color.redness=0.25", "--set", "color.melaninRandom=0", "--set",
                         "color.rednessRandom=0", "--set", "color.dye=[1, 0.5, 0.25]")
        fibre = [dye * math.exp(-5 * 6.6 * 0.4 ** 2 * (0.75 * brown + 0.25 * red))
                 for dye, brown, red in ((1, 0.419, 0.187), (0.5, 0.697, 0.4), (0.25, 1.37, 1.05))]
        grey = sum(share * c for share, c in zip((0.2126, 0.7152, 0.0722), fibre))
        colors = self.values("a.usda", "primvars:displayColor")
        self.assertEqual(len(colors), len(self.roots("a.usda")))
        for color in colors:
            for c, wanted in zip(color, fibre):
                self.assertAlmostEqual(c, (wanted + grey) / 2, places=6)

    def test_a_unit_that_is_not_known(self):
        self.new_groom()
        self.edit("a.groom", lambda d: d.update(units="parsec"))
        done = self.run_program("export", "a.groom", "a.usda", *self.still)
        self.assertEqual(done.stderr, "warning: the unit 'parsec' is not known; the layer says "
                                      "centimetres\n")
        self.assertIn("metersPerUnit = 0.01\n", (self.path / "a.usda").read_text())

    def test_guides_are_exported_as_they_are(self):
        self.new_groom()
        self.edit("a.groom", lambda d: d["graph"].update(output="guides"))
        self.run_program("export", "a.groom", "a.usda")
        guides = json.loads((self.path / "a.groom").read_text())["hierarchy"]["guides"]
        self.assertEqual(self.values("a.usda", "primvars:strandId"),
                         [(guide["id"],) for guide in guides])
        numbers = [number for guide in guides for number in guide["points"]]
        points = [number for point in self.values("a.usda", "points") for number in point]
        self.assertEqual(len(points), len(numbers))
        for number, wanted in zip(points, numbers):
            self.assertAlmostEqual(number, wanted, places=6)

    def test_standard_output_without_rights(self):
        rights = self.as_nobody()
        self.new_groom()
        self.run_program("export", "a.groom", "plain.usda", *self.still)
        (self.path / "free").mkdir()
        (self.path / "free").chmod(0o777)
        (self.path / "free/a.usda").touch()
        (self.path / "free/a.usda").chmod(0o666)
        with open(self.path / "free/a.usda", "r+b") as file:
            self.run_program("export", "a.groom", "/dev/stdout", *self.still, stdout=file, **rights)
        self.assertEqual((self.path / "free/a.usda").read_bytes(),
                         (self.path / "plain.usda").read_bytes())
        self.assertEqual(os.listdir(self.path / "free"), ["a.usda"])

    def test_targets(self):
        self.new_groom()
        few = ("--set", "scatter.density=20")
        self.run_program("export", "a.groom", "a.usda", *few)
        plain = (self.path / "a.usda").read_bytes()
        self.assertEqual(self.run_program("export", "a.groom", "/dev/stdout", *few).stdout.encode(),
                         plain)
        os.mkfifo(self.path / "pipe")
        got = []
        reader = threading.Thread(target=lambda: got.append((self.path / "pipe").read_bytes()))
        reader.start()
        self.run_program("export", "a.groom", "pipe", *few)
        reader.join()
        self.assertEqual(got, [plain])
        self.assertTrue((self.path / "pipe").is_fifo(), "the pipe was replaced")
        for target in (self.full_device(), "none/a.usda", "."):
            done = self.run_program("export", "a.groom", target, *few, code=4)
            self.assertIn("cannot write", done.stderr)
        # A failed write leaves the older file.
        self.run_program("export", "a.groom", "a.usda", "--set", "scatter.density=1e12", code=1)
        self.assertEqual((self.path / "a.usda").read_bytes(), plain)


if __name__ == "__main__":
    unittest.main()
