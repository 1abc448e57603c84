# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""What a run that takes its time says while it goes on."""
import os
import pty
import subprocess
import time
import unittest

from program import PROGRAM, ProgramTest


class Progress(ProgramTest):
    def slow(self):
        """Settings with which a.groom takes more than a second, though its strands are few."""
        for density in (10000, 40000, 160000):
            settings = ["--threads", "1", "--set", "scatter.randomness=0", "--set",
                        "resample.segments=1", "--set", f"scatter.density={density}"]
            start = time.monotonic()
            self.run_program("evaluate", "a.groom", "--quiet", *settings)
            if time.monotonic() - start > 2:
                return settings
        self.skipTest("this machine is too fast")

    def say_on_terminal(self, *arguments):
        """What the program writes to a terminal for its messages."""
        control, terminal = pty.openpty()
        said = b""
        with subprocess.Popen([PROGRAM, *arguments], cwd=self.path, stdout=subprocess.DEVNULL,
                              stderr=terminal) as running:
            os.close(terminal)
            try:
                while piece := os.read(control, 4096):
                    said += piece
            except OSError:
                pass  # the program has closed its side
        os.close(control)
        self.assertEqual(running.returncode, 0, said)
        return said.decode()

    def test_lines_elsewhere(self):
        self.new_groom()
        start = time.monotonic()
        said = self.run_program("evaluate", "a.groom").stderr
        if time.monotonic() - start < 1:
            self.assertEqual(said, "")
        said = self.run_program("evaluate", "a.groom", *self.slow()).stderr
        self.assertRegex(said, r"\A(Growing: \d+\.\d s\n)+\Z")

    def test_bar_on_a_terminal(self):
        self.new_groom()
        slow = self.slow()
        self.assertEqual(self.say_on_terminal("evaluate", "a.groom", "--quiet", *slow), "")
        bar = r"\rGrowing \[ *#{4} *\] \d+\.\d s\x1b\[K"
        self.assertRegex(self.say_on_terminal("evaluate", "a.groom", *slow),
                         rf"\A({bar})+\r\x1b\[KGrowing: \d+\.\d s\r\n\Z")

    def test_messages_leave_the_bar(self):
        self.run_program("new", "a.groom", "--scalp", "grid.obj")
        said = self.say_on_terminal("export", "a.groom", "a.usda", "--frames", "0:1", *self.slow())
        self.assertRegex(said, r"\rExporting \[")
        self.assertRegex(said, r"\r\x1b\[Kwarning: node 'interpolate': ")


if __name__ == "__main__":
    unittest.main()
