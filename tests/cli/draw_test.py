# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Pictures: right in size, the same every time, and with hair where hair is."""
import unittest

from program import ProgramTest, read_png


def brightness(rows, x0, x1, y0, y1):
    values = [sum(rows[y][3 * x:3 * x + 3]) for y in range(y0, y1) for x in range(x0, x1)]
    return sum(values) / len(values) / 3


class Draw(ProgramTest):
    few = ("--set", "scatter.density=400", "--set", "width.width=0.02")

    def draw(self, name, *more, groom="a.groom"):
        self.run_program("draw", groom, name, "--size", "120x90", *more)
        width, height, rows = read_png(self.path / name)
        self.assertEqual((width, height), (120, 90))
        return rows

    def test_hair_stands_on_the_scalp(self):
        self.new_groom()
        bare = self.draw("bare.png", "--set", "scatter.density=0", "--camera", "front")
        hair = self.draw("hair.png", *self.few, "--camera", "front")
        # The flat scalp is seen from its edge, so that all there is to see is hair above it.
        self.assertLess(brightness(hair, 45, 75, 35, 60), 0.9 * brightness(bare, 45, 75, 5, 20))
        # Above and below there is the ground, darker toward the foot.
        self.assertGreater(brightness(hair, 0, 120, 0, 2), brightness(hair, 0, 120, 88, 90))
        self.assertEqual(self.draw("again.png", *self.few), hair)

    def test_cameras_differ(self):
        self.new_groom()
        views = [self.draw(f"{camera}.png", *self.few, "--camera", camera)
                 for camera in ("front", "side", "back", "three-quarter")]
        for i, view in enumerate(views):
            for other in views[i + 1:]:
                self.assertNotEqual(view, other)

    def test_up_axis_turns_the_camera(self):
        """A scalp of 2 by 2 lies in XZ, under hair 1 long. With Y up the front shows its edge and
        the hair above; with Z up it shows the scalp's whole face, and hair from its root on."""
        def box(rows):
            """(width, height) of what stands out from the ground, which is even along a row."""
            seen = [(x, y) for y, row in enumerate(rows) for x in range(120)
                    if max(abs(row[3 * x + i] - row[i]) for i in range(3)) > 12]
            columns, lines = zip(*seen)
            return max(columns) - min(columns) + 1, max(lines) - min(lines) + 1

        for up, ratio in (("Y", 2.0), ("Z", 1.0)):
            self.new_groom("u.groom", "--up", up)
            width, height = box(self.draw("u.png", *self.few, groom="u.groom"))
            self.assertAlmostEqual(width / height, ratio, delta=0.4 * ratio, msg=up)

    def test_a_picture_of_several_tiles_is_one_picture(self):
        self.new_groom()
        self.run_program("draw", "a.groom", "wide.png", "--size", "1300x40", *self.few)
        width, height, rows = read_png(self.path / "wide.png")
        self.assertEqual((width, height), (1300, 40))
        # No seam in the ground where the tiles meet.
        self.assertEqual(rows[0][3 * 1023:3 * 1024], rows[0][3 * 1024:3 * 1025])

    def test_colours_come_from_the_groom(self):
        self.new_groom()
        dark = self.draw("dark.png", *self.few, "--set", "color.melanin=1.0")
        light = self.draw("light.png", *self.few, "--set", "color.melanin=0.1")
        self.assertLess(brightness(dark, 45, 75, 35, 60) + 20, brightness(light, 45, 75, 35, 60))
        red = self.draw("red.png", *self.few, "--set", "color.dye=[1, 0.1, 0.1]", "--set",
                        "color.melanin=0.2")
        middle = red[45][3 * 60:3 * 61]
        self.assertGreater(middle[0], middle[2])

    def test_sizes_and_targets(self):
        self.new_groom()
        for size in ("0x10", "10", "10x", "x10", "10x10x10", "9000x10", "-5x5", "10x1e9", "axb"):
            self.assertIn("--size", self.run_program("draw", "a.groom", "a.png", "--size", size,
                                                     code=2).stderr)
        self.assertFalse((self.path / "a.png").exists())
        for target in (self.full_device(), "none/a.png", "."):
            self.run_program("draw", "a.groom", target, "--size", "8x8", *self.few, code=4)
        self.run_program("draw", "a.groom", "one.png", "--size", "1x1", *self.few)
        self.assertEqual(read_png(self.path / "one.png")[:2], (1, 1))


if __name__ == "__main__":
    unittest.main()
